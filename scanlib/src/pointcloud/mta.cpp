#include "scanlib/pointcloud.hpp"

// Echoes of earlier shots: a scanner that fires again before they are back (multiple time around).
namespace scanlib {

void pointcloud::set_mta_ambiguity(const std::uint16_t* zones, std::size_t zone_count, float low,
                                   float high) {
    mta_fixed = true;
    mta_zones = 0;
    gate_low = low;
    gate_high = high;
    mta_alternatives.assign(zones, zones + zone_count);
    alternatives.resize(zone_count);
    alternatives_aside_.resize(zone_count);
    for (auto& list : alternatives) {
        list.resize(targets.size());
    }
    if (mta_enabled) {
        resize_history();
    }
}

/// Makes room for the shots of all zones, and for the one that an echo before the newest shot
/// belongs to.
void pointcloud::resize_history() {
    history.resize(std::size_t{mta_history::zone_count(mta_zones, gate_high, unambiguous_range)} +
                   1);
}

template<class Settings>
void pointcloud::take_mta_settings(const Settings& p) {
    mta_enabled = true;
    unambiguous_range = p.unambiguous_range();
    if (!mta_fixed) {
        mta_zones = p.mta_zones();
        gate_low = p.gate_low();
        gate_high = p.gate_high();
    }
    resize_history();
}

void pointcloud::on_mta_settings(packets::mta_settings& p) {
    take_mta_settings(p);
}

void pointcloud::on_mta_settings_1(packets::mta_settings_1& p) {
    take_mta_settings(p);
}

void pointcloud::on_mta_settings_3(packets::mta_settings_3& p) {
    if (p.mode() > 1) {
        take_mta_settings(p);
        continue_chain = false;
    }
}

void pointcloud::remember_shot(std::uint64_t ticks) {
    if (mta_enabled) {
        history.push({facet, segment, line_angle, frame_angle, ticks, beam_origin, beam_direction,
                      time, time_internal});
    }
}

/// Puts an earlier shot in the place of the one at hand.
void pointcloud::recall_shot(std::size_t entry) noexcept {
    const mta_shot& shot = history[entry];
    facet = shot.facet;
    segment = shot.segment;
    line_angle = shot.line_angle;
    frame_angle = shot.frame_angle;
    beam_origin = shot.beam_origin;
    beam_direction = shot.beam_direction;
    time = shot.time;
    time_internal = shot.time_internal;
}

} // namespace scanlib
