#include "scanlib/gimbalmountmirror.hpp"

#include "scanlib/json_members.hpp"

namespace scanlib {

gimbalmountmirror::gimbalmountmirror(vector3* beam_origin_out, vector3* beam_direction_out)
    : scanmech(beam_origin_out, beam_direction_out) {
    initialise();
}

std::uint32_t gimbalmountmirror::kind() const {
    return kind_gimbalmountmirror;
}

void gimbalmountmirror::initialise() {
    scanmech::initialise();
    facet_ = turning_normal(facet_direction, line_mirror_axis_direction);
}

void gimbalmountmirror::set_counts(std::uint32_t line, std::uint32_t frame,
                                   std::uint32_t /*segment*/) {
    line_angle = line * line_unit_;
    frame_angle = frame * frame_unit_;
    facet = 0;
    set_angles(facet, line_angle, frame_angle);
}

void gimbalmountmirror::set_angles(std::uint32_t /*facet_index*/, double line, double frame) {
    turn(line, frame);
    const vector3 n = facet_.turned(line_turn_);
    const vector3 of_mirror = line_mirror_axis_origin + dist * n;
    const double to_mirror = dot(of_mirror - frame_mirror_axis_origin, n);

    // The sum in the bracket is how the instruments' geometry is told. It is the rotation about the
    // frame axis as long as the two axes keep the normal perpendicular to the latter.
    const vector3 along = dot(n, frame_mirror_axis_direction) * frame_mirror_axis_direction;
    const vector3 turned = frame_turn_.cosine * (n + along) + along +
                           frame_turn_.sine * cross(frame_mirror_axis_direction, n);

    const vector3 turned_point = frame_mirror_axis_origin + to_mirror * turned;
    const vector3 origin = laser_origin + 2 * dot(turned_point - laser_origin, turned) * turned;
    *beam_direction_out_ = laser_direction - 2 * dot(laser_direction, turned) * turned;
    *beam_origin_out_ = origin;
}

void gimbalmountmirror::write_members(json_writer& out) const {
    scanmech::write_members(out);
    out.array("laser_origin", laser_origin)
        .array("laser_direction", laser_direction)
        .array("line_mirror_axis_origin", line_mirror_axis_origin)
        .array("line_mirror_axis_direction", line_mirror_axis_direction)
        .array("frame_mirror_axis_origin", frame_mirror_axis_origin)
        .array("frame_mirror_axis_direction", frame_mirror_axis_direction)
        .array("facet_direction", facet_direction)
        .member("dist", dist);
}

void gimbalmountmirror::read_members(const boost::property_tree::ptree& tree) {
    scanmech::read_members(tree);
    members::read(tree, "laser_origin", laser_origin);
    members::read(tree, "laser_direction", laser_direction);
    members::read(tree, "line_mirror_axis_origin", line_mirror_axis_origin);
    members::read(tree, "line_mirror_axis_direction", line_mirror_axis_direction);
    members::read(tree, "frame_mirror_axis_origin", frame_mirror_axis_origin);
    members::read(tree, "frame_mirror_axis_direction", frame_mirror_axis_direction);
    members::read(tree, "facet_direction", facet_direction);
    members::read(tree, "dist", dist);
}

} // namespace scanlib
