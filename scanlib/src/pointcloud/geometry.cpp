#include "scanlib/mirrorwheel.hpp"
#include "scanlib/pointcloud.hpp"
#include "scanlib/scanlib_exception.hpp"

namespace scanlib {

namespace {

/// The vector that a fixed array of a packet holds.
template<class Numbers>
vector3 vector_of(const Numbers& numbers) {
    return {numbers[0], numbers[1], numbers[2]};
}

} // namespace

/// Takes a complete model into the list, and its beam for the present counts.
void pointcloud::add_geometry(std::unique_ptr<scanmech> mech) {
    if (mechs.size() == geometry_limit) {
        throw scanlib_exception("pointcloud: too many scanner geometries", "pointcloud", __LINE__);
    }
    mech->set_counts(line_counter, frame_counter, 0);
    mechs.push_back(std::move(mech));
}

void pointcloud::on_device_geometry(packets::device_geometry& p, const std::uint32_t* /*end*/) {
    auto mech = std::make_unique<mirrorwheel>(&beam_origin, &beam_direction);
    mech->range_unit = embedded_mech.range_unit;
    mech->line_circle_count = embedded_mech.line_circle_count;
    mech->frame_circle_count = embedded_mech.frame_circle_count;
    mech->laser_origin = vector_of(p.laser_origin());
    mech->laser_direction = vector_of(p.laser_direction());
    mech->mirror_axis_origin = vector_of(p.mirror_axis_origin());
    mech->mirror_axis_direction = vector_of(p.mirror_axis_direction());
    mech->line_angle_0 = p.line_angle_0();
    mech->facets.clear();
    for (std::size_t i = 0; i < p.size(); ++i) {
        const auto element = p[i];
        mech->facets.push_back({vector_of(element.normal()), element.dist()});
    }
    mech->initialise();
    facet_count = mech->facet_count();
    add_geometry(std::move(mech));
}

} // namespace scanlib
