#pragma once

#include "scanlib/scanmech.hpp"

#include <memory>

namespace scanlib {

/// Makes a scanner model from its JSON object, by the word under "kind", reads its members and
/// initialises it. Members that the object does not name keep the class's defaults.
///
/// Throws std::runtime_error: "scanmech::create: unknown kind" for a word that stands for no class
/// or is missing, a text that names the member for one that is malformed, and what the class's
/// `initialise` throws.
std::unique_ptr<scanmech> scanmech_from_meta(const boost::property_tree::ptree& tree,
                                             vector3* beam_origin_out, vector3* beam_direction_out);

/// Overwrites the members of a model that a JSON object names and initialises the model again. The
/// object's word plays no part. Throws as above.
void read_meta(scanmech& mech, const boost::property_tree::ptree& tree);

} // namespace scanlib
