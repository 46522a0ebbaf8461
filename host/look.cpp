#include "bundle_interface/k7_reader.hpp"
#include "bundle_interface/whole_file.hpp"
#include "command_result.hpp"
#include "commands.hpp"
#include "contained_run.hpp"
#include "help.hpp"
#include "input_file.hpp"
#include "json.hpp"
#include "look/page.hpp"
#include "recording_output.hpp"
#include "terminal.hpp"

#include <CLI/CLI.hpp>
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>

namespace host {

namespace {

struct look_options {
    std::string input;
    std::string png;
    bool json = false;
};

std::string json_of(const value_bounds& bounds) {
    json_array ends;
    ends.add(json_number(bounds.min));
    ends.add(json_number(bounds.max));
    return bounds.empty() ? "null" : ends.str();
}

template<class Counts>
std::string json_of_counts(const Counts& counts) {
    json_array all;
    for (const std::uint64_t count : counts) {
        all.add(std::to_string(count));
    }
    return all.str();
}

std::string json_of(const histogram& h) {
    return json_object()
        .raw("bounds", json_of(h.bounds))
        .raw("counts", json_of_counts(h.counts))
        .str();
}

std::string json_of(const raster& r) {
    return json_object()
        .raw("x", json_of(r.x))
        .raw("y", json_of(r.y))
        .number("columns", r.columns)
        .number("rows", r.rows)
        .number("filled", r.filled())
        .str();
}

std::string json_of(const scan_waveform& w) {
    json_array samples;
    for (const double sample : w.samples) {
        samples.add(json_number(sample));
    }
    return json_object()
        .number("channel", w.channel)
        .number("time", w.time)
        .number("start", w.start)
        .truth("compressed", w.compressed)
        .raw("samples", samples.str())
        .str();
}

/// Where the picture goes.
std::string output_of(const look_options& options) {
    return options.png.empty() ? options.input + ".png" : options.png;
}

std::string json_of(const look_options& options, const scan_view& view, exit_code code) {
    json_array waveforms;
    for (const scan_waveform& w : view.waveform) {
        waveforms.add(json_of(w));
    }
    return json_object()
        .text("input", options.input)
        .text("output", output_of(options))
        .number("exit_code", static_cast<int>(code))
        .text("text", view.failure)
        .truth("complete", view.complete)
        .number("shots", view.shots)
        .number("echoes", view.echoes)
        .number("echoes_without_shot", view.unclaimed)
        .number("waveforms", view.waveforms)
        .number("lines", view.lines)
        .raw("time", json_of(view.time))
        .raw("ranges", json_of(view.ranges))
        .raw("amplitudes", json_of(view.amplitudes))
        .raw("echoes_per_shot", json_of_counts(view.echoes_per_shot))
        .raw("range_image", json_of(view.range_image))
        .raw("intensity_image", json_of(view.intensity_image))
        .text("intensity", view.intensity_is_reflectance ? "reflectance" : "amplitude")
        .raw("top_view", json_of(view.top_view))
        .raw("waveform", waveforms.str())
        .str();
}

exit_code refuse(const std::string& text, exit_code code) {
    complain("%s", text.c_str());
    return code;
}

/// Where nothing is drawn.
exit_code refuse(const look_options& options, const std::string& text, exit_code code,
                 std::string& told) {
    if (options.json) {
        command_result result;
        result.input = options.input;
        result.output = output_of(options);
        result.text = text;
        result.code = code;
        told = json_of(result).str() + "\n";
    }
    return refuse(text, code);
}

/// What is printed of a picture that is there.
std::string told_of(const look_options& options, const scan_view& view, exit_code code) {
    if (view.unclaimed != 0) {
        complain("%s: %" PRIu64 " echoes have no shot of their time", options.input.c_str(),
                 view.unclaimed);
    }
    return (options.json ? json_of(options, view, code)
                         : options.input + " -> " + output_of(options)) +
           "\n";
}

exit_code look_at(const look_options& options, std::string& told) {
    const std::string unreadable = reason_unreadable(options.input);
    if (!unreadable.empty()) {
        return refuse(options, unreadable, exit_code::input_unreadable, told);
    }
    const std::string output = output_of(options);
    if (recording_output::replaces(output, options.input)) {
        return refuse(options, "the picture would replace \"" + options.input + "\"",
                      exit_code::usage, told);
    }
    scan_view view;
    try {
        view = view_scan(options.input);
    } catch (const Skein::K7ReadError& e) {
        return refuse(options, e.what(), exit_code::input_unreadable, told);
    }
    const std::string failed = Holdfast::writeWholeFile(output, draw_scan_page(view));
    if (!failed.empty()) {
        return refuse(options, "cannot write \"" + output + "\": " + failed,
                      exit_code::output_failed, told);
    }
    const exit_code code =
        view.failure.empty() ? exit_code::good : refuse(view.failure, exit_code::input_damaged);
    told = told_of(options, view, code);
    return code;
}

exit_code run(const look_options& options) {
    const contained_result result = run_contained(
        most_seconds(options.input), [&](std::string& told) { return look_at(options, told); });
    std::string told = result.told;
    if (!result.failure.empty()) {
        refuse(options, "cannot read \"" + options.input + "\": " + result.failure, result.code,
               told);
    }
    std::fputs(told.c_str(), stdout);
    return flushed(result.code);
}

} // namespace

void add_look(CLI::App& app, exit_code& result) {
    CLI::App* command =
        app.add_subcommand("look", "Draw one page that shows the scan of a K7 file, as PNG.");
    auto options = std::make_shared<look_options>();
    command->add_option("FILE", options->input, "K7 file, or its .part")->required();
    command->add_option("--png", options->png, "picture to write (FILE.png)");
    command->add_flag("--json", options->json, json_help);
    command->footer(examples_text({{"The picture beside the file", "rxp2k7 look out/scan.k7"},
                                   {"Elsewhere, and the numbers behind it",
                                    "rxp2k7 look out/scan.k7 --png scan.png --json"}}));
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
