#include "scanlib/mirrorwheel_windowdistortion.hpp"

#include "nodes.hpp"

namespace scanlib {

mirrorwheel_windowdistortion::mirrorwheel_windowdistortion(vector3* beam_origin_out,
                                                           vector3* beam_direction_out)
    : mirrorwheel(beam_origin_out, beam_direction_out) {}

mirrorwheel_windowdistortion::mirrorwheel_windowdistortion(const mirrorwheel& wheel)
    : mirrorwheel(wheel) {}

std::uint32_t mirrorwheel_windowdistortion::kind() const {
    return kind_mirrorwheel_windowdistortion;
}

void mirrorwheel_windowdistortion::initialise() {
    mirrorwheel::initialise();
    build_window();
}

void mirrorwheel_windowdistortion::set_angles(std::uint32_t facet_index, double line,
                                              double frame) {
    mirrorwheel::set_angles(facet_index, line, frame);
    bend_by_window(*beam_direction_out_);
}

void mirrorwheel_windowdistortion::write_members(json_writer& out) const {
    mirrorwheel::write_members(out);
    write_nodes(out, nodes);
    write_window(out);
}

void mirrorwheel_windowdistortion::read_members(const boost::property_tree::ptree& tree) {
    mirrorwheel::read_members(tree);
    read_window(tree);
}

} // namespace scanlib
