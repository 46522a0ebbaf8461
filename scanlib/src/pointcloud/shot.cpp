#include "scanlib/pointcloud.hpp"

#include <cmath>
#include <limits>

namespace scanlib {

scanmech* pointcloud::mech_of(std::uint32_t scan_segment) const noexcept {
    const std::size_t n = mechs.size();
    if (n == 0) {
        return nullptr;
    }
    return mechs[scan_segment < n ? scan_segment : scan_segment % n].get();
}

template<class Count>
inline void pointcloud::take_shot_time(Count ticks) {
    const bool was_locked = shot_sync.locked();
    const sync_time t = shot_sync.convert(ticks);
    time = sync_to_pps_ ? t.external : t.internal;
    time_internal = t.internal;
    if (was_locked && !shot_sync.locked()) [[unlikely]] {
        on_sync_lost();
    }
}

/// Sets the beam, which the scanner model writes into this object.
inline void pointcloud::aim() {
    scanmech* chosen = mech_of(segment);
    scanmech& mech = chosen != nullptr ? *chosen : embedded_mech;
    mech.set_counts(line_counter, frame_counter, segment);
    facet = mech.facet;
    line_angle = mech.line_angle;
    frame_angle = mech.frame_angle;
}

template<class Count>
inline void pointcloud::open_shot(Count ticks) {
    start_measurement();
    close_shot();
    shot_open = true;
    take_shot_time(ticks);
    segment = segment_pending;
    aim();
    on_shot();
}

/// Counts what a shot that is not delivered loses.
void pointcloud::note_held_back() noexcept {
    if (shot_open) {
        note_loss(loss::shot_held_back);
    }
    if (target_count != 0) {
        note_loss(loss::target_held_back);
    }
}

/// Reports the last target of the shot, or that it has none.
inline void pointcloud::end_of_targets() {
    if (held_back()) {
        note_held_back();
    } else if (sync_to_pps_ && !first_shot_released) {
        // The synchronisation may have become valid in the midst of this shot.
        first_shot_released = true;
        note_held_back();
    } else if (target_count != 0) {
        on_echo_ready(target_count == 1 ? echo_position::single : echo_position::last);
    } else if (!std::isnan(background_radiation)) {
        store_pseudo_target();
        on_echo_ready(echo_position::none);
    }
}

void pointcloud::close_shot() {
    end_of_targets();
    if (shot_open) {
        on_shot_end();
    }
    shot_open = false;
    target_count = 0;
    quality_deviation = 0;
    quality_rising = 0;
    quality_pseudo = 0;
}

void pointcloud::on_laser_shot(packets::laser_shot& p) {
    open_shot(p.time_counter());
}

void pointcloud::on_laser_shot_1angle(packets::laser_shot_1angle& p) {
    line_counter = p.line_counter();
}

void pointcloud::on_laser_shot_2angles(packets::laser_shot_2angles& p) {
    frame_counter = p.frame_counter();
}

void pointcloud::on_laser_shot_2angles_rad(packets::laser_shot_2angles_rad& p) {
    line_counter = p.line_counter();
    frame_counter = p.frame_counter();
    background_radiation = p.background_radiation();
    open_shot(p.time_counter());
}

void pointcloud::on_laser_shot_6angles(packets::laser_shot_6angles& p) {
    line_counter = p.line_counter();
    frame_counter = p.frame_counter();
    background_radiation = std::numeric_limits<float>::quiet_NaN();
    open_shot(p.time_counter());
}

void pointcloud::on_laser_shot_2angles_hr(packets::laser_shot_2angles_hr& p) {
    line_counter = p.line_counter();
    frame_counter = p.frame_counter();
    open_shot(p.time_counter_hr());
}

} // namespace scanlib
