#include "scanlib/mta_history.hpp"

#include "scanlib/saturate.hpp"

#include <algorithm>
#include <cmath>

namespace scanlib {

namespace {

/// Zones that are looked at one by one before a search by halves pays.
constexpr std::size_t near_zones = 8;

/// Entries of the ring at first.
constexpr std::size_t first_ring = 16;

double range_behind(double range, std::uint64_t ticks_between, double group_velocity,
                    double systime_hr_unit) noexcept {
    return range + static_cast<double>(ticks_between) * group_velocity * 0.5 * systime_hr_unit;
}

/// Whether a longer time gives a longer range, and nothing on the way is infinite.
bool is_rising_scale(double group_velocity, double systime_hr_unit) noexcept {
    constexpr double large = 1e100;
    return group_velocity >= 0 && group_velocity < large && systime_hr_unit >= 0 &&
           systime_hr_unit < large;
}

} // namespace

std::uint32_t mta_history::zone_count(std::uint32_t mta_zones, double gate_high,
                                      double unambiguous_range) noexcept {
    if (mta_zones != 0) {
        return std::min(mta_zones, zone_limit);
    }
    const double zones = std::floor(std::fabs(gate_high / unambiguous_range)) + 1;
    return std::min(saturate<std::uint32_t>(zones), zone_limit);
}

void mta_history::resize(std::size_t entries) noexcept {
    size_ = std::min<std::size_t>(entries, std::size_t{zone_limit} + 1);
    filled_ = std::min(filled_, size_);
}

/// Doubles the ring; the entries keep their order, the newest comes first.
void mta_history::grow() {
    const std::size_t room = std::max(first_ring, 2 * ticks_.size());
    std::vector<std::uint64_t> ticks(room);
    std::vector<mta_shot> shots(room);
    for (std::size_t n = 0; n < filled_; ++n) {
        ticks[n] = ticks_[(newest_ + n) & mask_];
        shots[n] = shots_[(newest_ + n) & mask_];
    }
    ticks_.swap(ticks);
    shots_.swap(shots);
    mask_ = room - 1;
    newest_ = 0;
}

void mta_history::push(const mta_shot& shot) {
    if (size_ == 0) {
        return;
    }
    const std::uint64_t before = ticks_of(0);
    const std::size_t kept = std::min(filled_, size_ - 1);
    if (kept == ticks_.size()) {
        grow();
    }
    newest_ = (newest_ - 1) & mask_;
    ticks_[newest_] = shot.ticks;
    shots_[newest_] = shot;
    filled_ = kept + 1;
    ordered_ = shot.ticks >= before ? std::min(ordered_, kept) + 1 : 1;
}

const mta_shot& mta_history::operator[](std::size_t n) const noexcept {
    static const mta_shot cleared;
    const std::size_t i = size_ != 0 ? std::min(n, size_ - 1) : 0;
    return i < filled_ ? shots_[(newest_ + i) & mask_] : cleared;
}

double mta_history::range_in_zone(double range, std::size_t zone, double group_velocity,
                                  double systime_hr_unit) const noexcept {
    return zone == 0
               ? range
               : range_behind(range, ticks_of(0) - ticks_of(zone), group_velocity, systime_hr_unit);
}

std::optional<mta_history::located_echo>
mta_history::search(double range, double gate_low, double gate_high, double group_velocity,
                    double systime_hr_unit) const noexcept {
    if (!(gate_low <= gate_high)) {
        return std::nullopt;
    }
    // Behind the shots all entries are alike, so that the first of them stands for all.
    const std::size_t end = std::min(size_, filled_ + 1);
    const std::size_t ordered = std::min(ordered_, filled_);
    std::size_t zone = 0;
    for (; zone < std::min(end, near_zones); ++zone) {
        const double r = range_in_zone(range, zone, group_velocity, systime_hr_unit);
        if (gate_low <= r && r <= gate_high) {
            return located_echo{static_cast<std::uint16_t>(zone), r};
        }
    }
    if (zone < ordered && is_rising_scale(group_velocity, systime_hr_unit)) {
        // The ranges rise from zone to zone: skip those below the gate, and those above it.
        std::size_t above = ordered;
        while (zone < above) {
            const std::size_t middle = zone + (above - zone) / 2;
            if (range_in_zone(range, middle, group_velocity, systime_hr_unit) >= gate_low) {
                above = middle;
            } else {
                zone = middle + 1;
            }
        }
        if (zone < ordered &&
            range_in_zone(range, zone, group_velocity, systime_hr_unit) > gate_high) {
            zone = ordered;
        }
    }
    for (; zone < end; ++zone) {
        const double r = range_in_zone(range, zone, group_velocity, systime_hr_unit);
        if (gate_low <= r && r <= gate_high) {
            return located_echo{static_cast<std::uint16_t>(zone), r};
        }
    }
    return std::nullopt;
}

mta_history::located_echo mta_history::locate(double range, std::uint32_t zones,
                                              double group_velocity,
                                              double systime_hr_unit) const noexcept {
    std::size_t zone = zones;
    if (range >= 0 && zone > 0) {
        --zone;
    }
    zone = size_ != 0 ? std::min(zone, size_ - 1) : 0;
    // An entry without a shot has 0 ticks, which wrap to the largest number here.
    const bool fired_before = ticks_of(zone) - 1 < ticks_of(0);
    return {static_cast<std::uint16_t>(zone),
            fired_before ? range_in_zone(range, zone, group_velocity, systime_hr_unit)
                         : std::numeric_limits<double>::quiet_NaN()};
}

} // namespace scanlib
