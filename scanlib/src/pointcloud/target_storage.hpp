#pragma once

#include <cstdint>

#include "scanlib/pointcloud.hpp"

/// The steps that all kinds of echoes share, small enough to be part of each.
namespace scanlib {

/// Bit `n` of an echo's flags.
constexpr std::uint8_t flag_bit(unsigned flags, unsigned n) {
    return static_cast<std::uint8_t>(flags >> n & 1);
}

inline scanmech* pointcloud::mech_of(std::uint32_t scan_segment) const noexcept {
    const std::size_t n = mechs.size();
    if (n == 0) {
        return nullptr;
    }
    return mechs[scan_segment < n ? scan_segment : scan_segment % n].get();
}

inline bool pointcloud::ready_for_echo() {
    if (!shot_open) [[unlikely]] {
        note_loss(loss::echo_without_shot);
        return false;
    }
    return true;
}

inline bool pointcloud::rejected_by_notch(std::int32_t range_counter, std::uint16_t amplitude) {
    if (notch.rejects(range_counter, amplitude)) [[unlikely]] {
        note_loss(loss::echo_in_notch);
        return true;
    }
    return false;
}

/// Reports the target stored before the one that comes now.
inline void pointcloud::deliver_stored() {
    if (target_count == 0 || dyntrig.present()) {
        return;
    }
    if (held_back()) [[unlikely]] {
        note_loss(loss::target_held_back);
        return;
    }
    on_echo_ready(target_count == 1 ? echo_position::first : echo_position::interior);
}

/// Room for one more target. What its slot held before stays there until it is overwritten.
inline target& pointcloud::next_target() {
    if (target_count == targets.size()) [[unlikely]] {
        targets.emplace_back();
    }
    for (auto& list : alternatives) {
        if (target_count == list.size()) [[unlikely]] {
            list.emplace_back();
        }
    }
    return targets[target_count++];
}

inline void pointcloud::fill_from_shot(target& t) const noexcept {
    t.time = time;
    t.time_internal = time_internal;
    t.background_radiation = background_radiation;
    t.is_pps_locked = shot_sync.locked();
    t.facet = facet;
    t.segment = segment;
    t.lineend = 0;
    t.mta_zone = 0;
}

inline void pointcloud::place_on_beam(target& t, double range) const noexcept {
    for (std::size_t i = 0; i < 3; ++i) {
        t.vertex[i] = static_cast<float>(range * beam_direction[i] + beam_origin[i]);
    }
}

} // namespace scanlib
