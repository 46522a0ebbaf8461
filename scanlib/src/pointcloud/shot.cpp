#include "scanlib/pointcloud.hpp"
#include "scanlib/saturate.hpp"

#include "shot_time.hpp"
#include "target_storage.hpp"

#include <cmath>
#include <limits>

namespace scanlib {

/// Takes over what the scanner model tells of the shot beside the beam, which it wrote itself.
void pointcloud::take_beam_of(const scanmech& mech) noexcept {
    facet = mech.facet;
    line_angle = mech.line_angle;
    frame_angle = mech.frame_angle;
}

/// Sets the beam of the shot at hand.
inline void pointcloud::aim() {
    scanmech* chosen = mech_of(segment);
    scanmech& mech = chosen != nullptr ? *chosen : embedded_mech;
    mech.set_counts(line_counter, frame_counter, segment);
    take_beam_of(mech);
}

/// What comes ahead of the time of any shot.
inline void pointcloud::begin_shot() {
    start_measurement();
    notch.start_shot(line_counter, frame_counter, notch_units());
    close_shot();
    shot_open = true;
}

template<class Count>
inline void pointcloud::open_shot(Count ticks) {
    begin_shot();
    take_shot_time(ticks);
    segment = segment_pending;
    aim();
    if constexpr (sizeof(Count) == sizeof(std::uint64_t)) {
        remember_shot(ticks);
    }
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
    if (sync_to_pps_ && !first_shot_released) {
        // The synchronisation may have become valid in the midst of this shot.
        first_shot_released = true;
        note_held_back();
    } else if (dyntrig.present()) {
        release_triggered();
    } else if (target_count != 0) {
        on_echo_ready(target_count == 1 ? echo_position::single : echo_position::last);
    } else if (!std::isnan(background_radiation)) {
        store_pseudo_target();
        on_echo_ready(echo_position::none);
    }
}

void pointcloud::close_shot() {
    if (held_back()) {
        note_held_back();
    } else {
        end_of_targets();
        if (mta_enabled) {
            // The echoes may have put earlier shots in its place.
            recall_shot(0);
        }
    }
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

void pointcloud::on_laser_shot_utctime_origin_direction(
    packets::laser_shot_utctime_origin_direction& p) {
    if (p.validity() != 0) {
        return;
    }
    begin_shot();
    time = static_cast<double>(p.utc_counter()) * utc_unit;
    time_internal = time;
    segment = segment_pending;
    facet = 0;
    line_angle = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        beam_origin[i] = p.origin(i) * origin_unit;
        beam_direction[i] = p.direction(i) * direction_unit;
    }
    remember_shot(saturate<std::uint64_t>(time / systime_hr_unit));
    on_shot();
}

} // namespace scanlib
