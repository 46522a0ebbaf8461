#pragma once

#include <limits>
#include <type_traits>

namespace scanlib {

/// The integer part of `value` as an `Int`. A value outside the range of `Int` gives the nearer
/// bound, and a NaN gives 0, so that no number out of a stream can fault a conversion.
template<class Int>
constexpr Int saturate(double value) noexcept {
    static_assert(std::is_integral_v<Int>);
    // The upper bound is the power of two above the greatest value, so that it is exact in a double
    // also for 64 bits.
    constexpr Int half = std::numeric_limits<Int>::max() / 2 + 1;
    constexpr double above = 2.0 * static_cast<double>(half);
    constexpr double lowest = static_cast<double>(std::numeric_limits<Int>::min());
    if (value >= above) {
        return std::numeric_limits<Int>::max();
    }
    if (value > lowest) {
        return static_cast<Int>(value);
    }
    return value <= lowest ? std::numeric_limits<Int>::min() : Int{0};
}

} // namespace scanlib
