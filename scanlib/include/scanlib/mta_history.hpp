#pragma once

#include "scanlib/vector3.hpp"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

namespace scanlib {

/// A shot that echoes still may come back from.
struct mta_shot {
    static constexpr double unknown = std::numeric_limits<double>::quiet_NaN();

    std::uint32_t facet = 0;
    std::uint32_t segment = 0;
    double line_angle = unknown;  ///< rad
    double frame_angle = unknown; ///< rad
    std::uint64_t ticks = 0;      ///< high-resolution counter as told; 0 for no shot
    vector3 beam_origin{unknown, unknown, unknown}; ///< m
    vector3 beam_direction{unknown, unknown, unknown};
    double time = unknown;          ///< s
    double time_internal = unknown; ///< s
};

/// The newest shots of a scanner that fires again before far echoes are back (multiple time
/// around), and which of them an echo belongs to.
///
/// An echo is told with its range from the newest shot. In zone z it came from the shot z entries
/// before, so that its true range is longer by half the way that light goes in the time between:
///
///     shots     2         1         0 (newest)
///     ----------|---------|---------|-----e----> time
///     zone 0                        <----->  range as told
///     zone 1              <--------------->  + time from shot 1 to 0
///     zone 2    <------------------------->  + time from shot 2 to 0
///
/// Entry 0 is the newest shot. Entries without a shot have ticks 0 and NaN in each float, and a
/// search takes them as they are. Times between shots are raw differences of 64-bit counters.
class mta_history {
  public:
    /// Where an echo belongs.
    struct located_echo {
        std::uint16_t zone; ///< its entry in the history
        double range;       ///< m
    };

    /// Largest number of zones, by the width of a zone number.
    static constexpr std::uint32_t zone_limit = 65535;

    /// Number of zones of a scanner: `mta_zones`, or where that is 0, as many as it takes to reach
    /// `gate_high` (m), at most `zone_limit`.
    static std::uint32_t zone_count(std::uint32_t mta_zones, double gate_high,
                                    double unambiguous_range) noexcept;

    /// Sets the number of entries, at most `zone_limit` + 1. A larger one gets entries without a
    /// shot at the old end, a smaller one drops from there.
    void resize(std::size_t entries) noexcept;
    std::size_t size() const noexcept { return size_; }

    /// Puts a shot in front. When full, the oldest drops out. Of size 0, nothing is kept.
    void push(const mta_shot& shot);

    /// Takes the shots out of all entries.
    void clear() noexcept { filled_ = 0; }

    /// Entry n, 0 the newest. Beyond the size, the last one. Stays until the next change.
    const mta_shot& operator[](std::size_t n) const noexcept;

    /// The first zone in which the echo's range lies within the gates (m, both included), or none.
    /// `range` (m) is that from the newest shot. Group velocity in m/s, unit of ticks in s.
    std::optional<located_echo> search(double range, double gate_low, double gate_high,
                                       double group_velocity,
                                       double systime_hr_unit) const noexcept;

    /// The echo in a zone told from outside: `zones` counts from 1, and an echo before the newest
    /// shot (`range` below 0) is in the next one. The range is NaN where that entry has no shot or
    /// a newer one. A zone beyond the history is its last one.
    located_echo locate(double range, std::uint32_t zones, double group_velocity,
                        double systime_hr_unit) const noexcept;

  private:
    std::uint64_t ticks_of(std::size_t n) const noexcept {
        return n < filled_ ? ticks_[(newest_ + n) & mask_] : 0;
    }
    double range_in_zone(double range, std::size_t zone, double group_velocity,
                         double systime_hr_unit) const noexcept;
    void grow();

    // A ring of a power of two, that grows with the shots and not with the size: entry n is at
    // newest_ + n. The counters stand apart, since a search reads nothing else.
    std::vector<std::uint64_t> ticks_;
    std::vector<mta_shot> shots_;
    std::size_t mask_ = 0;
    std::size_t newest_ = 0;
    std::size_t filled_ = 0;  ///< entries with a shot
    std::size_t ordered_ = 0; ///< newest entries whose ticks never rise towards the old end
    std::size_t size_ = 0;
};

} // namespace scanlib
