// What a simulated recording was made from, for tests that look at its conversion from outside:
//   scan_truth times SHOTS RATE SEED   writes the PPS time of each shot
//   scan_truth fan SHOTS RATE SEED     writes origin and direction of each beam of each shot of a
//                                      scanner with a fan of beams
//   scan_truth distances SEED          reads points and writes the distance of each to the nearest
//                                      surface
//   scan_truth waveforms SHOTS SEED FORM
//                                      writes a record for each run of samples: PPS time of the
//                                      shot, time of the first sample behind it, channel, count,
//                                      and 200 samples of 16 bits of which those count
// All numbers are 64-bit floats, three for a vector, but channel and count, which have 32 bits.
#include "simulator/instrument.hpp"
#include "simulator/recorder.hpp"
#include "simulator/scene.hpp"

#include "scanlib/connection.hpp"
#include "scanlib/rxpmarker.hpp"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

bool put(double value) {
    return std::fwrite(&value, sizeof value, 1, stdout) == 1;
}

bool write_times(const simulator::scan_settings& settings) {
    simulator::scan_program program(settings);
    for (std::uint64_t n = 0; n < settings.shots; ++n) {
        if (!put(program.next().pps_time)) {
            return false;
        }
    }
    return true;
}

bool put(const simulator::vector3& v) {
    return put(v[0]) && put(v[1]) && put(v[2]);
}

bool write_fan(simulator::scan_settings settings) {
    settings.optics = simulator::mechanics::mirrorwheel_fanbeam;
    simulator::scan_program program(settings);
    simulator::instrument scanner(settings);
    for (std::uint64_t n = 0; n < settings.shots; ++n) {
        simulator::shot s = program.next();
        s.frame_counter = 0;
        scanner.aim(s);
        for (std::uint32_t row = 0; row < simulator::optics::fan_rows; ++row) {
            scanner.select_beam(static_cast<std::uint32_t>(n % simulator::optics::fan_columns),
                                row);
            if (!put(scanner.beam_origin()) || !put(scanner.beam_direction())) {
                return false;
            }
        }
    }
    return true;
}

/// Takes everything and keeps nothing.
class nowhere : public scanlib::basic_wconnection {
  public:
    std::int64_t write(const char*, std::int64_t n) override { return n; }
};

/// Takes the samples where they are made, ahead of all packing.
bool write_waveforms(const simulator::scan_settings& settings) {
    scanlib::packet_emitter emitter(std::make_shared<scanlib::encoder_rxpmarker>(
        std::make_shared<nowhere>(), scanlib::encoder_capacity, scanlib::encoder_headroom, true));
    simulator::recorder recorder(settings, emitter);
    bool good = true;
    recorder.listen([&](const simulator::shot& s, const simulator::sampled_shot& sampled) {
        for (const simulator::sample_run& run : sampled.runs()) {
            const double start = run.first / simulator::digitiser::sampling_rate - sampled.phase;
            const std::uint32_t numbers[] = {run.channel, static_cast<std::uint32_t>(run.count)};
            good = good && put(s.pps_time) && put(start) &&
                   std::fwrite(numbers, sizeof numbers, 1, stdout) == 1 &&
                   std::fwrite(run.room.data(), sizeof run.room, 1, stdout) == 1;
        }
    });
    recorder.run([](std::uint64_t) {});
    return good;
}

bool write_distances(std::uint64_t seed) {
    const simulator::scene scene(seed);
    simulator::vector3 point{};
    while (std::fread(point.data(), sizeof point, 1, stdin) == 1) {
        if (!put(scene.distance(point))) {
            return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    bool good = false;
    if ((what == "times" || what == "fan") && argc == 5) {
        simulator::scan_settings settings;
        settings.shots = std::strtoull(argv[2], nullptr, 10);
        settings.pulse_rate = std::strtod(argv[3], nullptr);
        settings.seed = std::strtoull(argv[4], nullptr, 10);
        good = what == "fan" ? write_fan(settings) : write_times(settings);
    } else if (what == "waveforms" && argc == 5) {
        simulator::scan_settings settings;
        settings.shots = std::strtoull(argv[2], nullptr, 10);
        settings.seed = std::strtoull(argv[3], nullptr, 10);
        settings.waveforms = simulator::choice_of(simulator::waveform_forms, argv[4]);
        settings.form = simulator::plainest_form(settings);
        good = write_waveforms(settings);
    } else if (what == "distances" && argc == 3) {
        good = write_distances(std::strtoull(argv[2], nullptr, 10));
    }
    return good && std::fflush(stdout) == 0 ? 0 : 1;
}
