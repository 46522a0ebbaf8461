#include "commands.hpp"
#include "input_file.hpp"
#include "json.hpp"
#include "verify_file.hpp"

#include <CLI/CLI.hpp>
#include <array>
#include <cinttypes>
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

void print(const verification& v) {
    if (!v.text.empty()) {
        return;
    }
    for (const k7_finding& f : v.findings.kept()) {
        const std::string row = f.row ? "row " + std::to_string(*f.row) + ": " : "";
        std::printf("%s: %s: %s%s\n", v.input.c_str(), printable(f.path).c_str(), row.c_str(),
                    printable(f.text).c_str());
    }
    const std::uint64_t untold = v.findings.count() - v.findings.kept().size();
    if (untold != 0) {
        std::printf("%s: %" PRIu64 " more\n", v.input.c_str(), untold);
    }
    const std::string verdict =
        v.findings.count() == 0 ? "good" : std::to_string(v.findings.count()) + " found wrong";
    std::printf("%s: %s; %" PRIu64 " shots, %" PRIu64 " echoes, %" PRIu64 " waveforms, %" PRIu64
                " fragments\n",
                v.input.c_str(), verdict.c_str(), v.counts.shots, v.counts.echoes,
                v.counts.waveforms, v.counts.fragments);
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

exit_code run(const verify_options& options) {
    json_array all;
    exit_code first = exit_code::good;
    bool all_good = true;
    for (const std::string& input : options.inputs) {
        const verification v = verify_one(input);
        if (!v.text.empty()) {
            std::fprintf(stderr, "rxp2k7: %s\n", v.text.c_str());
        }
        if (options.json) {
            all.add(json_of(v));
        } else {
            print(v);
        }
        first = v.code;
        all_good = all_good && v.code == exit_code::good;
    }
    if (options.json) {
        std::fputs((json_object().raw("results", all.str()).str() + "\n").c_str(), stdout);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fputs("rxp2k7: cannot write to standard output\n", stderr);
        return exit_code::output_failed;
    }
    return options.inputs.size() == 1 ? first
           : all_good                 ? exit_code::good
                                      : exit_code::some_inputs_failed;
}

} // namespace

void add_verify(CLI::App& app, exit_code& result) {
    CLI::App* command = app.add_subcommand(
        "verify", "Hold K7 files against the format; list what is wrong, a line each.");
    auto options = std::make_shared<verify_options>();
    command->add_option("FILE", options->inputs, "K7 files, or their .part")->required();
    command->add_flag("--json", options->json, "print one JSON object instead of the lines");
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
