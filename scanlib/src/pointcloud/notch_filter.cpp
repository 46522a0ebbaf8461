#include "scanlib/notch_filter.hpp"

#include "scanlib/saturate.hpp"
#include "scanlib/scanlib_exception.hpp"

#include <algorithm>

namespace scanlib {

namespace {

/// Numbers of the curves. The place follows upon its centre.
constexpr std::uint16_t line_curve = 20;
constexpr std::uint16_t frame_curve = 30;
constexpr std::uint16_t width_curve = 14;
constexpr std::uint16_t strength_curve = 15;

/// Counts of the circle that share a window.
constexpr std::uint32_t counts_per_window = 256;

template<class Int>
Int in_counts(double length, double unit) noexcept {
    return saturate<Int>(length / unit + 0.5);
}

notch_filter::limits_type make_limits(double low, double high, double ampl,
                                      const notch_filter::units_type& units) noexcept {
    return {in_counts<std::int32_t>(low, units.range), in_counts<std::int32_t>(high, units.range),
            in_counts<std::uint16_t>(ampl, units.ampl)};
}

} // namespace

void notch_filter::set_static(float low, float high, float ampl, const units_type& units) {
    low_ = low;
    high_ = high;
    ampl_ = ampl;
    if (mode_ == mode::none || mode_ == mode::fixed) {
        mode_ = mode::fixed;
        units_ = units;
        limits_ = make_limits(low_, high_, ampl_, units_);
    }
}

void notch_filter::set_angular(const calibration_tables& curves, std::uint32_t line_circle_count,
                               std::uint32_t frame_circle_count, const units_type& units) {
    const bool by_line = curves.contains(line_curve);
    if (!by_line && !curves.contains(frame_curve)) {
        return;
    }
    const std::uint16_t id = by_line ? line_curve : frame_curve;
    const auto place_curve = static_cast<std::uint16_t>(id + 1);
    if (!curves.contains(place_curve) || !curves.contains(width_curve) ||
        !curves.contains(strength_curve)) {
        throw scanlib_exception("pointcloud::on_check_parameters_before_measurement_starting: "
                                "inconsistent angle notchfilter tables",
                                "pointcloud", __LINE__);
    }
    centre_ = curves.curve(id);
    place_ = curves.curve(place_curve);
    width_ = curves.curve(width_curve);
    strength_ = curves.curve(strength_curve);
    angular_modification_ = modification_;
    units_ = units;
    mode_ = by_line ? mode::line : mode::frame;
    last_entry_ = (by_line ? line_circle_count : frame_circle_count) / counts_per_window;
    entry_ = 0;
    limits_ = limits_of_entry(entry_);
}

void notch_filter::update(std::uint32_t line_counter, std::uint32_t frame_counter,
                          const units_type& units) {
    if (mode_ == mode::fixed) {
        if (units != units_) {
            units_ = units;
            limits_ = make_limits(low_, high_, ampl_, units_);
        }
        return;
    }
    const std::uint32_t counter = mode_ == mode::line ? line_counter : frame_counter;
    const std::uint32_t i = std::min(counter / counts_per_window, last_entry_);
    if (i != entry_) {
        entry_ = i;
        limits_ = limits_of_entry(i);
    }
}

notch_filter::limits_type notch_filter::limits_of_entry(std::uint32_t i) const noexcept {
    const notch_modification& m = angular_modification_;
    const double angle = last_entry_ != 0 ? i * 360.0 / last_entry_ : 0.0;
    const double x = m.angle_offset + place_(angle);
    const double ampl = strength_(x) * m.ampl_scale + x + m.ampl_offset;
    const double half = width_(x) * m.width_scale + m.width_offset;
    const double centre = centre_(angle);
    return make_limits(centre - half, centre + half, ampl, units_);
}

} // namespace scanlib
