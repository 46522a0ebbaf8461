#include "commands.hpp"
#include "dump_lines.hpp"
#include "help.hpp"
#include "input_file.hpp"
#include "numbers.hpp"
#include "recording_walk.hpp"
#include "terminal.hpp"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace host {

namespace {

struct dump_options {
    std::string input;
    std::vector<std::string> kinds;
    std::vector<std::string> tags;
    bool numeric = false;
    bool lossless = false;
    std::uint64_t limit = std::numeric_limits<std::uint64_t>::max();
};

/// Writes lines to standard output, in large pieces unless somebody waits for each.
class line_output {
  public:
    explicit line_output(bool at_once) : least_(at_once ? 1 : 65536) {}

    /// Where the next line is appended.
    std::string& text() noexcept { return text_; }

    /// Writes what has come together, if it is enough. Returns whether the output still takes it.
    bool pass_on() { return text_.size() < least_ || drain(); }

    /// Writes the rest. Returns 0, or the reason why not all was written.
    int finish() {
        drain();
        return reason_;
    }

  private:
    bool drain() {
        if (reason_ == 0 && (std::fwrite(text_.data(), 1, text_.size(), stdout) != text_.size() ||
                             std::fflush(stdout) != 0)) {
            reason_ = errno;
        }
        text_.clear();
        return reason_ == 0;
    }

    std::size_t least_;
    std::string text_;
    int reason_ = 0;
};

scanlib::packet_mask selection_of(const dump_options& options) {
    scanlib::packet_mask selection;
    for (const std::string& name : options.kinds) {
        const auto id = scanlib::id_of(name);
        if (!id) {
            throw CLI::ValidationError("--kinds", "\"" + name + "\" is no kind of packet");
        }
        selection.set(scanlib::index_of(*id));
    }
    for (const std::string& tag : options.tags) {
        const scanlib::packet_mask& kinds = scanlib::mask_of(tag);
        if (kinds.count() == 0 && tag != "none") {
            throw CLI::ValidationError("--tags", "\"" + tag + "\" is no tag of packets");
        }
        selection |= kinds;
    }
    return options.kinds.empty() && options.tags.empty() ? scanlib::mask_of("all") : selection;
}

dump_form form_of(const dump_options& options) {
    return {selection_of(options),
            options.numeric ? scanlib::pair_form::numeric : scanlib::pair_form::named,
            options.lossless};
}

exit_code run(const dump_options& options) {
    const dump_form form = form_of(options);
    if (const std::string reason = reason_unreadable(options.input); !reason.empty()) {
        complain("%s", reason.c_str());
        return exit_code::input_unreadable;
    }
    recording_walk walk;
    dump_lines lines(form, walk.losses);
    line_output output(is_live_stream(options.input));
    std::uint64_t left = options.limit;
    const auto take = [&](const std::uint32_t* begin, const std::uint32_t* end) {
        if (left != 0 && lines.take(begin, end, output.text())) {
            --left;
            return output.pass_on() && left != 0;
        }
        return left != 0;
    };
    try {
        walk_recording(options.input, walk, take, take);
    } catch (const std::exception& e) {
        complain("cannot read \"%s\": %s", options.input.c_str(), e.what());
        return exit_code::input_unreadable;
    }
    if (const int reason = output.finish(); reason != 0) {
        // Whoever closes the pipe has seen enough.
        if (reason != EPIPE) {
            complain("cannot write to standard output: %s",
                     std::generic_category().message(reason).c_str());
        }
        return exit_code::output_failed;
    }
    return tell_damage(options.input, walk) ? exit_code::input_damaged : exit_code::good;
}

} // namespace

void add_dump(CLI::App& app, exit_code& result) {
    CLI::App* command =
        app.add_subcommand("dump", "Print the packets of a recording, one line of text each.");
    auto options = std::make_shared<dump_options>();
    command->add_option("INPUT", options->input, "recording (*.rxp), or an rdtp: or rddp: URI")
        ->required();
    CLI::Option* kinds =
        command
            ->add_option("--kinds", options->kinds,
                         "print the packets of these kinds alone, comma-separated, by the kind "
                         "that the recording names; \"unknown\" for what the catalogue lacks")
            ->delimiter(',')
            ->allow_extra_args(false)
            ->type_name("NAMES");
    command
        ->add_option("--tags", options->tags,
                     "print the kinds that bear one of these tags alone, comma-separated")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("TAGS")
        ->excludes(kinds);
    command->add_flag("--numeric", options->numeric,
                      "numbers for the names of packets, and no brackets");
    command->add_flag("--lossless", options->lossless,
                      "print packets that the fields of their kind do not cover as words, so that "
                      "assemble gives the same packets again");
    add_whole(*command, "--limit", options->limit, "print so many lines at most")->default_str("");
    command->footer(examples_text(
        {{"Who recorded it, and how", "rxp2k7 dump scan.rxp --tags instrument"},
         {"The first shots", "rxp2k7 dump scan.rxp --kinds laser_shot_2angles --limit 20"}}));
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
