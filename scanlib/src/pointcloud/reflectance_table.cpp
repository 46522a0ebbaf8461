#include "scanlib/reflectance_table.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace scanlib {

namespace {

/// The reflectance with the value between two entries added, rounded to 32 bits once.
float between(float reflectance, float lower, float upper, double fraction) noexcept {
    return static_cast<float>(reflectance + (1 - fraction) * lower + fraction * upper);
}

} // namespace

float reflectance_table::corrected(float reflectance, double range) const noexcept {
    if (entries.empty()) {
        return reflectance;
    }
    const std::size_t last = entries.size() - 1;
    const double distance = std::fabs(range);
    const double place = distance / step;
    if (place < static_cast<double>(last)) {
        if (place < 0) [[unlikely]] {
            // A negative step, which only a negative range unit gives, stays at the first entry.
            return between(reflectance, entries[0], entries[std::min<std::size_t>(1, last)],
                           place - std::floor(place));
        }
        // Not std::floor: it is a call, and this runs for each echo.
        const auto i = static_cast<std::size_t>(place);
        return between(reflectance, entries[i], entries[i + 1], place - static_cast<double>(i));
    }
    return static_cast<float>(reflectance + entries.back() +
                              20 * std::log10(distance / (static_cast<double>(last) * step)));
}

} // namespace scanlib
