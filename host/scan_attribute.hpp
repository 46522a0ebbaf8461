#pragma once

#include "bundle_interface/k7_reader.hpp"

#include <optional>
#include <string>

namespace host {

/// An attribute of a slice's shots, if it is there and can be read.
std::optional<Skein::K7Attribute> scan_attribute(const Skein::K7Reader& file,
                                                 const std::string& slice, const std::string& name);

/// Type and serial number of the instrument, as far as they are told.
std::string instrument_name(const Skein::K7Reader& file, const std::string& slice);

} // namespace host
