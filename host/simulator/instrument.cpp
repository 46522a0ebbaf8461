#include "simulator/instrument.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace simulator {

namespace {

constexpr double drift = 1.5e-06;       ///< how much the oscillator is fast
constexpr double lead_time = 8;         ///< s that the instrument runs before the recording starts
constexpr double early_start = 0.25;    ///< part of the counter's circle
constexpr double reference_range = 100; ///< m, for which the receiver's numbers are given
constexpr double full_amplitude = 42;   ///< dB of a white surface at the reference range
constexpr double noise_floor = 2;       ///< dB
constexpr double strong_echo = 38;      ///< dB; from here on the low-power channel measures
constexpr double loss_per_layer = 4;    ///< dB that each echo takes from those behind it
constexpr double decibels_per_neper = 8.68589;
constexpr std::uint16_t rising_flag = 1;

/// Reflectance and its scatter in dB.
struct finish {
    double reflectance;
    double scatter;
    double deviation; ///< of the pulse shape, in counts
};

finish finish_of(material m) {
    switch (m) {
    case material::soil:
        return {-8.0, 1.5, 6};
    case material::wall:
        return {-4.0, 0.6, 3};
    case material::roof:
        return {-10.0, 0.8, 4};
    case material::bark:
        return {-9.0, 1.0, 10};
    case material::leaf:
        return {-11.0, 2.0, 25};
    case material::water:
        return {-20.0, 2.0, 8};
    }
    return {};
}

double decibels(double ratio) {
    return 10 * std::log10(ratio);
}

/// Correction from the reflectance that is told to the true one, at a range.
double reflectance_correction(double range) {
    return 20 * std::log10(std::max(range, 5.0) / reference_range);
}

instrument_units units_of(const scan_settings& settings) {
    const bool fan = settings.optics == mechanics::mirrorwheel_fanbeam;
    return {fan ? instrument::fan_range_unit : instrument::range_unit,
            fan ? instrument::fan_ampl_unit : instrument::ampl_refl_unit,
            is_high_resolution(settings.form) ? instrument::packed_hr_bits
                                              : instrument::full_hr_bits};
}

/// Greatest range that the packets of a form can tell.
double told_range(const scan_settings& settings) {
    return settings.optics == mechanics::mirrorwheel_fanbeam ? 65535.0 * instrument::fan_range_unit
                                                             : scene_range;
}

double in_counts(double value, double unit, double least, double greatest) {
    return std::clamp(std::round(value / unit), least, greatest);
}

} // namespace

scan_program::scan_program(const scan_settings& settings)
    : pulse_rate_(settings.pulse_rate)
    , lines_per_second_(settings.lines_per_second)
    , start_time_(settings.start_time)
    , line_counts_(counts_per_facet * (line_swings(settings.optics) ? line_swing : 1))
    , frame_counts_(frame_circle_count * (frame_swings(settings.optics) ? frame_swing : 1))
    , turns_(!line_swings(settings.optics)) {
    constexpr double used = (last_angle - first_angle) / facet_way;
    const double shots_per_line = pulse_rate_ / lines_per_second_ * used;
    if (!(shots_per_line >= 2)) {
        throw std::invalid_argument(
            "the pulse rate gives less than two shots a line at this line rate");
    }
    duration_ =
        (std::floor(static_cast<double>(settings.shots) / shots_per_line) + 1) / lines_per_second_;
    turn_time_ = settings.turn_time > 0 ? settings.turn_time : duration_;
    begin_line(0);
}

void scan_program::begin_line(std::uint64_t line) {
    const auto pulse_at = [&](double angle) {
        return static_cast<std::uint64_t>(std::ceil(
            (static_cast<double>(line) + angle / facet_way) / lines_per_second_ * pulse_rate_));
    };
    line_ = line;
    pulse_ = pulse_at(first_angle);
    last_pulse_ = pulse_at(last_angle);
}

shot scan_program::next() {
    while (pulse_ >= last_pulse_) {
        begin_line(line_ + 1);
    }
    const double t = static_cast<double>(pulse_++) / pulse_rate_;
    const double in_line = t * lines_per_second_ - static_cast<double>(line_);
    const double turns = t / turn_time_;
    const double whole_turns = std::floor(turns);
    const auto facet = turns_ ? static_cast<std::uint32_t>(line_ % facets) : 0;
    return {start_time_ + t,
            facet * counts_per_facet + static_cast<std::uint32_t>(in_line * line_counts_),
            static_cast<std::uint32_t>((turns - whole_turns) * frame_counts_), line_,
            static_cast<std::uint64_t>(whole_turns)};
}

instrument::instrument(const scan_settings& settings)
    : units_(units_of(settings))
    , optics_(settings.optics,
              {units_.range, scan_program::line_circle_count, scan_program::frame_circle_count},
              &beam_origin_, &beam_direction_)
    , greatest_range_(std::min(told_range(settings),
                               std::max(settings.zones, 1U) * zone_length(settings.pulse_rate)))
    , start_time_(settings.start_time) {
    random_source random(settings.seed ^ 0x0C10C70C10C70C10);
    // Anywhere in the counter's circle, so that some recordings see it wrap. Not so with zones:
    // readers tell them by plain differences of the counter.
    counter_start_ = random.unit() * 0x1p32 * systime_unit;
    if (settings.zones != 0) {
        counter_start_ *= early_start * static_cast<double>(hr_mask()) / 0x1p51;
    }
}

std::uint16_t instrument::reftab_step_counter() const {
    return static_cast<std::uint16_t>(std::lround(16777216.0 * units_.range / reftab_step));
}

std::int16_t instrument::reftab_entry(std::size_t i) const {
    const double step = 16777216.0 * units_.range / reftab_step_counter();
    return static_cast<std::int16_t>(in_counts(
        -reflectance_correction(static_cast<double>(i) * step), units_.ampl_refl, -32768, 32767));
}

bool instrument::receive(const surface_hit& hit, std::size_t earlier, random_source& random,
                         received_echo& echo) const {
    const finish f = finish_of(hit.made_of);
    const double reflectance = f.reflectance + f.scatter * random.between(-1, 1) +
                               decibels(std::max(hit.incidence, 0.05)) -
                               loss_per_layer * static_cast<double>(earlier);
    const double in_air = hit.range * attenuation * 0.001 * decibels_per_neper;
    const double correction = reflectance_correction(hit.range);
    const double amplitude = full_amplitude + reflectance - correction - in_air;
    if (amplitude < noise_floor) {
        return false;
    }
    echo.range = hit.range;
    echo.amplitude = static_cast<std::uint16_t>(in_counts(amplitude, units_.ampl_refl, 0, 65535));
    echo.reflectance = static_cast<std::int16_t>(
        in_counts(reflectance - correction - in_air, units_.ampl_refl, -32768, 32767));
    echo.flags = amplitude < strong_echo ? rising_flag : 0;
    echo.deviation = static_cast<std::int16_t>(f.deviation * random.unit());
    echo.artefact = false;
    echo.depth = hit.depth;
    return true;
}

double instrument::oscillator_time(double pps_time) const {
    return counter_start_ + (pps_time - start_time_ + lead_time) * (1 + drift);
}

std::uint32_t instrument::system_counter(double pps_time) const {
    // The narrowing makes the counter wrap.
    return static_cast<std::uint32_t>(
        static_cast<std::uint64_t>(oscillator_time(pps_time) / systime_unit));
}

std::uint64_t instrument::system_counter_hr(double pps_time) const {
    return static_cast<std::uint64_t>(oscillator_time(pps_time) / systime_hr_unit) & hr_mask();
}

double instrument::range_between(std::uint64_t earlier, std::uint64_t later) const {
    return static_cast<double>((later - earlier) & hr_mask()) * group_velocity * 0.5 *
           static_cast<double>(systime_hr_unit);
}

} // namespace simulator
