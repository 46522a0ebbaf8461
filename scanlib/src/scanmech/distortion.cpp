#include "scanlib/distortion.hpp"

#include "nodes.hpp"
#include "scanlib/eval_bspl.hpp"
#include "scanlib/json_members.hpp"

#include <array>
#include <cmath>
#include <numbers>
#include <stdexcept>

namespace scanlib {

namespace {

constexpr double turn = 2 * std::numbers::pi;

/// Values of one of the two angles of the nodes at the given places of the turn.
std::vector<double> spline(const std::vector<distortion_node>& nodes,
                           double distortion_node::*angle, std::span<const double> places) {
    std::vector<double> knots;
    std::vector<double> values;
    knots.reserve(nodes.size());
    values.reserve(nodes.size());
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        knots.push_back(static_cast<double>(i) * turn / static_cast<double>(nodes.size()));
        values.push_back(nodes[i].*angle);
    }
    std::vector<double> out(places.size());
    eval_bspl(out, places, knots, values);
    return out;
}

/// The rotation by the angles of a node, the one about the t axis first.
quaternion bend(double s_angle, const vector3& s_axis, double t_angle, const vector3& t_axis) {
    return rotation_about(s_axis, s_angle) * rotation_about(t_axis, t_angle);
}

} // namespace

void distortion_table::build_window(const std::vector<distortion_node>& nodes,
                                    const vector3& s_axis, const vector3& t_axis) {
    std::vector<quaternion> built;
    built.reserve(nodes.size());
    for (const distortion_node& node : nodes) {
        built.push_back(bend(node.s_rot_angle, s_axis, node.t_rot_angle, t_axis));
    }
    rotations_ = std::move(built);
}

void distortion_table::build_turn(const std::vector<distortion_node>& nodes, const vector3& axis,
                                  const vector3& beam_direction_0, std::uint32_t teeth,
                                  const char* too_small) {
    if (nodes.size() < 4) {
        throw std::runtime_error(too_small);
    }
    const double tooth = turn / (teeth == 0 ? 1 : teeth);
    std::array<double, turn_entries> places{};
    for (std::size_t k = 0; k < turn_entries; ++k) {
        const double angle = static_cast<double>(k) * step;
        places[k] = teeth == 0 ? angle : std::fmod(angle, tooth);
    }
    const std::vector<double> s_angles = spline(nodes, &distortion_node::s_rot_angle, places);
    const std::vector<double> t_angles = spline(nodes, &distortion_node::t_rot_angle, places);

    const vector3 across = cross(axis, beam_direction_0);
    const vector3 t_axis = 1 / std::sqrt(dot(across, across)) * across;
    const vector3 s_axis = cross(beam_direction_0, t_axis);
    std::vector<quaternion> built;
    built.reserve(turn_entries);
    for (std::size_t k = 0; k < turn_entries; ++k) {
        const quaternion r = rotation_about(axis, static_cast<double>(k) * step);
        built.push_back(bend(s_angles[k], rotated(r, s_axis), t_angles[k], rotated(r, t_axis)));
    }
    rotations_ = std::move(built);
}

void window_distortion::bend_by_window(vector3& direction) const noexcept {
    const double along = dot(direction, s_axis);
    if (along > angle_sin_min) {
        window_table_.turn_at((along - angle_sin_min) / angle_sin_inc, direction);
    }
}

void window_distortion::write_window(json_writer& out) const {
    out.array("t_axis", t_axis)
        .array("s_axis", s_axis)
        .member("angle_sin_min", angle_sin_min)
        .member("angle_sin_inc", angle_sin_inc);
}

void window_distortion::read_window(const boost::property_tree::ptree& tree) {
    members::read(tree, "t_axis", t_axis);
    members::read(tree, "s_axis", s_axis);
    members::read(tree, "angle_sin_min", angle_sin_min);
    members::read(tree, "angle_sin_inc", angle_sin_inc);
    read_nodes(tree, nodes);
}

void write_nodes(json_writer& out, const std::vector<distortion_node>& nodes) {
    out.key("nodes").begin_array();
    for (const distortion_node& node : nodes) {
        out.begin_object()
            .member("s_rot_angle", node.s_rot_angle)
            .member("t_rot_angle", node.t_rot_angle)
            .end_object();
    }
    out.end_array();
}

void read_nodes(const boost::property_tree::ptree& tree, std::vector<distortion_node>& nodes) {
    members::read_list(tree, "nodes", nodes, [](const members::ptree& element) {
        distortion_node node;
        members::require(element, "s_rot_angle", node.s_rot_angle);
        members::require(element, "t_rot_angle", node.t_rot_angle);
        return node;
    });
}

void write_cone_axis(json_writer& out, const vector3& axis) {
    out.array("cone_axis_directio", axis);
}

void read_cone_axis(const boost::property_tree::ptree& tree, vector3& axis) {
    members::read(tree, "cone_axis_direction", axis);
}

} // namespace scanlib
