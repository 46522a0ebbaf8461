#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace scanlib::detail {

/// Skips white space and reads one character; sets the fail bit unless it is `c`.
void expect(std::istream& in, char c);

/// Skips white space. Whether the next character is `c`; it stays there.
bool is_next(std::istream& in, char c);

/// Reads an integer by the stream's own extraction; its two's complement. Sets the fail bit for one
/// that does not fit `width` bits. A sign before an unsigned number does not fit.
std::uint64_t read_integer(std::istream& in, std::size_t width, bool is_signed);

} // namespace scanlib::detail
