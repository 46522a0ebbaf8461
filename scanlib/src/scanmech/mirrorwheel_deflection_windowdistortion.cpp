#include "scanlib/mirrorwheel_deflection_windowdistortion.hpp"

#include "nodes.hpp"

namespace scanlib {

using window_model = mirrorwheel_deflection_windowdistortion;

window_model::mirrorwheel_deflection_windowdistortion(vector3* beam_origin_out,
                                                      vector3* beam_direction_out)
    : mirrorwheel_deflection(beam_origin_out, beam_direction_out) {}

window_model::mirrorwheel_deflection_windowdistortion(const mirrorwheel_deflection& wheel)
    : mirrorwheel_deflection(wheel) {}

std::uint32_t window_model::kind() const {
    return kind_mirrorwheel_deflection_windowdistortion;
}

void window_model::initialise() {
    mirrorwheel_deflection::initialise();
    build_window();
}

void window_model::set_angles(std::uint32_t facet_index, double line, double frame) {
    mirrorwheel_deflection::set_angles(facet_index, line, frame);
    bend_by_window(*beam_direction_out_);
}

void window_model::write_members(json_writer& out) const {
    // The nodes come before the deflection here. NOLINTNEXTLINE(bugprone-parent-virtual-call)
    mirrorwheel::write_members(out);
    write_nodes(out, nodes);
    write_deflection(out);
    write_window(out);
}

void window_model::read_members(const boost::property_tree::ptree& tree) {
    mirrorwheel_deflection::read_members(tree);
    read_window(tree);
}

} // namespace scanlib
