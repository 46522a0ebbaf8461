#include "scanlib/mirrorwheel_fanbeam.hpp"

#include "scanlib/json_members.hpp"
#include "scanlib/quaternion.hpp"

#include <algorithm>

namespace scanlib {

mirrorwheel_fanbeam::mirrorwheel_fanbeam(vector3* beam_origin_out, vector3* beam_direction_out)
    : mirrorwheel(beam_origin_out, beam_direction_out), base_direction_(laser_direction) {}

mirrorwheel_fanbeam::mirrorwheel_fanbeam(const mirrorwheel& wheel)
    : mirrorwheel(wheel), base_direction_(laser_direction) {}

std::uint32_t mirrorwheel_fanbeam::kind() const {
    return kind_mirrorwheel_fanbeam;
}

void mirrorwheel_fanbeam::initialise() {
    mirrorwheel::initialise();
    base_direction_ = laser_direction;
    directions_.clear();
    directions_.reserve(rotation_angles.size());
    for (const fan_angles& angles : rotation_angles) {
        const vector3 first =
            rotated(rotation_about(rotation_axis_0, angles.alpha_0), base_direction_);
        directions_.push_back(rotated(rotation_about(rotation_axis_1, angles.alpha_1), first));
    }
}

void mirrorwheel_fanbeam::set_angles(std::uint32_t facet_index, double line, double frame) {
    laser_direction = base_direction_;
    mirrorwheel::set_angles(facet_index, line, frame);
}

void mirrorwheel_fanbeam::select_beam(std::uint32_t i, std::uint32_t j) {
    if (!directions_.empty()) {
        const std::uint64_t entry = std::uint64_t{j} * num_angles_0 + i;
        laser_direction = directions_[std::min<std::uint64_t>(entry, directions_.size() - 1)];
    }
    mirrorwheel::set_angles(facet, line_angle, frame_angle);
}

void mirrorwheel_fanbeam::write_members(json_writer& out) const {
    mirrorwheel head(*this);
    head.laser_direction = base_direction_;
    head.write_members(out);
    out.member("num_angles_0", num_angles_0)
        .member("num_angles_1", num_angles_1)
        .array("rotation_axis_0", rotation_axis_0)
        .array("rotation_axis_1", rotation_axis_1)
        .key("rotation_angles")
        .begin_array();
    for (const fan_angles& angles : rotation_angles) {
        out.begin_object()
            .member("alpha_1", angles.alpha_1)
            .member("alpha_0", angles.alpha_0)
            .end_object();
    }
    out.end_array();
}

void mirrorwheel_fanbeam::read_members(const boost::property_tree::ptree& tree) {
    laser_direction = base_direction_; // not that of a selected laser
    mirrorwheel::read_members(tree);
    members::read(tree, "num_angles_0", num_angles_0);
    members::read(tree, "num_angles_1", num_angles_1);
    members::read(tree, "rotation_axis_0", rotation_axis_0);
    members::read(tree, "rotation_axis_1", rotation_axis_1);
    members::read_list(tree, "rotation_angles", rotation_angles, [](const members::ptree& element) {
        fan_angles angles;
        members::require(element, "alpha_0", angles.alpha_0);
        members::require(element, "alpha_1", angles.alpha_1);
        return angles;
    });
}

} // namespace scanlib
