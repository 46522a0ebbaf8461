#include "simulator/calibration.hpp"

#include "simulator/waveform_writer.hpp"

#include "scanlib/packet_writers.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace simulator {

namespace {

namespace packets = scanlib::packets;
using scanlib::packet_emitter;

constexpr double near_error = 0.03; ///< m, of a target at the scanner
constexpr double near_reach = 4.0;  ///< m in which it falls to a third

constexpr std::size_t near_entries = 64;
constexpr double near_step_counts = 2048;

constexpr std::size_t amplitude_entries = 32;
constexpr float amplitude_step = 2.0F; ///< dB

// The grid: 6 ranges, 6 amplitudes.
constexpr std::size_t grid_side = 6;
constexpr std::array<std::uint16_t, grid_side> grid_rows{1, 4, 10, 20, 40, 80};
constexpr std::array<std::uint16_t, grid_side> grid_columns{0, 10, 20, 30, 40, 70};
constexpr scanlib::range_grid_scaling grid_scaling{0.5, 0, 1, 0, 1e-05, -0.1};
constexpr double error_per_decibel = 0.0004; ///< m

// The pane that a notch takes out, and the window around it.
constexpr double pane_chance = 0.3;
constexpr double flat_pane_range = 0.3;  ///< m
constexpr double flat_pane_strength = 8; ///< dB
constexpr float notch_low = 0.15F;       ///< m
constexpr float notch_high = 0.6F;       ///< m
constexpr float notch_amplitude = 12.0F; ///< dB

/// A curve in whole numbers, as its packet holds them.
struct told_curve {
    std::uint16_t id;
    double x_factor;
    double y_factor;
    std::array<std::array<std::uint16_t, 2>, 4> pairs;
};
constexpr told_curve pane_range_curve{20, 1, 0.01, {{{0, 30}, {120, 36}, {240, 26}, {360, 30}}}};
constexpr told_curve pane_place_curve{21, 1, 0.1, {{{0, 60}, {90, 70}, {180, 80}, {360, 60}}}};
constexpr told_curve notch_width_curve{14, 1, 0.001, {{{0, 4}, {5, 4}, {10, 5}, {20, 5}}}};
constexpr told_curve notch_strength_curve{15, 1, 0.01, {{{0, 25}, {5, 25}, {10, 25}, {20, 30}}}};

// The trigger rings for a while around a strong echo. Echoes of the scene lie farther apart.
constexpr double strong = 30; ///< dB
constexpr double ringing_chance = 0.5;
constexpr double ringing_distance = 0.2; ///< m
constexpr double faintest_ringing = 3;   ///< dB
constexpr double loudest_ringing = 8;    ///< dB
constexpr float ringing_threshold = 10;  ///< dB
constexpr float ringing_reach = 0.3F;    ///< m
constexpr float threshold_slope = 100;   ///< dB/m, from there on

scanlib::calibration_curve curve_of(const told_curve& told) {
    scanlib::calibration_curve::pairs_type pairs;
    for (const auto& [x, y] : told.pairs) {
        pairs.emplace_back(x * told.x_factor, y * told.y_factor);
    }
    return scanlib::calibration_curve(std::move(pairs));
}

void tell_curve(packet_emitter& out, const told_curve& told) {
    out.emit<packets::calib_table_writer>(
        [&](packets::calib_table_writer& p) {
            p.table_id(told.id);
            p.x_factor(told.x_factor);
            p.y_factor(told.y_factor);
            for (std::size_t i = 0; i < told.pairs.size(); ++i) {
                auto pair = p.element(i);
                pair.x(told.pairs[i][0]);
                pair.y(told.pairs[i][1]);
            }
        },
        told.pairs.size());
}

void tell_notch(packet_emitter& out) {
    out.emit<packets::notch_filter_writer>([](packets::notch_filter_writer& p) {
        p.range_low(notch_low);
        p.range_high(notch_high);
        p.amplitude(notch_amplitude);
    });
}

void tell_angular_notch(packet_emitter& out) {
    for (const told_curve& curve :
         {pane_range_curve, pane_place_curve, notch_width_curve, notch_strength_curve}) {
        tell_curve(out, curve);
    }
}

/// Rows of 10 dB each; from 30 dB on they hide what is weak and near.
void tell_dynamic_trigger(packet_emitter& out) {
    constexpr std::size_t rows = 9;
    constexpr float row_height = 10;
    out.emit<packets::dyntrig_writer>(
        [](packets::dyntrig_writer& p) {
            p.offset(0);
            p.scale(row_height);
            for (std::size_t i = 0; i < rows; ++i) {
                const bool hides = static_cast<double>(i) * row_height >= strong;
                auto row = p.element(i);
                row.thra1(hides ? ringing_threshold : 0);
                row.del1(ringing_reach);
                row.dec1(threshold_slope);
                row.thra2(hides ? ringing_threshold : 0);
                row.del2(ringing_reach);
                row.dec2(threshold_slope);
            }
        },
        rows);
}

/// An amplitude, then three pairs of distance and threshold.
constexpr std::array<float, 21> trigger_grid{20,
                                             0,
                                             0,
                                             ringing_reach,
                                             0,
                                             0.4F,
                                             0, //
                                             25,
                                             0,
                                             ringing_threshold,
                                             ringing_reach,
                                             ringing_threshold,
                                             0.4F,
                                             0, //
                                             95,
                                             0,
                                             ringing_threshold,
                                             ringing_reach,
                                             ringing_threshold,
                                             0.4F,
                                             0};

template<class Writer>
void tell_trigger_grid(packet_emitter& out) {
    out.emit<Writer>(
        [](Writer& p) {
            p.pairs(3);
            for (std::size_t i = 0; i < trigger_grid.size(); ++i) {
                p.element(i, trigger_grid[i]);
            }
        },
        trigger_grid.size());
}

/// Solves corrected(x) = range for a correction that changes slowly with the range.
template<class Corrected>
double before_correction(double range, Corrected corrected) {
    constexpr int rounds = 12;
    double x = range;
    for (int i = 0; i < rounds; ++i) {
        x = range - (corrected(x) - x);
    }
    return x;
}

} // namespace

calibration::calibration(const scan_settings& settings, const instrument_units& units)
    : wanted_(settings.calibration), units_(units), random_(settings.seed ^ 0xFA017FA017FA017F) {
    if (has(correction::near_range)) {
        make_near_range();
    }
    if (has(correction::amplitude_range)) {
        make_amplitude_range();
    }
    if (has(correction::range_grid)) {
        make_range_grid();
    }
    if (has(correction::angular_notch)) {
        make_angular_notch();
    }
}

void calibration::make_near_range() {
    const double step = near_step_counts * units_.range;
    near_range_.step = static_cast<float>(step);
    for (std::size_t i = 0; i < near_entries; ++i) {
        const double error = near_error * std::exp(-static_cast<double>(i) * step / near_reach);
        const auto counts = static_cast<std::int16_t>(-std::lround(error / units_.range));
        near_range_counts_.push_back(counts);
        near_range_.entries.push_back(
            static_cast<float>(counts * static_cast<double>(units_.range)));
    }
}

void calibration::make_amplitude_range() {
    amplitude_range_.step = amplitude_step;
    for (std::size_t i = 0; i < amplitude_entries; ++i) {
        const auto counts = static_cast<std::int16_t>(3 * i);
        amplitude_range_counts_.push_back(counts);
        amplitude_range_.entries.push_back(counts);
    }
}

void calibration::make_range_grid() {
    grid_counts_.assign(grid_rows.begin(), grid_rows.end());
    grid_counts_.insert(grid_counts_.end(), grid_columns.begin(), grid_columns.end());
    for (const double row : grid_rows) {
        for (const double column : grid_columns) {
            const double range = row * grid_scaling.row_factor;
            const double value =
                error_per_decibel * column - near_error * std::exp(-range / near_reach);
            grid_counts_.push_back(static_cast<std::uint16_t>(
                std::lround((value - grid_scaling.value_offset) / grid_scaling.value_factor)));
        }
    }
    grid_ = scanlib::range_grid::read(grid_side, grid_side, grid_scaling, grid_counts_);
}

void calibration::make_angular_notch() {
    pane_range_ = curve_of(pane_range_curve);
    pane_strength_ = curve_of(pane_place_curve);
}

void calibration::tell_near_range(packet_emitter& out) const {
    out.emit<packets::nrange_table_writer>(
        [&](packets::nrange_table_writer& p) {
            for (std::size_t i = 0; i < near_range_counts_.size(); ++i) {
                p.element(i, near_range_counts_[i]);
            }
        },
        near_range_counts_.size());
}

void calibration::tell_amplitude_range(packet_emitter& out) const {
    out.emit<packets::arange_table_writer>(
        [&](packets::arange_table_writer& p) {
            p.step(amplitude_step);
            for (std::size_t i = 0; i < amplitude_range_counts_.size(); ++i) {
                p.element(i, amplitude_range_counts_[i]);
            }
        },
        amplitude_range_counts_.size());
}

void calibration::tell_range_grid(packet_emitter& out) const {
    out.emit<packets::calib_2D_table_writer>(
        [&](packets::calib_2D_table_writer& p) {
            p.table_kind(1); // a table of ranges
            p.rows(grid_side);
            p.columns(grid_side);
            p.row_factor(grid_scaling.row_factor);
            p.row_offset(grid_scaling.row_offset);
            p.column_factor(grid_scaling.column_factor);
            p.column_offset(grid_scaling.column_offset);
            p.value_factor(grid_scaling.value_factor);
            p.value_offset(grid_scaling.value_offset);
            for (std::size_t i = 0; i < grid_counts_.size(); ++i) {
                p.element(i, grid_counts_[i]);
            }
        },
        grid_counts_.size());
}

void calibration::tell(packet_emitter& out) const {
    for (const correction c : wanted_) {
        switch (c) {
        case correction::near_range:
            tell_near_range(out);
            break;
        case correction::amplitude_range:
            tell_amplitude_range(out);
            break;
        case correction::range_grid:
            tell_range_grid(out);
            break;
        case correction::notch:
            tell_notch(out);
            break;
        case correction::angular_notch:
            tell_angular_notch(out);
            break;
        case correction::dynamic_trigger:
            tell_dynamic_trigger(out);
            break;
        case correction::dynamic_trigger_tables:
            tell_trigger_grid<packets::dyntrig_pre_writer>(out);
            tell_trigger_grid<packets::dyntrig_post_writer>(out);
            break;
        case correction::waveform:
            tell_waveform_tables(out);
            break;
        }
    }
}

/// What the tables over range make of a range, in metres.
double calibration::corrected(double range, std::uint16_t amplitude) const {
    if (!grid_.empty()) {
        return grid_.corrected(range, amplitude * static_cast<double>(units_.ampl_refl));
    }
    return near_range_.corrected(range);
}

/// Counts that the table over amplitude will add.
std::int32_t calibration::late_counts(std::uint16_t amplitude) const {
    return amplitude_range_.empty() ? 0
                                    : static_cast<std::int32_t>(amplitude_range_.corrected(
                                          0, amplitude, units_.ampl_refl));
}

std::int32_t calibration::told_counter(const received_echo& e, double farther) const {
    const double measured =
        before_correction(e.range, [&](double x) { return corrected(x, e.amplitude); });
    const auto nearest =
        static_cast<std::int32_t>(std::lround((measured - farther) / units_.range));
    const auto error = [&](std::int32_t counter) {
        const double range = counter * static_cast<double>(units_.range) + farther;
        return std::abs(corrected(range, e.amplitude) - e.range);
    };
    // Where a range falls on an entry of the near-range table, rounding may take the entry beside.
    const std::array candidates{nearest, nearest - 1, nearest + 1};
    const std::int32_t best =
        *std::min_element(candidates.begin(), candidates.end(),
                          [&](std::int32_t a, std::int32_t b) { return error(a) < error(b); });
    return best - late_counts(e.amplitude);
}

std::uint16_t calibration::in_counts(double decibels) const {
    return static_cast<std::uint16_t>(std::lround(decibels / units_.ampl_refl));
}

std::optional<received_echo> calibration::pane_echo(const shot& s) {
    const bool curved = has(correction::angular_notch);
    if ((!curved && !has(correction::notch)) || !random_.chance(pane_chance)) {
        return std::nullopt;
    }
    const double angle = 360.0 * s.line_counter / scan_program::line_circle_count;
    received_echo e{};
    e.artefact = true;
    e.range = curved ? pane_range_(angle) : flat_pane_range;
    e.amplitude = in_counts(curved ? pane_strength_(angle) + 1 : flat_pane_strength);
    return e;
}

void calibration::add_ringing(std::vector<received_echo>& echoes) {
    if (!has(correction::dynamic_trigger) && !has(correction::dynamic_trigger_tables)) {
        return;
    }
    const std::size_t count = echoes.size();
    for (std::size_t i = 0; i < count; ++i) {
        if (echoes[i].amplitude < in_counts(strong) || !random_.chance(ringing_chance)) {
            continue;
        }
        received_echo ring = echoes[i];
        ring.artefact = true;
        ring.range += random_.chance(0.5) ? ringing_distance : -ringing_distance;
        ring.amplitude = in_counts(random_.between(faintest_ringing, loudest_ringing));
        echoes.push_back(ring);
    }
    std::sort(echoes.begin(), echoes.end(),
              [](const received_echo& a, const received_echo& b) { return a.range < b.range; });
}

} // namespace simulator
