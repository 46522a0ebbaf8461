#pragma once

#include <string>

namespace Holdfast {

/// Makes `bytes` the content of the file at `path`, in place of an earlier one, in one step: until
/// then it is `path`.part. Devices and pipes are written as they are. Returns an empty text, or the
/// system's reason why it could not be written; then no part of it stays, and an earlier file does.
std::string writeWholeFile(const std::string& path, const std::string& bytes);

} // namespace Holdfast
