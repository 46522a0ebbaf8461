#include <limits>

#include "scanlib/pointcloud.hpp"
#include "target_storage.hpp"

// Echoes as older instruments tell them: without reflectance, tables or zones.
namespace scanlib {

namespace {

constexpr float nan32 = std::numeric_limits<float>::quiet_NaN();

} // namespace

void pointcloud::on_laser_echo_qual(packets::laser_echo_qual& p) {
    if (notch.rejects(p.range_counter(), p.amplitude())) {
        return;
    }
    quality_deviation = p.deviation();
    quality_rising = flag_bit(p.flags(), 0);
    quality_pseudo = flag_bit(p.flags(), 2);
}

void pointcloud::on_laser_echo(packets::laser_echo& p) {
    if (!ready_for_echo() || rejected_by_notch(p.range_counter(), p.amplitude())) {
        return;
    }
    deliver_stored();
    target& t = next_target();
    t.echo_range = p.range_counter() * range_unit + delta_rg;
    fill_from_shot(t);
    place_on_beam(t, t.echo_range);
    t.amplitude = static_cast<float>(p.amplitude() * ampl_unit);
    t.reflectance = nan32;
    t.deviation = quality_deviation;
    t.is_rising = quality_rising;
    t.is_pseudo = quality_pseudo;
}

void pointcloud::on_laser_echo_sw(packets::laser_echo_sw& p) {
    if (!ready_for_echo() || rejected_by_notch(p.range_counter(), p.amplitude())) {
        return;
    }
    deliver_stored();
    target& t = next_target();
    t.echo_range = p.range_counter() * range_unit + delta_rg;
    fill_from_shot(t);
    place_on_beam(t, t.echo_range);
    t.amplitude = p.amplitude();
    t.reflectance = 0;
    t.deviation = 0;
    t.is_sw = 1;
    t.is_rising = 0;
    t.is_pseudo = 0;
}

} // namespace scanlib
