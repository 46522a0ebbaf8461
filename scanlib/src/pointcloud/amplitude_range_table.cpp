#include "scanlib/amplitude_range_table.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace scanlib {

double amplitude_range_table::corrected(std::int32_t range_counter, std::uint16_t amplitude,
                                        double ampl_unit) const noexcept {
    const double counter = range_counter;
    if (amplitude == 0 || entries.empty()) {
        return counter;
    }
    const std::size_t last = entries.size() - 1;
    const double counts = step / ampl_unit;
    if (!(amplitude < static_cast<double>(last) * counts)) {
        return counter;
    }
    // The quotient may round up to the entry behind the last interval, but no further.
    const auto i = static_cast<std::size_t>(std::floor(amplitude / counts));
    return counter + entries[std::min(i, last)];
}

} // namespace scanlib
