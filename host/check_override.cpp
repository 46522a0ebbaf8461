#include "command_result.hpp"
#include "commands.hpp"
#include "help.hpp"
#include "input_file.hpp"
#include "override_report.hpp"
#include "override_run.hpp"
#include "terminal.hpp"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

namespace host {

namespace {

struct check_options {
    std::string input;
    std::string override_name;
    bool json = false;
};

/// Tells a failure, and all of the result where it is JSON.
void tell_failure(const check_options& options, const override_check& check) {
    complain("%s", check.failure.c_str());
    if (options.json) {
        std::fputs(json_of(check).c_str(), stdout);
    }
}

exit_code code_of(const override_check& check) {
    const override_findings& f = *check.findings;
    const bool applies =
        check.failure.empty() && !f.regions().empty() && !f.any_failed() && !f.any_outstanding();
    return applies ? exit_code::good : exit_code::input_damaged;
}

exit_code check(const check_options& options) {
    override_check result;
    result.input = options.input;
    result.override_name = options.override_name;
    result.failure = reason_unreadable(options.input);
    std::unique_ptr<override_file> file;
    if (result.failure.empty()) {
        file = read_override_file(options.override_name, result.failure);
    }
    if (!file) {
        result.code = exit_code::input_unreadable;
        tell_failure(options, result);
        return result.code;
    }
    override_findings findings(file->entries, true);
    result.entries = &file->entries;
    result.findings = &findings;
    result.failure =
        read_overridden(options.input, *file, findings, [](const char*, std::uint64_t) {});
    result.code = code_of(result);
    if (!result.failure.empty()) {
        complain("%s", result.failure.c_str());
    }
    if (options.json) {
        std::fputs(json_of(result).c_str(), stdout);
    } else {
        print_check(result);
    }
    return result.code;
}

exit_code run(const check_options& options) {
    if (is_live_stream(options.input)) {
        throw CLI::ValidationError("check-override", "INPUT must be a recording");
    }
    return flushed(check(options));
}

} // namespace

void add_check_override(CLI::App& app, exit_code& result) {
    CLI::App* command = app.add_subcommand(
        "check-override",
        "Tell what an override text changes in a recording, entry by entry, or why it does not.");
    auto options = std::make_shared<check_options>();
    command->add_option("INPUT", options->input, "recording (*.rxp)")->required();
    command->add_option("PXP", options->override_name, "override text (*.pxp)")->required();
    command->add_flag("--json", options->json, json_help);
    command->footer(
        examples_text({{"Why a text has no effect", "rxp2k7 check-override scan.rxp scan.pxp"}}));
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
