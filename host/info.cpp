#include "command_result.hpp"
#include "commands.hpp"
#include "help.hpp"
#include "input_file.hpp"
#include "json.hpp"
#include "recording_files.hpp"
#include "recording_walk.hpp"
#include "survey.hpp"
#include "terminal.hpp"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

namespace host {

namespace {

struct info_options {
    std::string input;
    bool json = false;
    bool meta = false;
};

void read_all(const std::string& input, survey& found, recording_walk& walk) {
    walk_recording(
        input, walk,
        [&](const std::uint32_t* begin, const std::uint32_t* end) {
            found.take(begin, end);
            return true;
        },
        [&](const std::uint32_t* begin, const std::uint32_t* end) {
            found.count(begin, end);
            return true;
        });
}

void print_span(const char* name, const time_span& span) {
    if (span.first == span.first) {
        std::printf("  %-9s %.6f s to %.6f s (%.3f s)\n", name, span.first, span.last,
                    span.last - span.first);
    } else {
        std::printf("  %-9s none\n", name);
    }
}

void print_text(const info_options& options, const survey& found, const recording_walk& r) {
    std::printf("%s\n", options.input.c_str());
    print_files(r.files);
    std::printf(
        "  type      %s\n  serial    %s\n  build     %s\n  bytes     %llu\n  shots     %llu\n",
        found.instrument_type().c_str(), found.instrument_serial().c_str(),
        found.instrument_build().c_str(), static_cast<unsigned long long>(r.bytes),
        static_cast<unsigned long long>(found.shots()));
    std::printf("\nTime of the shots\n");
    print_span("internal", found.internal_time());
    print_span("PPS", found.pps_time());
    std::printf("\nPackets: %llu\n", static_cast<unsigned long long>(found.packets()));
    for (const kind_count& k : found.kinds()) {
        std::printf(
            "  %-36s %12llu\n",
            (k.name + " (" + std::to_string(k.id.id) + "." + std::to_string(k.id.version) + ")")
                .c_str(),
            static_cast<unsigned long long>(k.count));
    }
    if (found.further_unknown() != 0) {
        std::printf("  %-36s %12llu\n", "of further unknown kinds",
                    static_cast<unsigned long long>(found.further_unknown()));
    }
    const std::string metadata = found.metadata(true);
    std::printf("\nMetadata\n%s\n",
                metadata.empty() ? "none: the measurement does not start" : metadata.c_str());
}

std::string span_json(const time_span& span) {
    return span.first == span.first
               ? json_object().number("first", span.first).number("last", span.last).str()
               : "null";
}

std::string losses_json(const recording_walk& r) {
    json_array all;
    for (std::size_t i = 0; i < scanlib::loss_log::kinds; ++i) {
        const auto kind = static_cast<scanlib::loss>(i);
        if (r.losses.count(kind) != 0) {
            const auto& about = scanlib::info_of(kind);
            all.add(json_object()
                        .text("name", about.name)
                        .number("count", r.losses.count(kind))
                        .number("first_offset", r.losses.first_offset(kind))
                        .text("sentence", about.sentence)
                        .str());
        }
    }
    return all.str();
}

void print_json(const info_options& options, const survey& found, const recording_walk& r,
                exit_code code) {
    json_array kinds;
    for (const kind_count& k : found.kinds()) {
        kinds.add(json_object()
                      .text("name", k.name)
                      .number("id", k.id.id)
                      .number("version", k.id.version)
                      .number("count", k.count)
                      .str());
    }
    const std::string metadata = found.metadata(false);
    command_result result;
    result.input = options.input;
    result.text = r.error;
    result.code = code;
    add_files(result.found, r.files)
        .text("type", found.instrument_type())
        .text("serial", found.instrument_serial())
        .text("build", found.instrument_build())
        .number("bytes", r.bytes)
        .number("shots", found.shots())
        .raw("time", json_object()
                         .raw("internal", span_json(found.internal_time()))
                         .raw("pps", span_json(found.pps_time()))
                         .str())
        .number("packet_count", found.packets())
        .raw("packets", kinds.str())
        .number("further_unknown", found.further_unknown())
        .raw("losses", losses_json(r))
        .raw("error", r.error.empty()
                          ? "null"
                          : json_object().text("text", r.error).number("offset", r.offset).str())
        .raw("metadata", metadata.empty() ? "null" : metadata);
    std::printf("%s\n", json_of(result).str().c_str());
}

exit_code refuse(const info_options& options, const std::string& reason) {
    command_result result;
    result.input = options.input;
    result.text = reason;
    result.code = exit_code::input_unreadable;
    return tell(result, options.json);
}

exit_code run(const info_options& options) {
    if (const std::string reason = reason_unreadable(options.input); !reason.empty()) {
        return refuse(options, reason);
    }
    survey found;
    recording_walk r;
    try {
        read_all(options.input, found, r);
    } catch (const std::exception& e) {
        return refuse(options, "cannot read \"" + options.input + "\": " + e.what());
    }
    const std::string metadata = options.meta ? found.metadata(true) : std::string();
    const bool told_too_little = options.meta && metadata.empty();
    const exit_code code =
        is_damaged(r) || told_too_little ? exit_code::input_damaged : exit_code::good;
    if (options.meta) {
        std::fputs(metadata.c_str(), stdout);
    } else if (options.json) {
        print_json(options, found, r, code);
    } else {
        print_text(options, found, r);
    }
    const exit_code printed = flushed(code);
    if (printed == exit_code::output_failed) {
        return printed;
    }
    tell_damage(options.input, r);
    if (told_too_little) {
        complain("\"%s\" has no metadata: the measurement does not start", options.input.c_str());
    }
    return code;
}

} // namespace

void add_info(CLI::App& app, exit_code& result) {
    CLI::App* command = app.add_subcommand(
        "info", "Tell what a recording holds: instrument, metadata, packets by kind, time span.");
    auto options = std::make_shared<info_options>();
    command->add_option("INPUT", options->input, "recording (*.rxp)")->required();
    CLI::Option* json = command->add_flag("--json", options->json, json_help);
    command->add_flag("--meta", options->meta, "print the metadata alone, as JSON")->excludes(json);
    command->footer(examples_text({{"What a recording holds", "rxp2k7 info scan.rxp"},
                                   {"The parameters alone, for another program",
                                    "rxp2k7 info --meta scan.rxp > parameters.json"}}));
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
