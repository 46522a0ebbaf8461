#include "command_result.hpp"
#include "commands.hpp"
#include "help.hpp"
#include "input_file.hpp"
#include "recording_output.hpp"
#include "recording_walk.hpp"

#include "scanlib/pointcloud.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <system_error>
#include <utility>

namespace host {

namespace {

struct points_options {
    std::string input;
    std::string output; ///< empty for standard output
    bool external_time = false;
    bool json = false;
};

/// Nobody reads standard output any more: whoever closes the pipe has seen enough.
class output_closed : public std::exception {};

void write_to_standard_output(const char* data, std::size_t n) {
    if (std::fwrite(data, 1, n, stdout) == n && std::fflush(stdout) == 0) {
        return;
    }
    const int reason = errno;
    if (reason == EPIPE) {
        throw output_closed();
    }
    throw simulator::output_error("cannot write to standard output: " +
                                  std::generic_category().message(reason));
}

/// Passes text on in large pieces, counts its lines, and keeps why that failed.
class piecewise_text : public std::streambuf {
  public:
    using writer = std::function<void(const char* data, std::size_t n)>;

    explicit piecewise_text(writer write) : write_(std::move(write)) {
        setp(buffer_.data(), buffer_.data() + buffer_.size());
    }

    /// Writes what is left; throws what `write` threw, now or before.
    void finish() {
        drain();
        if (failure_) {
            std::rethrow_exception(failure_);
        }
    }
    std::uint64_t lines() const noexcept { return lines_; }

  protected:
    int_type overflow(int_type c) override {
        if (!drain()) {
            return traits_type::eof();
        }
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            sputc(traits_type::to_char_type(c));
        }
        return traits_type::not_eof(c);
    }
    int sync() override { return drain() ? 0 : -1; }

  private:
    bool drain() {
        try {
            if (!failure_ && pptr() != pbase()) {
                write_(pbase(), static_cast<std::size_t>(pptr() - pbase()));
                lines_ += static_cast<std::uint64_t>(std::count(pbase(), pptr(), '\n'));
            }
        } catch (...) {
            failure_ = std::current_exception();
        }
        setp(buffer_.data(), buffer_.data() + buffer_.size());
        return !failure_;
    }

    writer write_;
    std::array<char, 65536> buffer_;
    std::uint64_t lines_ = 0;
    std::exception_ptr failure_;
};

/// Refuses an output that would take the place of a file that is read.
void check_output(const points_options& options) {
    if (options.output.empty()) {
        return;
    }
    for (const std::string& file : files_of_input(options.input)) {
        if (recording_output::replaces(options.output, file)) {
            throw CLI::ValidationError("-o", "\"" + options.output + "\" is " +
                                                 (file == options.input ? "" : "part of ") +
                                                 "the input");
        }
    }
}

/// Writes the rows; throws where the recording cannot be opened or the output does not take them.
/// Returns how many there are.
std::uint64_t write_rows(const points_options& options, const piecewise_text::writer& write,
                         recording_walk& walk) {
    const auto text = std::make_unique<piecewise_text>(write);
    std::ostream rows(text.get());
    scanlib::pointcloud cloud(options.external_time);
    cloud.set_text_sink(&rows);
    cloud.set_loss_log(&walk.losses);
    walk_recording(
        options.input, walk,
        [&](const std::uint32_t* begin, const std::uint32_t* end) {
            cloud.dispatch(begin, end);
            return rows.good();
        },
        [](const std::uint32_t*, const std::uint32_t*) { return false; });
    text->finish();
    return text->lines() == 0 ? 0 : text->lines() - 1; // without the line of names
}

void write_points(const points_options& options, command_result& result) {
    recording_walk walk;
    if (options.output.empty()) {
        write_rows(options, write_to_standard_output, walk);
    } else {
        recording_output output(options.output);
        const std::uint64_t points = write_rows(
            options, [&](const char* data, std::size_t n) { output.write(data, n); }, walk);
        output.publish();
        result.found.number("points", points).number("bytes_out", output.bytes_written());
    }
    tell_losses(options.input, walk);
    result.text = damage_of(options.input, walk);
    result.code = is_damaged(walk) ? exit_code::input_damaged : exit_code::good;
}

exit_code run(const points_options& options) {
    command_result result;
    result.input = options.input;
    result.output = options.output;
    result.text = reason_unreadable(options.input);
    if (!result.text.empty()) {
        result.code = exit_code::input_unreadable;
        return tell(result, options.json);
    }
    check_output(options);
    try {
        write_points(options, result);
    } catch (const output_closed&) {
        return exit_code::output_failed;
    } catch (const simulator::output_error& e) {
        result.code = exit_code::output_failed;
        result.text = e.what();
    } catch (const std::exception& e) {
        result.code = exit_code::input_unreadable;
        result.text = "cannot read \"" + options.input + "\": " + e.what();
    }
    return tell(result, options.json);
}

} // namespace

void add_points(CLI::App& app, exit_code& result) {
    CLI::App* command = app.add_subcommand(
        "points", "Write the points of a recording as text, one row an echo, under a line of "
                  "column names.");
    auto options = std::make_shared<points_options>();
    command->add_option("INPUT", options->input, "recording (*.rxp)")->required();
    command->add_flag("--external-time", options->external_time,
                      "tell PPS times, and leave out what comes before the first synchronisation");
    CLI::Option* output = command->add_option("-o,--output", options->output,
                                              "file to write to, not standard output");
    command->add_flag("--json", options->json, json_help)->needs(output);
    command->footer(examples_text(
        {{"The first ten points", "rxp2k7 points scan.rxp | head -n 11"},
         {"All points with PPS times", "rxp2k7 points scan.rxp --external-time -o points.txt"}}));
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
