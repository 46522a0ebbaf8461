#pragma once

#include <string>

namespace scanlib {

/// What an authority without ":" is.
enum class lone_part { host, port };

/// Sets what a URI's authority tells of host and port; the rest keeps its value. Throws
/// std::runtime_error ("Invalid address/service syntax.") when one is empty then.
void split_authority(const std::string& authority, lone_part lone, std::string& host,
                     std::string& port);

} // namespace scanlib
