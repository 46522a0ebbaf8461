#include "command_result.hpp"
#include "commands.hpp"
#include "file_handle.hpp"
#include "help.hpp"
#include "input_file.hpp"
#include "interrupts.hpp"
#include "printable.hpp"
#include "progress.hpp"
#include "resume_note.hpp"

#include "scanlib/connection.hpp"
#include "scanlib/rdtp_connection.hpp"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace host {

namespace {

constexpr std::size_t buffer_bytes = 1 << 20;
constexpr auto note_interval = std::chrono::seconds(1);

struct record_options {
    std::string uri;
    std::string output;
    bool resume = false;
    bool json = false;
};

/// The output could not be written or is not to be touched.
class output_error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

std::string reason_of(int error) {
    return std::generic_category().message(error);
}

/// Appends to a recording. What was taken is in the file, so that it outlives this process.
class recording_sink : public scanlib::basic_wconnection {
  public:
    /// Keeps the first `kept` bytes of the file.
    recording_sink(const std::string& path, std::uint64_t kept)
        : path_(path), file_(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666)) {
        const auto end = static_cast<off_t>(kept);
        if (!file_ || ::ftruncate(file_.get(), end) != 0 ||
            ::lseek(file_.get(), end, SEEK_SET) != end) {
            fail(errno);
        }
    }
    std::int64_t write(const char* data, std::int64_t n) override {
        for (std::int64_t done = 0; done < n;) {
            const ssize_t k = ::write(file_.get(), data + done, static_cast<std::size_t>(n - done));
            if (k < 0 && errno != EINTR) {
                fail(errno);
            }
            done += std::max<ssize_t>(k, 0);
        }
        return n;
    }
    void close() override {
        if (::fsync(file_.get()) != 0 && errno != EINVAL) {
            fail(errno);
        }
    }

  private:
    [[noreturn]] void fail(int error) const {
        throw output_error("cannot write \"" + path_ + "\": " + reason_of(error));
    }

    std::string path_;
    file_handle file_;
};

/// What an earlier run left to go on from; nothing for a recording from the start.
std::optional<resume_note> find_note(const record_options& options) {
    std::error_code missing;
    const bool exists = std::filesystem::exists(options.output, missing);
    if (!options.resume) {
        if (exists) {
            throw output_error("\"" + options.output +
                               "\" is there already; --resume goes on with it");
        }
        return std::nullopt;
    }
    const auto note = read_note(note_path(options.output));
    if (!note) {
        if (exists) {
            throw output_error("\"" + options.output + "\" has no note \"" +
                               note_path(options.output) + "\" from which to go on");
        }
        return std::nullopt;
    }
    const auto size = std::filesystem::file_size(options.output, missing);
    if (missing || size < note->bytes) {
        throw output_error("\"" + options.output + "\" is shorter than its note says");
    }
    return note;
}

/// One run: from the connection to the file, with the note kept up to date.
class recorder {
  public:
    recorder(const record_options& options, const resume_note& from,
             scanlib::basic_rconnection& connection)
        : options_(options)
        , connection_(connection)
        , sink_(options.output, from.bytes)
        , place_(from.continuation)
        , bytes_(from.bytes)
        , line_(options.output, {"bytes"}) {}

    void run() {
        std::vector<char> buffer(buffer_bytes);
        auto next_note = std::chrono::steady_clock::now() + note_interval;
        std::uint64_t n = 0;
        do {
            n = connection_.read(buffer.data(), buffer.size());
            sink_.write(buffer.data(), static_cast<std::int64_t>(n));
            place_.delivered(connection_.continuation(), n);
            bytes_ += n;
            line_.show(bytes_);
            if (const auto now = std::chrono::steady_clock::now(); now >= next_note) {
                keep_note();
                next_note = now + note_interval;
            }
        } while (n != 0);
        sink_.close();
    }

    /// Writes down from where to go on. Returns whether that is possible.
    bool keep_note() {
        try {
            if (place_.usable()) {
                write_note(note_path(options_.output), {bytes_, place_.text()});
            }
        } catch (const std::system_error& e) {
            throw output_error(e.what());
        }
        return place_.usable();
    }

    void forget_note() { std::filesystem::remove(note_path(options_.output), unused_); }
    std::uint64_t bytes() const noexcept { return bytes_; }
    void clear_line() { line_.clear(); }

  private:
    const record_options& options_;
    scanlib::basic_rconnection& connection_;
    recording_sink sink_;
    continuation_tracker place_;
    std::uint64_t bytes_;
    progress_line line_;
    std::error_code unused_;
};

/// Whether the stream ended as its server meant it to.
bool came_to_its_end(scanlib::basic_rconnection& connection) {
    const auto* const dialogue = dynamic_cast<const scanlib::rdtp_rconnection*>(&connection);
    return dialogue == nullptr || dialogue->end_announced();
}

/// Says how a run ended, and leaves the note where there is more to come.
void close_run(recorder& run, const record_options& options, bool at_end, command_result& result) {
    run.clear_line();
    const bool can_go_on = !at_end && run.keep_note();
    if (at_end) {
        run.forget_note();
    }
    result.found.number("bytes_out", run.bytes()).truth("resumable", can_go_on);
    if (options.json) {
        return;
    }
    std::printf("%s -> %s\n  bytes      %llu\n", options.uri.c_str(), options.output.c_str(),
                static_cast<unsigned long long>(run.bytes()));
    if (can_go_on) {
        std::printf("  more       record --resume goes on from here\n");
    }
}

void record_from(const record_options& options, const resume_note& from, command_result& result) {
    const std::shared_ptr<scanlib::basic_rconnection> connection(
        scanlib::basic_rconnection::create(options.uri, from.continuation, ""));
    const interrupts signals([&](int) { connection->stop(); }, [&](int) { connection->cancel(); });
    connection->open();
    recorder run(options, from, *connection);
    try {
        run.run();
    } catch (const output_error&) {
        // The note of a second ago stays where no newer one can be written.
        throw;
    } catch (const std::exception& e) {
        close_run(run, options, false, result);
        result.code = exit_code::input_damaged;
        result.text = options.uri + ": stopped at byte " + std::to_string(run.bytes()) +
                      "; what came before is stored: " + printable(e.what());
        return;
    }
    close_run(run, options, signals.count() == 0 && came_to_its_end(*connection), result);
    connection->close();
}

exit_code run(const record_options& options) {
    if (!is_live_stream(options.uri)) {
        throw CLI::ValidationError("record", "\"" + options.uri + "\" is no rdtp: or rddp: URI");
    }
    command_result result;
    result.input = options.uri;
    result.output = options.output;
    try {
        record_from(options, find_note(options).value_or(resume_note{}), result);
    } catch (const output_error& e) {
        result.code = exit_code::output_failed;
        result.text = e.what();
    } catch (const std::exception& e) {
        result.code = exit_code::input_unreadable;
        result.text = options.uri + ": " + printable(e.what());
    }
    const exit_code code = tell(result, options.json);
    interrupts::end_process_if_cancelled();
    return code;
}

} // namespace

void add_record(CLI::App& app, exit_code& result) {
    CLI::App* command = app.add_subcommand("record", "Store a live stream, byte for byte.");
    auto options = std::make_shared<record_options>();
    command->add_option("URI", options->uri, "rdtp: or rddp: URI")->required();
    command->add_option("OUTPUT", options->output, "new recording (*.rxp)")->required();
    command->add_flag("--resume", options->resume, "go on with a recording that was interrupted");
    command->add_flag("--json", options->json, json_help);
    command->footer(examples_text(
        {{"A stream, until it ends or Ctrl-C", "rxp2k7 record rdtp://192.168.0.1/current new.rxp"},
         {"The rest of it", "rxp2k7 record rdtp://192.168.0.1/current new.rxp --resume"}}));
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
