#pragma once

#include <array>
#include <cstdint>

namespace scanlib {

/// Stands in a stream before the inverse of a body word that would else look like a start word or
/// like this one.
inline constexpr std::uint32_t escape_word = 0xFFFFFF00u;

/// What a stream begins with: the bytes 10 00 00 00 00 00 00 0B and eight characters.
inline constexpr std::array<std::uint32_t, 4> preamble = {0x00000010u, 0x0B000000u, 0x67656952u,
                                                          0x534D4C6Cu};

/// True for the words that begin a packet.
inline bool is_start_word(std::uint32_t word) noexcept {
    return word > escape_word;
}

} // namespace scanlib
