#include <exception>
#include <memory>

#include "inspect_fwf.hpp"
#include "losses.hpp"
#include "recording_files.hpp"
#include "scanlib/file_connection.hpp"
#include "scanlib/rxpmarker.hpp"
#include "text_files.hpp"

namespace Riegl {

namespace {

constexpr std::int64_t bytes_per_package = 1000;
constexpr int fallback_total = 1000000;
constexpr std::uint64_t preamble_bytes = 16;

/// Tells the host what was drawn, whichever way the inspection ends.
class InspectionReport {
  public:
    explicit InspectionReport(const Input& input) : monitor_(input.Progress) {}
    InspectionReport(const InspectionReport&) = delete;
    InspectionReport& operator=(const InspectionReport&) = delete;
    ~InspectionReport() {
        try {
            if (monitor_.available()) {
                summary.losses = losses_of(losses);
                monitor_->inspected(summary);
            }
        } catch (...) {
            // The inspection's own result goes before a report about it.
            return;
        }
    }

    InspectionSummary summary;
    scanlib::loss_log losses;

  private:
    Holdfast::StrongPtr<ProgressMonitor> monitor_;
};

/// Tells the files of a connection, whichever way its reading ends.
class FilesReport {
  public:
    FilesReport(scanlib::basic_rconnection& connection, InspectionReport& report)
        : connection_(connection), report_(report) {
        scanlib::note_unread_files(connection_, report_.losses);
    }
    FilesReport(const FilesReport&) = delete;
    FilesReport& operator=(const FilesReport&) = delete;
    ~FilesReport() {
        try {
            scanlib::note_unread_files(connection_, report_.losses);
            report_.summary.recording = files_of(connection_);
        } catch (...) {
            // The inspection's own result goes before a report about it.
            return;
        }
    }

  private:
    scanlib::basic_rconnection& connection_;
    InspectionReport& report_;
};

/// Every packet but the last to the consumer.
void read_through(Input& input, int total, scanlib::basic_rconnection& connection,
                  scanlib::decoder_rxpmarker& decoder, InspectFWF& consumer,
                  InspectionReport& report) {
    const auto next = [&](scanlib::basic_buffer& packet) {
        const std::uint64_t at = decoder.tell();
        report.losses.at(at == 0 ? preamble_bytes : at);
        decoder.get(packet);
        report.summary.offset = decoder.tell();
        report.summary.bytes_in = connection.position();
    };
    std::uint32_t number = 0;
    scanlib::basic_buffer packet;
    for (next(packet); !decoder.packet_truncated(); next(packet)) {
        if (input.Progress.available()) {
            input.Progress->report("Package# ", static_cast<int>(number), total);
            ++number;
        }
        consumer.dispatch(packet.begin(), packet.end());
    }
    if (!packet.empty()) {
        report.losses.note(scanlib::loss::last_packet);
    }
}

std::string inspect(const std::filesystem::path& file, Input& input,
                    const ConnectionFactory& connect, InspectionReport& report) {
    const std::shared_ptr<scanlib::basic_rconnection> connection(connect(utf8_of(file)));
    if (!connection) {
        return "rxpToSkeinK7: cannot establish rconnection to file: " + utf8_of(file);
    }
    connection->open();
    report.summary.opened = true;
    const FilesReport files(*connection, report);
    scanlib::decoder_rxpmarker decoder(connection, scanlib::decoder_capacity,
                                       scanlib::decoder_headroom, true);
    decoder.set_loss_log(&report.losses);
    InspectFWF consumer(input, file, report.summary);
    consumer.set_loss_log(&report.losses);
    read_through(input, inspection_total(stream_size(file)), *connection, decoder, consumer,
                 report);
    connection->close();
    return {};
}

} // namespace

void ProgressMonitor::inspected(const InspectionSummary&) {}

int inspection_total(std::int64_t size) {
    return size > -bytes_per_package
               ? static_cast<std::int32_t>(static_cast<std::uint32_t>(size / bytes_per_package))
               : fallback_total;
}

std::string inspect_stream(const std::filesystem::path& file, Input& input,
                           const ConnectionFactory& connect) {
    InspectionReport report(input);
    try {
        return inspect(file, input, connect, report);
    } catch (const std::exception& e) {
        return std::string("inspectFWFs: ") + e.what();
    } catch (...) {
        return "inspectFWFs: unknown exception";
    }
}

std::string inspectFWFs(const std::filesystem::path& file, Input& input) {
    return inspect_stream(file, input, [](const std::string& uri) {
        return scanlib::basic_rconnection::create(uri, "", "");
    });
}

} // namespace Riegl
