#include "commands.hpp"
#include "input_file.hpp"
#include "input_registry.hpp"
#include "recording_walk.hpp"

#include "scanlib/pointcloud.hpp"

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <system_error>

namespace host {

namespace {

struct points_options {
    std::string input;
    std::string output; ///< empty for standard output
    bool external_time = false;
};

/// Writes text to a file in large pieces, and keeps why that failed.
class file_text : public std::streambuf {
  public:
    explicit file_text(std::FILE* file) : file_(file) {
        setp(buffer_.data(), buffer_.data() + buffer_.size());
    }

    /// Writes what is left. Returns whether all was written; `reason` tells why not.
    bool finish() {
        if (drain() && std::fflush(file_) != 0) {
            reason_ = errno;
        }
        return reason_ == 0;
    }
    int reason() const noexcept { return reason_; }

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
    int sync() override { return finish() ? 0 : -1; }

  private:
    bool drain() {
        const auto n = static_cast<std::size_t>(pptr() - pbase());
        if (reason_ == 0 && std::fwrite(pbase(), 1, n, file_) != n) {
            reason_ = errno;
        }
        setp(buffer_.data(), buffer_.data() + buffer_.size());
        return reason_ == 0;
    }

    std::FILE* file_;
    std::array<char, 65536> buffer_;
    int reason_ = 0;
};

struct closer {
    void operator()(std::FILE* f) const noexcept {
        if (f != stdout) {
            std::fclose(f);
        }
    }
};
using file_handle = std::unique_ptr<std::FILE, closer>;

exit_code tell_output_failure(const points_options& options, int reason) {
    // Whoever closes the pipe has seen enough.
    if (!options.output.empty() || reason != EPIPE) {
        std::fprintf(stderr, "rxp2k7: cannot write %s: %s\n",
                     options.output.empty() ? "to standard output"
                                            : ("\"" + options.output + "\"").c_str(),
                     std::generic_category().message(reason).c_str());
    }
    return exit_code::output_failed;
}

/// Refuses an output that would take the place of a file that is read.
void check_output(const points_options& options) {
    input_registry read;
    read.add(options.input);
    if (options.output.empty() || read.find(options.output) == nullptr) {
        return;
    }
    const std::string& file = read.find(options.output)->file;
    throw CLI::ValidationError("-o", "\"" + options.output + "\" is " +
                                         (file == options.input ? "" : "part of ") + "the input");
}

exit_code run(const points_options& options) {
    if (const std::string reason = reason_unreadable(options.input); !reason.empty()) {
        std::fprintf(stderr, "rxp2k7: %s\n", reason.c_str());
        return exit_code::input_unreadable;
    }
    check_output(options);
    const file_handle file(options.output.empty() ? stdout
                                                  : std::fopen(options.output.c_str(), "wb"));
    if (!file) {
        return tell_output_failure(options, errno);
    }
    const auto text = std::make_unique<file_text>(file.get());
    std::ostream rows(text.get());
    scanlib::pointcloud cloud(options.external_time);
    cloud.set_text_sink(&rows);
    recording_walk walk;
    cloud.set_loss_log(&walk.losses);
    try {
        walk_recording(
            options.input, walk,
            [&](const std::uint32_t* begin, const std::uint32_t* end) {
                cloud.dispatch(begin, end);
                return rows.good();
            },
            [](const std::uint32_t*, const std::uint32_t*) { return false; });
    } catch (const std::exception& e) {
        std::fprintf(stderr, "rxp2k7: cannot read \"%s\": %s\n", options.input.c_str(), e.what());
        return exit_code::input_unreadable;
    }
    if (!text->finish()) {
        return tell_output_failure(options, text->reason());
    }
    return tell_damage(options.input, walk) ? exit_code::input_damaged : exit_code::good;
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
    command->add_option("-o,--output", options->output, "file to write to, not standard output");
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
