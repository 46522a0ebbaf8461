#include "scanlib/near_range_table.hpp"

#include <algorithm>
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
    // The quotient may round up to the entry behind the last interval.
    const std::size_t i = std::min(static_cast<std::size_t>(std::floor(range / step)), last);
    // In 32 bits, as are the entries, and so not always in step with the index.
    const float f = std::fmod(static_cast<float>(fraction_range), step) / step;
    return range + ((1 - f) * entries[i] + f * entries[std::min(i + 1, last)]);
}

} // namespace scanlib
