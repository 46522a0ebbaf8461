// What a simulated recording was made from, for tests that look at its conversion from outside:
//   scan_truth times SHOTS RATE SEED   writes the PPS time of each shot
//   scan_truth fan SHOTS RATE SEED     writes origin and direction of each beam of each shot of a
//                                      scanner with a fan of beams
//   scan_truth distances SEED          reads points and writes the distance of each to the nearest
//                                      surface
// All numbers are 64-bit floats, three for a vector.
#include "simulator/instrument.hpp"
#include "simulator/scene.hpp"

#include <cstdio>
#include <cstdlib>
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
    } else if (what == "distances" && argc == 3) {
        good = write_distances(std::strtoull(argv[2], nullptr, 10));
    }
    return good && std::fflush(stdout) == 0 ? 0 : 1;
}
