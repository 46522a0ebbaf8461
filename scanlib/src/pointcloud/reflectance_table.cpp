#include "scanlib/reflectance_table.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace scanlib {

float reflectance_table::corrected(float reflectance, double range) const noexcept {
    if (entries.empty()) {
        return reflectance;
    }
    const std::size_t last = entries.size() - 1;
    const double distance = std::fabs(range);
    const double place = distance / step;
    const double whole = std::floor(place);
    if (whole < static_cast<double>(last)) {
        // A negative step, which only a negative range unit gives, stays at the first entry.
        const std::size_t i = whole > 0 ? static_cast<std::size_t>(whole) : 0;
        const double f = place - whole;
        return static_cast<float>(reflectance + (1 - f) * entries[i] +
                                  f * entries[std::min(i + 1, last)]);
    }
    return static_cast<float>(reflectance + entries.back() +
                              20 * std::log10(distance / (static_cast<double>(last) * step)));
}

} // namespace scanlib
