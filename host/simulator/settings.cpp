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

void check_waveforms(const scan_settings& s) {
    if (s.waveforms == waveform_form::none) {
        refuse_unless(!s.calibration.contains(correction::waveform),
                      "--calibration waveform goes with --waveforms only");
        return;
    }
    refuse_unless(s.optics != mechanics::mirrorwheel_fanbeam,
                  "mirrorwheel-fanbeam has no --waveforms");
    refuse_unless(s.zones == 0, "--waveforms are of one zone of range: choose it or --mta");
    if (s.waveforms == waveform_form::subpackages) {
        refuse_unless(s.form == packet_form::shot_echo_blocks,
                      "--waveforms subpackages stand in shot-echo-blocks only");
    } else if (is_high_resolution(s.waveforms)) {
        refuse_unless(is_high_resolution(s.form),
                      "these --waveforms need a form with the high-resolution time: hr, packed-hr, "
                      "shot-echo or shot-echo-blocks");
    } else {
        refuse_unless(!is_high_resolution(s.form),
                      "these --waveforms need a form with the plain time: plain, packed or "
                      "packed-rad");
    }
}

} // namespace

bool is_high_resolution(packet_form form) noexcept {
    return form == packet_form::hr || form == packet_form::packed_hr ||
           form == packet_form::shot_echo || form == packet_form::shot_echo_blocks;
}

bool is_high_resolution(waveform_form form) noexcept {
    return form != waveform_form::none && form != waveform_form::parameters &&
           form != waveform_form::parameters_compressed;
}

packet_form plainest_form(const scan_settings& settings) noexcept {
    if (settings.waveforms == waveform_form::subpackages) {
        return packet_form::shot_echo_blocks;
    }
    // Zones are told apart by the high-resolution time.
    return settings.zones != 0 || is_high_resolution(settings.waveforms) ? packet_form::hr
                                                                         : packet_form::plain;
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
    check_waveforms(settings);
}

} // namespace simulator
