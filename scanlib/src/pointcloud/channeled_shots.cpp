#include "scanlib/mirrorwheel_fanbeam.hpp"
#include "scanlib/pointcloud.hpp"
#include "scanlib/scanlib_exception.hpp"
#include "shot_time.hpp"
#include "target_storage.hpp"

// A shot of a scanner with many beams, and all its echoes, in one packet.
namespace scanlib {

mirrorwheel_fanbeam& pointcloud::fan_of_shot() const {
    auto* fan = dynamic_cast<mirrorwheel_fanbeam*>(mech_of(segment_pending));
    if (fan == nullptr) {
        throw scanlib_exception(
            "pointcloud::on_channeled_shot_echoes: the scanner is no mirrorwheel_fanbeam",
            "pointcloud", __LINE__);
    }
    return *fan;
}

void pointcloud::on_channeled_shot_echoes(packets::channeled_shot_echoes& p,
                                          const std::uint32_t* /*end*/) {
    mirrorwheel_fanbeam& fan = fan_of_shot();
    start_measurement();
    take_shot_time(p.time_counter());
    line_counter = p.line_counter();
    frame_counter = 0;
    fan.set_counts(line_counter, 0, 0);
    take_beam_of(fan);
    target_count = 0;
    on_shot();
    for (std::size_t i = 0; i < p.size(); ++i) {
        const auto e = p[i];
        fan.select_beam(p.angle_0(), e.angle_1());
        target& t = next_target();
        t.echo_range = e.range_counter() * range_unit;
        fill_from_shot(t);
        vector3 point;
        fan.position(point, t.echo_range);
        for (std::size_t k = 0; k < 3; ++k) {
            t.vertex[k] = static_cast<float>(point[k]);
        }
        t.amplitude = static_cast<float>(e.amplitude() * ampl_unit);
        t.reflectance = 0;
        t.deviation = e.deviation();
        t.is_rising = 0;
        t.is_pseudo = 0;
        on_echo_ready(i + 1 == p.size() ? echo_position::last : echo_position::interior);
    }
    on_shot_end();
}

} // namespace scanlib
