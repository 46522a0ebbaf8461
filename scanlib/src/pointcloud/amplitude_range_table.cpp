#include "scanlib/amplitude_range_table.hpp"

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
    // Below `last`, so that it rounds to `last` at most.
    return counter + entries[static_cast<std::size_t>(amplitude / counts)];
}

} // namespace scanlib
