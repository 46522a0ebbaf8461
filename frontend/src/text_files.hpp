#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace Riegl {

/// The path's wide text as UTF-8; an empty path gives an empty text. Throws std::range_error for a
/// text that cannot be converted.
std::string utf8_of(const std::filesystem::path& path);

/// Size of the file in bytes, -1 if it cannot be opened.
std::int64_t stream_size(const std::filesystem::path& path);

/// Appends `text` and a line feed to the file; nothing for an empty path. A file that cannot be
/// opened or written is passed over; nothing is thrown.
void append_log_line(const std::filesystem::path& path, const std::string& text) noexcept;

} // namespace Riegl
