#include "scanlib/wedge_scanconedistortion.hpp"

#include "nodes.hpp"
#include "scanlib/json_members.hpp"

namespace scanlib {

wedge_scanconedistortion::wedge_scanconedistortion(vector3* beam_origin_out,
                                                   vector3* beam_direction_out)
    : wedge(beam_origin_out, beam_direction_out) {}

wedge_scanconedistortion::wedge_scanconedistortion(const wedge& base) : wedge(base) {}

std::uint32_t wedge_scanconedistortion::kind() const {
    return kind_wedge_scanconedistortion;
}

void wedge_scanconedistortion::initialise() {
    wedge::initialise();
    table_.build_turn(nodes, cone_axis_direction, beam_direction_0, 0,
                      "scanconedistortion table too small");
}

void wedge_scanconedistortion::set_angles(std::uint32_t facet_index, double line, double frame) {
    wedge::set_angles(facet_index, line, frame);
    table_.turn_at_angle(line, *beam_direction_out_);
}

void wedge_scanconedistortion::write_members(json_writer& out) const {
    write_head(out);
    write_nodes(out, nodes);
    out.array("beam_direction_0", beam_direction_0);
    write_wedge(out);
    write_cone_axis(out, cone_axis_direction);
}

void wedge_scanconedistortion::read_members(const boost::property_tree::ptree& tree) {
    wedge::read_members(tree);
    read_nodes(tree, nodes);
    members::read(tree, "beam_direction_0", beam_direction_0);
    read_cone_axis(tree, cone_axis_direction);
}

} // namespace scanlib
