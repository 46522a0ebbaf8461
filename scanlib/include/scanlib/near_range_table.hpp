#pragma once

#include <vector>

namespace scanlib {

/// Range correction for near targets, linear between its entries.
struct near_range_table {
    float step = 0;             ///< m between entries
    std::vector<float> entries; ///< m, from range 0 on

    bool empty() const noexcept { return entries.empty(); }

    /// `range` (m) with the table's value added. A range of 0 or below, or at or beyond the last
    /// entry's place, stays as it is.
    double corrected(double range) const noexcept { return corrected(range, range); }

    /// The same, where the place between two entries comes from `fraction_range` (m): the range
    /// before its zone was added, for an echo in an alternative zone.
    double corrected(double range, double fraction_range) const noexcept;
};

} // namespace scanlib
