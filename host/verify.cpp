#include "command_result.hpp"
#include "commands.hpp"
#include "contained_run.hpp"
#include "help.hpp"
#include "input_file.hpp"
#include "json.hpp"
#include "terminal.hpp"
#include "verify_file.hpp"

#include <CLI/CLI.hpp>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace host {

namespace {

struct verify_options {
    std::vector<std::string> inputs;
    bool json = false;
};

struct verification {
    std::string input;
    std::string text; ///< why it cannot be read
    k7_findings findings;
    k7_counts counts;
    exit_code code = exit_code::good;
};

verification verify_one(const std::string& input) {
    verification result;
    result.input = input;
    result.text = reason_unreadable(input);
    if (result.text.empty()) {
        try {
            verify_k7_file(input, result.findings, result.counts);
        } catch (const Skein::K7ReadError& e) {
            result.text = "cannot read \"" + input + "\": " + e.cause();
        }
    }
    result.code = !result.text.empty()           ? exit_code::input_unreadable
                  : result.findings.count() != 0 ? exit_code::input_damaged
                                                 : exit_code::good;
    return result;
}

/// Text of the file for a terminal: other bytes than those of plain text as numbers, and cut where
/// it is too long.
std::string printable(const std::string& text) {
    constexpr std::size_t longest = 400;
    std::string shown;
    for (std::size_t i = 0; i < text.size() && i < longest; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x20 || byte > 0x7E) {
            std::array<char, 8> number{};
            std::snprintf(number.data(), number.size(), "\\x%02X", byte);
            shown += number.data();
        } else {
            shown += text[i];
        }
    }
    return text.size() > longest ? shown + "..." : shown;
}

/// The lines of a file that can be read.
std::string lines_of(const verification& v) {
    std::string lines;
    const auto add = [&](const std::string& line) { lines += v.input + ": " + line + "\n"; };
    for (const k7_finding& f : v.findings.kept()) {
        const std::string row = f.row ? "row " + std::to_string(*f.row) + ": " : "";
        add(printable(f.path) + ": " + row + printable(f.text));
    }
    const std::uint64_t untold = v.findings.count() - v.findings.kept().size();
    if (untold != 0) {
        add(std::to_string(untold) + " more");
    }
    add((v.findings.count() == 0 ? "good" : std::to_string(v.findings.count()) + " found wrong") +
        "; " + std::to_string(v.counts.shots) + " shots, " + std::to_string(v.counts.echoes) +
        " echoes, " + std::to_string(v.counts.waveforms) + " waveforms, " +
        std::to_string(v.counts.fragments) + " fragments");
    return lines;
}

std::string json_of(const verification& v) {
    json_array findings;
    for (const k7_finding& f : v.findings.kept()) {
        findings.add(json_object()
                         .text("path", f.path)
                         .raw("row", f.row ? std::to_string(*f.row) : "null")
                         .text("text", f.text)
                         .str());
    }
    return json_object()
        .text("input", v.input)
        .text("text", v.text)
        .number("exit_code", static_cast<int>(v.code))
        .number("shots", v.counts.shots)
        .number("echoes", v.counts.echoes)
        .number("waveforms", v.counts.waveforms)
        .number("fragments", v.counts.fragments)
        .number("finding_count", v.findings.count())
        .raw("findings", findings.str())
        .str();
}

/// What is printed of one file; what cannot be read is told on standard error.
std::string told_of(const verification& v, bool json) {
    if (!v.text.empty()) {
        complain("%s", v.text.c_str());
    }
    return json ? json_of(v) : v.text.empty() ? lines_of(v) : std::string();
}

contained_result verify_contained(const std::string& input, bool json) {
    contained_result result = run_contained(most_seconds(input), [&](std::string& told) {
        const verification v = verify_one(input);
        told = told_of(v, json);
        return v.code;
    });
    if (!result.failure.empty()) {
        verification v;
        v.input = input;
        v.text = "cannot read \"" + input + "\": " + result.failure;
        v.code = result.code;
        result.told = told_of(v, json);
    }
    return result;
}

exit_code run(const verify_options& options) {
    json_array all;
    exit_code first = exit_code::good;
    bool all_good = true;
    for (const std::string& input : options.inputs) {
        const contained_result result = verify_contained(input, options.json);
        if (options.json) {
            all.add(result.told);
        } else {
            std::fputs(result.told.c_str(), stdout);
        }
        first = result.code;
        all_good = all_good && result.code == exit_code::good;
    }
    if (options.json) {
        std::fputs((json_object().raw("results", all.str()).str() + "\n").c_str(), stdout);
    }
    return flushed(options.inputs.size() == 1 ? first
                   : all_good                 ? exit_code::good
                                              : exit_code::some_inputs_failed);
}

} // namespace

void add_verify(CLI::App& app, exit_code& result) {
    CLI::App* command = app.add_subcommand(
        "verify", "Hold K7 files against the format; list what is wrong, a line each.");
    auto options = std::make_shared<verify_options>();
    command->add_option("FILE", options->inputs, "K7 files, or their .part")->required();
    command->add_flag("--json", options->json, json_help);
    command->footer(examples_text({{"All files of a folder", "rxp2k7 verify out/*.k7"},
                                   {"What is wrong, for another program",
                                    "rxp2k7 verify out/scan.k7 --json > findings.json"}}));
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
