#pragma once

#include <cstddef>
#include <cstdint>

namespace scanlib {

/// How bytes get from file to file, the best one first. Which of them work depends on both files.
enum class copy_way { within_file_systems, within_kernel, through_memory };

/// Writes all bytes to a descriptor. Returns whether it took them.
bool write_all(int to, const char* data, std::size_t n) noexcept;

/// Writes the `n` bytes at `offset` of one descriptor to another. Begins with `way`, and sets it to
/// the one that did it: what fails or stops is left to the next one. Returns whether all bytes
/// were there and were taken.
bool copy_range(int from, std::uint64_t offset, std::uint64_t n, int to, copy_way& way) noexcept;

} // namespace scanlib
