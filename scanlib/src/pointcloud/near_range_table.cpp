#include "scanlib/near_range_table.hpp"

#include <cmath>
#include <cstddef>

namespace scanlib {

double near_range_table::corrected(double range, double fraction_range) const noexcept {
    if (entries.empty()) {
        return range;
    }
    const std::size_t last = entries.size() - 1;
    if (!(range > 0 && range < static_cast<double>(last) * step)) {
        return range;
    }
    // The end is exact in a double, and so no range below it divides to `last`.
    const auto i = static_cast<std::size_t>(std::floor(range / step));
    // In 32 bits, as are the entries, and so not always in step with the index.
    const float f = std::fmod(static_cast<float>(fraction_range), step) / step;
    return range + ((1 - f) * entries[i] + f * entries[i + 1]);
}

} // namespace scanlib
