#include "commands.hpp"
#include "numbers.hpp"
#include "progress.hpp"
#include "simulator/recorder.hpp"
#include "simulator/recording_file.hpp"

#include "scanlib/rxpmarker.hpp"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

namespace host {

namespace {

struct simulate_options {
    std::string output;
    simulator::scan_settings scan;
    std::string form = "plain";
};

/// A recording that is not whole is none; devices and pipes are left alone.
void remove_partial(const std::filesystem::path& path) {
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path, ignored)) {
        std::filesystem::remove(path, ignored);
    }
}

simulator::recording_summary
write_recording(const simulate_options& options,
                const std::shared_ptr<simulator::recording_file>& file) {
    const auto encoder = std::make_shared<scanlib::encoder_rxpmarker>(
        file, scanlib::encoder_capacity, scanlib::encoder_headroom, true);
    scanlib::packet_emitter emitter(encoder);
    simulator::recorder recorder(options.scan, emitter);
    progress_line progress(std::filesystem::path(options.output).filename().string(), "shots",
                           options.scan.shots);
    auto summary = recorder.run([&](std::uint64_t shots) { progress.show(shots); });
    file->close();
    return summary;
}

void tell(const simulate_options& options, const simulator::recording_summary& done,
          std::uint64_t bytes, double seconds) {
    std::printf("%s\n"
                "  shots      %llu in %llu lines, %.3f s of scanning\n"
                "  echoes     %llu\n"
                "  packets    %llu\n"
                "  bytes      %llu\n"
                "  written in %.2f s, %.2f million shots/s\n",
                options.output.c_str(), static_cast<unsigned long long>(done.shots),
                static_cast<unsigned long long>(done.lines), done.seconds,
                static_cast<unsigned long long>(done.echoes),
                static_cast<unsigned long long>(done.packets),
                static_cast<unsigned long long>(bytes), seconds,
                static_cast<double>(done.shots) / seconds / 1e6);
}

exit_code run(simulate_options& options) {
    options.scan.high_resolution = options.form == "hr";
    try {
        // Settings that cannot be scanned are told before the output is touched.
        simulator::scan_program check(options.scan);
    } catch (const std::invalid_argument& e) {
        throw CLI::ValidationError("simulate", e.what());
    }
    const auto start = std::chrono::steady_clock::now();
    std::shared_ptr<simulator::recording_file> file;
    try {
        file = std::make_shared<simulator::recording_file>(options.output);
        const auto done = write_recording(options, file);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        tell(options, done, file->bytes_written(), took.count());
    } catch (const simulator::output_error& e) {
        if (file) {
            remove_partial(options.output);
        }
        std::fprintf(stderr, "rxp2k7: %s\n", e.what());
        return exit_code::output_failed;
    }
    return exit_code::good;
}

} // namespace

void add_simulate(CLI::App& app, exit_code& result) {
    CLI::App* command = app.add_subcommand(
        "simulate",
        "Write the recording of a made-up scene, for trying the program without an "
        "instrument: ground, a lake, houses and trees, seen by a mirror-wheel scanner.");
    auto options = std::make_shared<simulate_options>();
    simulator::scan_settings& scan = options->scan;
    command->add_option("OUTPUT", options->output, "file to write, usually *.rxp")->required();
    add_whole(*command, "--shots", scan.shots, "laser shots to record");
    add_real(*command, "--rate", scan.pulse_rate, "laser pulses a second (300000)", 1000, 3e6);
    add_real(*command, "--lines-per-second", scan.lines_per_second, "scan lines a second (100)",
             0.1, 1000);
    add_real(*command, "--turn-time", scan.turn_time,
             "seconds for a full turn of the head (one turn in the recording)", 0.1, 1e6);
    add_whole<std::uint32_t>(*command, "--start-time", scan.start_time,
                             "second of the day at which the recording starts", 2, 86399);
    add_whole(*command, "--seed", scan.seed,
              "the same seed and options give the same file, byte for byte");
    command
        ->add_option("--form", options->form, "packets with the plain or the high-resolution time")
        ->check(CLI::IsMember({"plain", "hr"}))
        ->capture_default_str();
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
