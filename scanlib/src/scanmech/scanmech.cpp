#include "scanlib/scanmech.hpp"

#include "scanlib/json_members.hpp"

#include <numbers>

namespace scanlib {

namespace {

constexpr double pi = std::numbers::pi;

/// Angle of one count; a circle without counts gives 0.
double angle_unit(std::uint32_t circle_count) {
    return circle_count == 0 ? 0.0 : 2 * pi / circle_count;
}

} // namespace

scanmech::scanmech(vector3* beam_origin_out, vector3* beam_direction_out)
    : beam_origin_out_(beam_origin_out), beam_direction_out_(beam_direction_out) {
    *beam_origin_out_ = {};
    *beam_direction_out_ = {};
}

scanmech::~scanmech() = default;

std::uint32_t scanmech::kind() const {
    return kind_scanmech;
}

std::uint32_t scanmech::facet_count() const {
    return 0;
}

void scanmech::initialise() {
    line_unit_ = angle_unit(line_circle_count);
    frame_unit_ = angle_unit(frame_circle_count);
}

void scanmech::set_counts(std::uint32_t line, std::uint32_t frame, std::uint32_t segment) {
    line_angle = line * line_unit_;
    frame_angle = frame * frame_unit_;
    facet = segment;
    set_angles(facet, line_angle, frame_angle);
}

void scanmech::set_angles(std::uint32_t /*facet_index*/, double line, double frame) {
    turn(line, frame);
    *beam_origin_out_ = {};
    *beam_direction_out_ = {line_turn_.sine * frame_turn_.cosine,
                            line_turn_.sine * frame_turn_.sine, line_turn_.cosine};
}

void scanmech::position(vector3& out, double range) const {
    out = range * *beam_direction_out_ + *beam_origin_out_;
}

void scanmech::write_members(json_writer& out) const {
    out.member("range_unit", range_unit)
        .member("line_circle_count", line_circle_count)
        .member("frame_circle_count", frame_circle_count);
}

void scanmech::read_members(const boost::property_tree::ptree& tree) {
    members::read(tree, "range_unit", range_unit);
    members::read(tree, "line_circle_count", line_circle_count);
    members::read(tree, "frame_circle_count", frame_circle_count);
}

} // namespace scanlib
