#pragma once

#include <vector>

namespace scanlib {

/// Reflectance correction over range: linear between the entries, and beyond them the loss of a
/// beam that spreads, by the inverse square law.
struct reflectance_table {
    float step = 0;             ///< m between entries
    std::vector<float> entries; ///< dB, from range 0 on

    bool empty() const noexcept { return entries.empty(); }

    /// `reflectance` (dB) corrected for the distance |`range`| (m). An empty table leaves it as it
    /// is.
    float corrected(float reflectance, double range) const noexcept;
};

} // namespace scanlib
