#include "scanlib/mirrorwheel_nodding.hpp"

#include "scanlib/json_members.hpp"

namespace scanlib {

mirrorwheel_nodding::mirrorwheel_nodding(vector3* beam_origin_out, vector3* beam_direction_out)
    : mirrorwheel(beam_origin_out, beam_direction_out) {
    initialise();
}

mirrorwheel_nodding::mirrorwheel_nodding(const mirrorwheel& wheel) : mirrorwheel(wheel) {}

std::uint32_t mirrorwheel_nodding::kind() const {
    return kind_mirrorwheel_nodding;
}

void mirrorwheel_nodding::initialise() {
    mirrorwheel::initialise();
    nodding_normal_ = turning_normal(nodding_facet.normal, nodding_axis_direction);
}

void mirrorwheel_nodding::set_angles(std::uint32_t facet_index, double line, double frame) {
    reflect(facet_index, line, frame);
    const vector3 g = nodding_normal_.turned(frame_turn_);
    const double to_mirror = dot(reflected_origin_ - nodding_axis_origin, g) - nodding_facet.dist;
    const vector3 origin = reflected_origin_ - 2 * to_mirror * g;
    *beam_direction_out_ = reflected_direction_ - 2 * dot(reflected_direction_, g) * g;
    *beam_origin_out_ = origin;
}

void mirrorwheel_nodding::write_members(json_writer& out) const {
    mirrorwheel::write_members(out);
    out.array("nodding_axis_origin", nodding_axis_origin)
        .array("nodding_axis_direction", nodding_axis_direction)
        .key("nodding_facet")
        .begin_object()
        .array("normal", nodding_facet.normal)
        .member("dist", nodding_facet.dist)
        .end_object();
}

void mirrorwheel_nodding::read_members(const boost::property_tree::ptree& tree) {
    mirrorwheel::read_members(tree);
    members::read(tree, "nodding_axis_origin", nodding_axis_origin);
    members::read(tree, "nodding_axis_direction", nodding_axis_direction);
    if (const members::ptree* facet_members = members::find(tree, "nodding_facet")) {
        members::require(*facet_members, "normal", nodding_facet.normal);
        members::require(*facet_members, "dist", nodding_facet.dist);
    }
}

} // namespace scanlib
