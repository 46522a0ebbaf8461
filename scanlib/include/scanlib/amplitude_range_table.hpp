#pragma once

#include <cstdint>
#include <vector>

namespace scanlib {

/// Range correction of a receiver whose trigger point moves with the strength of a pulse.
struct amplitude_range_table {
    float step = 0;                    ///< dB between entries
    std::vector<std::int32_t> entries; ///< range counts, from amplitude 0 on

    bool empty() const noexcept { return entries.empty(); }

    /// The range counter of an echo with the entry at its amplitude added, in range counts.
    /// `amplitude` is in counts of `ampl_unit` dB. An amplitude of 0, or at or above the last
    /// entry's place, leaves the counter as it is.
    double corrected(std::int32_t range_counter, std::uint16_t amplitude,
                     double ampl_unit) const noexcept;
};

} // namespace scanlib
