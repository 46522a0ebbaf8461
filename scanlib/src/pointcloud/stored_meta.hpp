#pragma once

#include "scanlib/pointcloud.hpp"

#include <boost/property_tree/ptree.hpp>

namespace scanlib {

/// The parameters that the stream carries as JSON, until the measurement starts.
struct pointcloud::stored_meta {
    boost::property_tree::ptree tree;
};

} // namespace scanlib
