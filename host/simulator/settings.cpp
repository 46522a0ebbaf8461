#include "simulator/settings.hpp"

#include "simulator/instrument.hpp"

#include <stdexcept>

namespace simulator {

namespace {

void refuse_unless(bool good, const char* text) {
    if (!good) {
        throw std::invalid_argument(text);
    }
}

void check_fan(const scan_settings& s) {
    if (s.optics != mechanics::mirrorwheel_fanbeam) {
        return;
    }
    refuse_unless(
        s.form == packet_form::plain,
        "mirrorwheel-fanbeam writes packets of its own: it goes with the plain form only");
    refuse_unless(s.zones == 0, "mirrorwheel-fanbeam has no high-resolution time, as --mta needs");
    refuse_unless(s.calibration.empty(), "no --calibration applies to mirrorwheel-fanbeam");
}

void check_zones(const scan_settings& s) {
    if (s.zones == 0) {
        return;
    }
    refuse_unless(is_high_resolution(s.form),
                  "--mta needs a form with the high-resolution time: hr, packed-hr, shot-echo or "
                  "shot-echo-blocks");
    refuse_unless((s.zones - 1) * zone_length(s.pulse_rate) + 2 * blind_range < scene_range,
                  "the scene ends before the last zone of --mta at this pulse rate");
}

void check_calibration(const scan_settings& s) {
    const auto both = [&](correction a, correction b) {
        return s.calibration.contains(a) && s.calibration.contains(b);
    };
    refuse_unless(!both(correction::near_range, correction::range_grid),
                  "range-grid takes the place of near-range: choose one of them");
    refuse_unless(!both(correction::notch, correction::angular_notch),
                  "angular-notch takes the place of notch: choose one of them");
    refuse_unless(!both(correction::dynamic_trigger, correction::dynamic_trigger_tables),
                  "dynamic-trigger-tables takes the place of dynamic-trigger: choose one of them");
}

} // namespace

bool is_high_resolution(packet_form form) noexcept {
    return form == packet_form::hr || form == packet_form::packed_hr ||
           form == packet_form::shot_echo || form == packet_form::shot_echo_blocks;
}

double zone_length(double pulse_rate) noexcept {
    return 0.5 * instrument::group_velocity / pulse_rate;
}

double pulse_rate_for(std::uint32_t zones) noexcept {
    return 0.5 * instrument::group_velocity * zones / scene_range;
}

void check(const scan_settings& settings) {
    scan_program rates(settings);
    check_fan(settings);
    check_zones(settings);
    check_calibration(settings);
}

} // namespace simulator
