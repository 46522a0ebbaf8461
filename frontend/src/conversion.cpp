#include "frontend/conversion.hpp"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "driver.hpp"
#include "losses.hpp"
#include "packet_reader.hpp"
#include "recording_files.hpp"
#include "scanlib/counts_per_byte.hpp"
#include "scanlib/file_connection.hpp"
#include "scanlib/pointcloud.hpp"
#include "scanlib/scanlib_exception.hpp"
#include "text_files.hpp"
#include "wfm.hpp"

namespace Riegl {

namespace {

constexpr std::int64_t bytes_per_package = 2500;
constexpr int fallback_total = 1000000;

/// Tells the host what the conversion did, whichever way it ends. Made first, so that the file is
/// finished by then.
class SummaryReport {
  public:
    SummaryReport(const Input& input, const std::filesystem::path& file)
        : monitor_(input.Progress) {
        summary.output = input.OutDir / (file.stem().string() + ".k7");
    }
    SummaryReport(const SummaryReport&) = delete;
    SummaryReport& operator=(const SummaryReport&) = delete;
    ~SummaryReport() {
        try {
            complete();
            if (monitor_.available()) {
                monitor_->summarise(summary);
            }
        } catch (...) {
            // The conversion's own result goes before a report about it.
            return;
        }
    }

    ConversionSummary summary;
    scanlib::loss_log losses;

  private:
    void complete() {
        std::error_code unknown;
        auto file = summary.output;
        if (summary.store_failed || summary.stopped) {
            file += ".part";
        }
        const auto size = std::filesystem::file_size(file, unknown);
        summary.bytes_out = unknown || summary.abandoned ? 0 : size;
        summary.losses = losses_of(losses);
    }

    Holdfast::StrongPtr<ProgressMonitor> monitor_;
};

/// Gives up the output file unless the stream was opened, so that a file of an earlier run stays.
/// Made after the WFM, so that the file is not finished yet.
class UnopenedStream {
  public:
    UnopenedStream(WFM& wfm, ConversionSummary& summary) : wfm_(wfm), summary_(summary) {
        summary_.abandoned = true;
    }
    UnopenedStream(const UnopenedStream&) = delete;
    UnopenedStream& operator=(const UnopenedStream&) = delete;
    ~UnopenedStream() {
        if (summary_.abandoned) {
            wfm_.writer().abandon();
        }
    }
    void opened() noexcept { summary_.abandoned = false; }

  private:
    WFM& wfm_;
    ConversionSummary& summary_;
};

/// A message for the console, the log and `Errors`.
void warn(Input& input, const std::string& message) {
    Holdfast::Console() << message;
    append_log_line(input.ErrorLog, message + "\n");
    input.Errors += message;
}

/// What the host gets of a connection, which may be gone by the time it uses it.
class ConnectionControl : public StreamControl {
  public:
    explicit ConnectionControl(const std::shared_ptr<scanlib::basic_rconnection>& connection)
        : connection_(connection) {}
    void stop() override {
        asked_ = true;
        if (const auto connection = connection_.lock()) {
            connection->stop();
        }
    }
    void cancel() override {
        asked_ = true;
        if (const auto connection = connection_.lock()) {
            connection->cancel();
        }
    }
    /// Whether the host asked for the end.
    bool asked() const noexcept { return asked_; }

  private:
    std::weak_ptr<scanlib::basic_rconnection> connection_;
    std::atomic<bool> asked_{false};
};

/// One pass over the stream: every packet but the last to both consumers.
class Pass {
  public:
    Pass(Input& input, const std::filesystem::path& file, WFM& wfm,
         const std::shared_ptr<scanlib::basic_rconnection>& connection,
         const ConnectionControl& control, SummaryReport& report)
        : input_(input)
        , file_(file)
        , wfm_(wfm)
        , control_(scanlib::report_of(*connection) == nullptr ? nullptr : &control)
        , counts_per_byte_(scanlib::counts_per_byte(*connection))
        , reader_(connection, !scanlib::is_live(*connection))
        , meta_engine_(std::make_shared<scanlib::pointcloud>(false))
        , report_(report) {}
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;
    ~Pass() {
        reader_.stop();
        report_.losses.add(reader_.losses());
        report_.summary.bytes_in = position_ / counts_per_byte_;
    }

    /// Returns the error text of a failed store; leaves by exception when the stream fails.
    std::string run() {
        const auto scale = progress_scale(stream_size(file_));
        std::uint32_t package = 0; // wraps in a stream that long
        std::uint32_t due = 0;     // the package at which progress is reported next
        StreamPacket packet;
        while (next(packet)) {
            feed_meta_engine(packet);
            if (package == due) {
                due += static_cast<std::uint32_t>(scale.step);
                if (input_.Progress.available()) {
                    input_.Progress->report("RXP-Package# ", static_cast<int>(package),
                                            scale.total);
                }
            }
            deliver(packet);
            if (std::string text = wfm_.shall_we_write(false); !text.empty()) {
                return text;
            }
            ++package;
        }
        if (packet.begin != packet.end) {
            report_.losses.note(scanlib::loss::last_packet);
        }
        return {};
    }

  private:
    bool next(StreamPacket& packet) {
        // The wish to end a file counts at once, not for what is read ahead.
        if (control_ != nullptr && control_->asked()) {
            throw scanlib::cancelled();
        }
        report_.losses.at(reader_.offset());
        const bool whole = reader_.next(packet);
        report_.summary.offset = packet.behind;
        position_ = packet.position;
        return whole;
    }

    /// A packet that breaks half-way gives no rows.
    void deliver(const StreamPacket& packet) {
        const WFM::Rows rows = wfm_.staged();
        try {
            wfm_.dispatch(packet.begin, packet.end);
        } catch (...) {
            wfm_.unstage(rows);
            throw;
        }
    }

    /// The second consumer only yields the metadata: it is fed until it has.
    void feed_meta_engine(const StreamPacket& packet) {
        if (!meta_engine_) {
            return;
        }
        meta_engine_->dispatch(packet.begin, packet.end);
        try {
            meta_engine_->get_meta(wfm_.meta_stream, true);
            meta_engine_.reset();
        } catch (const scanlib::scanlib_exception&) {
            // Not available yet: the next packet tries again.
            return;
        }
    }

    Input& input_;
    const std::filesystem::path& file_;
    WFM& wfm_;
    const ConnectionControl* control_; ///< null for a stream that ends by itself then
    const std::uint64_t counts_per_byte_;
    std::uint64_t position_ = 0;
    PacketReader reader_;
    std::shared_ptr<scanlib::pointcloud> meta_engine_;
    SummaryReport& report_;
};

/// What follows the pass when the stream came to its normal end.
std::string end_normally(Input& input, const std::filesystem::path& file, WFM& wfm,
                         scanlib::basic_rconnection& connection) {
    if (input.Progress.available()) {
        input.Progress->report("RXP-Writing# ", 1, 1);
    }
    std::string text = wfm.shall_we_write(true);
    const std::uint32_t longest = wfm.writer().longest_waveform();
    if (input.Exported_FWF_LENGTH < longest) {
        warn(input, "Warning! FWF cut off: Exported length  " +
                        std::to_string(input.Exported_FWF_LENGTH) + ", actual length " +
                        std::to_string(longest) + " for file " + utf8_of(file));
    }
    if (text.empty()) {
        connection.close();
    }
    return text;
}

/// Finishes the output file; a failure joins the result.
std::string finish(const std::string& text, const std::filesystem::path& output, WFM& wfm) {
    try {
        wfm.finish();
        return text;
    } catch (const std::exception& e) {
        const std::string failure =
            "rxpToSkeinK7: cannot finish file: " + utf8_of(output) + ". Error: " + e.what();
        return text.empty() ? failure : text + " " + failure;
    }
}

/// What follows a failure of the pass: what was read is stored, then the failure is told.
std::string end_interrupted(Input& input, WFM& wfm, scanlib::basic_rconnection& connection,
                            const std::string& message) {
    std::string text = wfm.shall_we_write(true);
    if (!text.empty()) {
        return text;
    }
    connection.close();
    warn(input, message);
    return {};
}

} // namespace

ProgressScale progress_scale(std::int64_t size) {
    const auto total =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(size / bytes_per_package));
    if (total < 0) {
        return {fallback_total, fallback_total / 100};
    }
    return {total, std::max(total / 100, 1)};
}

std::string convert_stream(const std::filesystem::path& file, Input& input,
                           const ConnectionFactory& connect) {
    SummaryReport report(input, file);
    ConversionSummary& summary = report.summary;
    summary.store_failed = true; // until the output file is made
    WFM wfm(input, file, true, summary);
    wfm.set_loss_log(&report.losses);
    summary.store_failed = false;
    UnopenedStream output(wfm, summary);
    wfm.writer().prepare_fragment(input.FragSize, input.Exported_FWF_LENGTH);
    const std::shared_ptr<scanlib::basic_rconnection> connection(connect(utf8_of(file)));
    if (!connection) {
        return "rxpToSkeinK7: cannot establish rconnection to file: " + utf8_of(file);
    }
    const auto control = std::make_shared<ConnectionControl>(connection);
    if (input.Progress.available()) {
        input.Progress->connecting(control);
    }
    const auto interrupted = [&](const std::string& cause, const std::string& message) {
        summary.interrupted = true;
        summary.cause = cause;
        summary.stopped = control->asked() && scanlib::report_of(*connection) != nullptr;
        return end_interrupted(input, wfm, *connection, message);
    };
    std::string text;
    try {
        connection->open();
        output.opened();
        scanlib::note_unread_files(*connection, report.losses);
        text = Pass(input, file, wfm, connection, *control, report).run();
        if (text.empty()) {
            text = end_normally(input, file, wfm, *connection);
        }
    } catch (const std::exception& e) {
        text = interrupted(e.what(), "rxpToSkeinK7: Export interrupted for file: " + utf8_of(file) +
                                         ". Error: " + e.what());
    } catch (...) {
        text = interrupted("unknown exception",
                           "rxpToSkeinK7:  Unknown exception for file: " + utf8_of(file));
    }
    scanlib::note_unread_files(*connection, report.losses);
    summary.recording = files_of(*connection);
    if (summary.stopped) {
        wfm.writer().abandon();
    }
    return summary.abandoned || summary.stopped ? text : finish(text, summary.output, wfm);
}

std::string rxpToSkeinK7(const std::filesystem::path& file, Input& input) {
    return convert_stream(file, input, [](const std::string& uri) {
        return scanlib::basic_rconnection::create(uri, "", "");
    });
}

} // namespace Riegl
