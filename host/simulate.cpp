#include "command_result.hpp"
#include "commands.hpp"
#include "help.hpp"
#include "numbers.hpp"
#include "progress.hpp"
#include "recording_output.hpp"
#include "simulator/recorder.hpp"

#include "scanlib/rxpmarker.hpp"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace host {

namespace {

struct simulate_options {
    std::string output;
    simulator::scan_settings scan;
    std::string form;
    std::string waveforms; ///< empty for none
    std::string optics = "mirrorwheel";
    std::vector<std::string> calibration;
    std::string zones_by = "gates";
    bool rate_given = false;
    bool json = false;
};

template<class List>
std::set<std::string> names_of(const List& list) {
    std::set<std::string> names;
    for (const auto& entry : list) {
        names.emplace(entry.name);
    }
    return names;
}

/// Puts the words of the command line into the settings, with what they imply.
void settle(simulate_options& options) {
    simulator::scan_settings& scan = options.scan;
    if (!options.waveforms.empty()) {
        scan.waveforms = simulator::choice_of(simulator::waveform_forms, options.waveforms);
    }
    scan.form = options.form.empty() ? simulator::plainest_form(scan)
                                     : simulator::choice_of(simulator::packet_forms, options.form);
    scan.optics = simulator::choice_of(simulator::mechanics_models, options.optics);
    for (const std::string& name : options.calibration) {
        scan.calibration.insert(simulator::choice_of(simulator::corrections, name));
    }
    scan.zones_by = options.zones_by == "number" ? simulator::zone_telling::number
                                                 : simulator::zone_telling::gates;
    if (scan.zones != 0 && !options.rate_given) {
        scan.pulse_rate = simulator::pulse_rate_for(scan.zones);
    }
}

simulator::recording_summary write_recording(const simulate_options& options,
                                             recording_output& output) {
    const auto encoder = std::make_shared<scanlib::encoder_rxpmarker>(
        output.connection(), scanlib::encoder_capacity, scanlib::encoder_headroom, true);
    scanlib::packet_emitter emitter(encoder);
    simulator::recorder recorder(options.scan, emitter);
    progress_line progress(std::filesystem::path(options.output).filename().string(),
                           {"shots", options.scan.shots});
    auto summary = recorder.run([&](std::uint64_t shots) { progress.show(shots); });
    output.publish();
    return summary;
}

json_object json_of(const simulator::recording_summary& done, std::uint64_t bytes, double seconds) {
    return json_object()
        .number("shots", done.shots)
        .number("lines", done.lines)
        .number("scan_seconds", done.seconds)
        .number("echoes", done.echoes)
        .number("artefacts", done.artefacts)
        .number("waveforms", done.waveforms)
        .number("packets", done.packets)
        .number("bytes_out", bytes)
        .number("seconds", seconds);
}

void print(const simulate_options& options, const simulator::recording_summary& done,
           std::uint64_t bytes, double seconds) {
    std::printf("%s\n"
                "  shots      %llu in %llu lines, %.3f s of scanning\n"
                "  echoes     %llu, and %llu artefacts\n"
                "  waveforms  %llu\n"
                "  packets    %llu\n"
                "  bytes      %llu\n"
                "  written in %.2f s, %.2f million shots/s\n",
                options.output.c_str(), static_cast<unsigned long long>(done.shots),
                static_cast<unsigned long long>(done.lines), done.seconds,
                static_cast<unsigned long long>(done.echoes),
                static_cast<unsigned long long>(done.artefacts),
                static_cast<unsigned long long>(done.waveforms),
                static_cast<unsigned long long>(done.packets),
                static_cast<unsigned long long>(bytes), seconds,
                static_cast<double>(done.shots) / seconds / 1e6);
}

exit_code run(simulate_options& options) {
    settle(options);
    try {
        // Settings that cannot be scanned are told before the output is touched.
        simulator::check(options.scan);
    } catch (const std::invalid_argument& e) {
        throw CLI::ValidationError("simulate", e.what());
    }
    const auto start = std::chrono::steady_clock::now();
    command_result result;
    result.output = options.output;
    try {
        recording_output output(options.output);
        const auto done = write_recording(options, output);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        result.found = json_of(done, output.bytes_written(), took.count());
        if (!options.json) {
            print(options, done, output.bytes_written(), took.count());
        }
    } catch (const simulator::output_error& e) {
        result.code = exit_code::output_failed;
        result.text = e.what();
    }
    return tell(result, options.json);
}

void add_forms(CLI::App& command, simulate_options& options) {
    command
        .add_option(
            "--form", options.form,
            "how shots and echoes are packed: a packet for each, with the plain or the "
            "high-resolution time (plain, hr); keys and differences (packed, packed-rad with "
            "the background radiation, packed-hr); or one stream of both (shot-echo, "
            "shot-echo-blocks). Without it the plainest that goes with --mta and --waveforms")
        ->check(CLI::IsMember(names_of(simulator::packet_forms)));
    command
        .add_option(
            "--mechanics", options.optics,
            "the scanner's optics: how mirrors or lenses turn the encoders' counts into a beam")
        ->check(CLI::IsMember(names_of(simulator::mechanics_models)))
        ->capture_default_str();
    command
        .add_option("--calibration", options.calibration,
                    "faults of the receiver, comma-separated, each with the packets that correct "
                    "it, so that the conversion gives the true values again")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::IsMember(names_of(simulator::corrections)));
}

void add_zones(CLI::App& command, simulate_options& options) {
    CLI::Option* zones = add_whole<std::uint32_t>(
        command, "--mta", options.scan.zones,
        "fire again before far echoes are back: line by line, measure one of "
        "so many zones of range (1 to 5). 0 for a range within one zone",
        0, 5);
    command
        .add_option("--mta-by", options.zones_by,
                    "how the stream tells the zone of a line: by gates of range, or by its number")
        ->needs(zones)
        ->check(CLI::IsMember({"gates", "number"}))
        ->capture_default_str();
}

void add_waveforms(CLI::App& command, simulate_options& options) {
    command
        .add_option("--waveforms", options.waveforms,
                    "sample what the receiver sees of each shot in three channels, and write it "
                    "as sample blocks of a form. Give OUTPUT ahead of it if you leave out the form")
        ->expected(0, 1)
        ->default_str("channel")
        ->check(CLI::IsMember(names_of(simulator::waveform_forms)));
}

} // namespace

void add_simulate(CLI::App& app, exit_code& result) {
    CLI::App* command = app.add_subcommand(
        "simulate", "Write the recording of a made-up scene, for trying the program without an "
                    "instrument: ground, a lake, houses and trees, seen by a laser scanner.");
    auto options = std::make_shared<simulate_options>();
    simulator::scan_settings& scan = options->scan;
    command->add_option("OUTPUT", options->output, "file to write, usually *.rxp")->required();
    add_whole(*command, "--shots", scan.shots, "laser shots to record");
    CLI::Option* rate =
        add_real(*command, "--rate", scan.pulse_rate,
                 "laser pulses a second (300000; with --mta what it needs)", 1000, 3e6);
    add_real(*command, "--lines-per-second", scan.lines_per_second, "scan lines a second (100)",
             0.1, 1000);
    add_real(*command, "--turn-time", scan.turn_time,
             "seconds for a full turn of the head (one turn in the recording)", 0.1, 1e6);
    add_whole<std::uint32_t>(*command, "--start-time", scan.start_time,
                             "second of the day at which the recording starts", 2, 86399);
    add_whole(*command, "--seed", scan.seed,
              "the same seed and options give the same file, byte for byte");
    add_forms(*command, *options);
    add_zones(*command, *options);
    add_waveforms(*command, *options);
    command->add_flag("--json", options->json, json_help);
    command->footer(
        examples_text({{"A small recording with waveforms, in the densest packing",
                        "rxp2k7 simulate try.rxp --shots 20000 --waveforms hr-compressed"},
                       {"Echoes from two zones of range, packed as differences",
                        "rxp2k7 simulate far.rxp --mta 2 --form packed-hr"}}));
    command->callback([options, rate, &result] {
        options->rate_given = rate->count() != 0;
        result = run(*options);
    });
}

} // namespace host
