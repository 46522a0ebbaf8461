#pragma once

#include <string>

namespace host {

/// Why no file can be made in the folder, naming it; empty if one can.
std::string reason_folder_unwritable(const std::string& folder);

} // namespace host
