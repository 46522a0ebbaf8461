#include "command_result.hpp"
#include "commands.hpp"
#include "help.hpp"
#include "input_file.hpp"
#include "override_report.hpp"
#include "override_run.hpp"
#include "recording_output.hpp"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace host {

namespace {

struct override_options {
    std::string input;
    std::string override_name;
    std::string output;
    bool json = false;
};

/// What is read must not be overwritten.
void check_output(const override_options& options) {
    std::vector<std::string> read = files_of_input(options.input);
    read.push_back(options.override_name);
    for (const std::string& name : read) {
        if (recording_output::replaces(options.output, name)) {
            throw CLI::ValidationError("override", "the output would overwrite \"" + name + "\"");
        }
    }
}

void write_overridden(const override_options& options, const override_file& file,
                      command_result& result) {
    override_findings findings(file.entries, false);
    recording_output output(options.output);
    const std::string failure =
        read_overridden(options.input, file, findings,
                        [&](const char* data, std::uint64_t n) { output.write(data, n); });
    if (!failure.empty()) {
        result.code = exit_code::input_unreadable;
        result.text = failure + "; \"" + options.output + "\" is not written";
        return;
    }
    output.publish();
    warn_of_findings({options.input, options.override_name, &file.entries, &findings, ""});
    const bool applied = !findings.regions().empty() && !findings.any_outstanding();
    result.code = applied ? exit_code::good : exit_code::input_damaged;
    result.found.truth("applied", applied).number("bytes_out", output.bytes_written());
    if (!options.json) {
        std::printf("%s\n  bytes      %llu\n", options.output.c_str(),
                    static_cast<unsigned long long>(output.bytes_written()));
    }
}

exit_code run(const override_options& options) {
    if (is_live_stream(options.input)) {
        throw CLI::ValidationError("override", "INPUT must be a recording");
    }
    check_output(options);
    command_result result;
    result.input = options.input;
    result.output = options.output;
    result.text = reason_unreadable(options.input);
    std::unique_ptr<override_file> file;
    if (result.text.empty()) {
        file = read_override_file(options.override_name, result.text);
    }
    try {
        if (file) {
            write_overridden(options, *file, result);
        } else {
            result.code = exit_code::input_unreadable;
        }
    } catch (const simulator::output_error& e) {
        result.code = exit_code::output_failed;
        result.text = e.what();
    }
    return tell(result, options.json);
}

} // namespace

void add_override(CLI::App& app, exit_code& result) {
    CLI::App* command = app.add_subcommand(
        "override", "Write a recording with its header corrected as an override text says, with "
                    "its prefixes and continuations in one file.");
    auto options = std::make_shared<override_options>();
    command->add_option("INPUT", options->input, "recording (*.rxp)")->required();
    command->add_option("PXP", options->override_name, "override text (*.pxp)")->required();
    command->add_option("OUTPUT", options->output, "recording to write")->required();
    command->add_flag("--json", options->json, json_help);
    command->footer(examples_text({{"The corrected recording in one file",
                                    "rxp2k7 override scan.rxp scan.pxp corrected.rxp"}}));
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
