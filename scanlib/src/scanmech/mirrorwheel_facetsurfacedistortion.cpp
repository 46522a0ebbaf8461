#include "scanlib/mirrorwheel_facetsurfacedistortion.hpp"

#include "nodes.hpp"
#include "scanlib/json_members.hpp"

namespace scanlib {

void facet_surface_wheel::initialise() {
    mirrorwheel::initialise();
    vector3 undistorted = beam_direction_0;
    if (undistorted == vector3{0, 0, 0}) {
        const vector3& n = facets.front().normal;
        undistorted = laser_direction - 2 * dot(laser_direction, n) * n;
    }
    table_.build_turn(nodes, rotation_axis_for_s_t_axes, undistorted, facet_count(),
                      "facetsurfacedistortion table too small");
}

void facet_surface_wheel::write_members(json_writer& out) const {
    mirrorwheel::write_members(out);
    out.member("facet_distance", facet_distance);
    write_nodes(out, nodes);
    if (beam_direction_0 != vector3{0, 0, 0}) {
        out.array("beam_direction_0", beam_direction_0);
    }
    out.array("rotation_axis_for_s_t_axes", rotation_axis_for_s_t_axes);
}

void facet_surface_wheel::read_members(const boost::property_tree::ptree& tree) {
    turn_distorted_wheel::read_members(tree);
    members::read(tree, "facet_distance", facet_distance);
    members::read(tree, "rotation_axis_for_s_t_axes", rotation_axis_for_s_t_axes);
}

mirrorwheel_facetsurfacedistortion::mirrorwheel_facetsurfacedistortion(vector3* beam_origin_out,
                                                                       vector3* beam_direction_out)
    : facet_surface_wheel(beam_origin_out, beam_direction_out) {}

mirrorwheel_facetsurfacedistortion::mirrorwheel_facetsurfacedistortion(const mirrorwheel& wheel)
    : facet_surface_wheel(wheel) {}

std::uint32_t mirrorwheel_facetsurfacedistortion::kind() const {
    return kind_mirrorwheel_facetsurfacedistortion;
}

mirrorwheel_facetsurfacedistortion_D::mirrorwheel_facetsurfacedistortion_D(
    vector3* beam_origin_out, vector3* beam_direction_out)
    : facet_surface_wheel(beam_origin_out, beam_direction_out) {}

mirrorwheel_facetsurfacedistortion_D::mirrorwheel_facetsurfacedistortion_D(const mirrorwheel& wheel)
    : facet_surface_wheel(wheel) {}

std::uint32_t mirrorwheel_facetsurfacedistortion_D::kind() const {
    return kind_mirrorwheel_facetsurfacedistortion_D;
}

} // namespace scanlib
