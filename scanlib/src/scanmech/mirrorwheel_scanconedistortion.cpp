#include "scanlib/mirrorwheel_scanconedistortion.hpp"

#include "nodes.hpp"
#include "scanlib/json_members.hpp"

namespace scanlib {

turn_distorted_wheel::turn_distorted_wheel(const mirrorwheel& wheel) : mirrorwheel(wheel) {}

void turn_distorted_wheel::set_angles(std::uint32_t facet_index, double line, double frame) {
    mirrorwheel::set_angles(facet_index, line, frame);
    if (facet_table_.size() == 1) {
        table_.turn_at_angle(line, *beam_direction_out_);
    }
}

void turn_distorted_wheel::set_counts(std::uint32_t line, std::uint32_t frame,
                                      std::uint32_t segment) {
    mirrorwheel::set_counts(line, frame, segment);
    if (facet_table_.size() > 1) {
        line_angle = line * line_unit_;
        table_.turn_at_angle(line_angle, *beam_direction_out_);
    }
}

void turn_distorted_wheel::read_members(const boost::property_tree::ptree& tree) {
    mirrorwheel::read_members(tree);
    read_nodes(tree, nodes);
    members::read(tree, "beam_direction_0", beam_direction_0);
}

mirrorwheel_scanconedistortion::mirrorwheel_scanconedistortion(vector3* beam_origin_out,
                                                               vector3* beam_direction_out)
    : turn_distorted_wheel(beam_origin_out, beam_direction_out) {
    beam_direction_0 = {0, 0, 1};
}

mirrorwheel_scanconedistortion::mirrorwheel_scanconedistortion(const mirrorwheel& wheel)
    : turn_distorted_wheel(wheel) {
    beam_direction_0 = {0, 0, 1};
}

std::uint32_t mirrorwheel_scanconedistortion::kind() const {
    return kind_mirrorwheel_scanconedistortion;
}

void mirrorwheel_scanconedistortion::initialise() {
    mirrorwheel::initialise();
    table_.build_turn(nodes, cone_axis_direction, beam_direction_0, facet_count(),
                      "scanconedistortion table too small");
}

void mirrorwheel_scanconedistortion::write_members(json_writer& out) const {
    mirrorwheel::write_members(out);
    write_nodes(out, nodes);
    out.array("beam_direction_0", beam_direction_0);
    write_cone_axis(out, cone_axis_direction);
}

void mirrorwheel_scanconedistortion::read_members(const boost::property_tree::ptree& tree) {
    turn_distorted_wheel::read_members(tree);
    read_cone_axis(tree, cone_axis_direction);
}

} // namespace scanlib
