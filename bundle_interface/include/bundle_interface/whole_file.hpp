#pragma once

#include <string>

namespace Holdfast {

/// Makes `bytes` the content of the file at `path`, in place of an earlier one. Returns an empty
/// text, or the system's reason why it could not be written; then no part of it stays.
std::string writeWholeFile(const std::string& path, const std::string& bytes);

} // namespace Holdfast
