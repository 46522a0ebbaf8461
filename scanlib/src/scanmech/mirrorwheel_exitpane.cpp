#include "scanlib/mirrorwheel_exitpane.hpp"

#include "scanlib/json_members.hpp"

#include <cmath>

namespace scanlib {

mirrorwheel_exitpane::mirrorwheel_exitpane(vector3* beam_origin_out, vector3* beam_direction_out)
    : mirrorwheel(beam_origin_out, beam_direction_out) {}

mirrorwheel_exitpane::mirrorwheel_exitpane(const mirrorwheel& wheel) : mirrorwheel(wheel) {}

std::uint32_t mirrorwheel_exitpane::kind() const {
    return kind_mirrorwheel_exitpane;
}

void mirrorwheel_exitpane::initialise() {
    mirrorwheel::initialise();
    k_ = (1 - exit_pane_index) * (1 + exit_pane_index);
    shift_ = exit_pane_thickness * exit_pane_direction;
    for (std::size_t row = 0; row < 3; ++row) {
        m_[row] = -shift_[row] * exit_pane_direction;
        m_[row][row] += exit_pane_thickness * k_;
    }
}

void mirrorwheel_exitpane::set_angles(std::uint32_t facet_index, double line, double frame) {
    reflect(facet_index, line, frame);
    const vector3& d = reflected_direction_;
    const double c = dot(d, exit_pane_direction);
    const double s = 1 / std::sqrt(c * c - k_);
    const vector3 moved = s * vector3{dot(m_[0], d), dot(m_[1], d), dot(m_[2], d)} + shift_;
    send_turned(reflected_origin_ + moved, d);
}

void mirrorwheel_exitpane::write_members(json_writer& out) const {
    mirrorwheel::write_members(out);
    out.member("exit_pane_thickness", exit_pane_thickness)
        .member("exit_pane_index", exit_pane_index)
        .array("exit_pane_direction", exit_pane_direction);
}

void mirrorwheel_exitpane::read_members(const boost::property_tree::ptree& tree) {
    mirrorwheel::read_members(tree);
    members::read(tree, "exit_pane_thickness", exit_pane_thickness);
    members::read(tree, "exit_pane_index", exit_pane_index);
    members::read(tree, "exit_pane_direction", exit_pane_direction);
}

} // namespace scanlib
