#pragma once

#include "scanlib/distortion.hpp"

/// Members that the models with a distortion have in common.
namespace scanlib {

void write_nodes(json_writer& out, const std::vector<distortion_node>& nodes);
void read_nodes(const boost::property_tree::ptree& tree, std::vector<distortion_node>& nodes);

/// The two do not agree on the member's name: what is written is not found again.
void write_cone_axis(json_writer& out, const vector3& axis);
void read_cone_axis(const boost::property_tree::ptree& tree, vector3& axis);

} // namespace scanlib
