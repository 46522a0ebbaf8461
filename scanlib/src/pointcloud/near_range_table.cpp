#include "scanlib/near_range_table.hpp"

#include <cmath>
#include <cstddef>

namespace scanlib {

namespace {

/// std::fmod of two floats, whose general form is slow. Up to this many steps the quotient, its
/// product with the step and the difference are exact in a double.
float remainder_of(float value, float step) noexcept {
    constexpr double many = 1 << 28;
    const double steps = std::trunc(double{value} / step);
    if (steps == 0) {
        return value;
    }
    return std::fabs(steps) < many ? static_cast<float>(value - steps * step)
                                   : std::fmod(value, step);
}

} // namespace

double near_range_table::corrected(double range, double fraction_range) const noexcept {
    if (entries.empty()) {
        return range;
    }
    const std::size_t last = entries.size() - 1;
    if (!(range > 0 && range < static_cast<double>(last) * step)) {
        return range;
    }
    // The end is exact in a double, and so no range below it divides to `last`.
    const auto i = static_cast<std::size_t>(range / step);
    // In 32 bits, as are the entries, and so not always in step with the index.
    const float f = remainder_of(static_cast<float>(fraction_range), step) / step;
    return range + ((1 - f) * entries[i] + f * entries[i + 1]);
}

} // namespace scanlib
