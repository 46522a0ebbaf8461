#include "scanlib/wedge.hpp"

#include "scanlib/json_members.hpp"

#include <cmath>

namespace scanlib {

wedge::wedge(vector3* beam_origin_out, vector3* beam_direction_out)
    : scanmech(beam_origin_out, beam_direction_out) {
    initialise();
}

std::uint32_t wedge::kind() const {
    return kind_wedge;
}

void wedge::initialise() {
    scanmech::initialise();
    facet1_ = turning_normal(facet1_direction, wedge_axis_direction);
    facet2_ = turning_normal(facet2_direction, wedge_axis_direction);
    k_ = refraction_index * refraction_index - 1;
    to_first_ = wedge_axis_origin - laser_origin;
    to_second_ = to_first_ - dist * wedge_axis_direction;
}

void wedge::set_counts(std::uint32_t line, std::uint32_t /*frame*/, std::uint32_t segment) {
    line_angle = line * line_unit_;
    frame_angle = 0;
    facet = segment;
    set_angles(facet, line_angle, frame_angle);
}

void wedge::set_angles(std::uint32_t /*facet_index*/, double line, double frame) {
    turn(line, frame);
    const vector3 n1 = facet1_.turned(line_turn_);
    const vector3 n2 = facet2_.turned(line_turn_);

    const double c1 = dot(laser_direction, n1);
    const vector3 h1 = dot(to_first_, n1) / c1 * laser_direction;
    const vector3 inside = laser_direction - (c1 + std::sqrt(c1 * c1 + k_)) * n1;

    const double c2 = dot(inside, n2);
    const vector3 h2 = dot(to_second_ - h1, n2) / c2 * inside;
    const vector3 direction = inside + (std::sqrt(c2 * c2 - k_) - c2) * n2;

    const double optical_path = std::sqrt(dot(h2, h2)) * refraction_index + std::sqrt(dot(h1, h1));
    const vector3 origin = laser_origin + h1 + h2 - optical_path * direction;
    *beam_direction_out_ = direction;
    *beam_origin_out_ = origin;
}

void wedge::write_head(json_writer& out) const {
    scanmech::write_members(out);
    out.array("laser_origin", laser_origin).array("laser_direction", laser_direction);
}

void wedge::write_wedge(json_writer& out) const {
    out.array("wedge_axis_origin", wedge_axis_origin)
        .array("wedge_axis_direction", wedge_axis_direction)
        .array("facet1_direction", facet1_direction)
        .array("facet2_direction", facet2_direction)
        .member("dist", dist)
        .member("refraction_index", refraction_index);
}

void wedge::write_members(json_writer& out) const {
    write_head(out);
    write_wedge(out);
}

void wedge::read_members(const boost::property_tree::ptree& tree) {
    scanmech::read_members(tree);
    members::read(tree, "laser_origin", laser_origin);
    members::read(tree, "laser_direction", laser_direction);
    members::read(tree, "wedge_axis_origin", wedge_axis_origin);
    members::read(tree, "wedge_axis_direction", wedge_axis_direction);
    members::read(tree, "facet1_direction", facet1_direction);
    members::read(tree, "facet2_direction", facet2_direction);
    members::read(tree, "dist", dist);
    members::read(tree, "refraction_index", refraction_index);
}

} // namespace scanlib
