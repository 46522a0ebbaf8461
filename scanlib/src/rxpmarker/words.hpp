#pragma once

#include <cstddef>
#include <cstdint>

#include "scanlib/stream_words.hpp"

namespace scanlib {

/// True for the escape word and all start words.
inline bool is_marked(std::uint32_t word) noexcept {
    return word >= escape_word;
}

/// Number of plain words from `begin` up to the first marked one, or to `end`.
///
/// Most packets are a few words long and end within the first block; a long one is scanned in
/// blocks that the compiler turns into vector compares, without a branch per word.
inline std::size_t plain_run(const std::uint32_t* begin, const std::uint32_t* end) noexcept {
    constexpr std::size_t block = 16;
    const std::uint32_t* p = begin;
    const std::uint32_t* const head = end - begin < 8 ? end : begin + 8;
    for (; p != head; ++p) {
        if (is_marked(*p)) {
            return static_cast<std::size_t>(p - begin);
        }
    }
    while (static_cast<std::size_t>(end - p) >= block) {
        std::uint32_t any = 0;
        for (std::size_t i = 0; i < block; ++i) {
            any |= (p[i] | 0xFFu) == 0xFFFFFFFFu ? 1u : 0u;
        }
        if (any != 0) {
            break;
        }
        p += block;
    }
    while (p != end && !is_marked(*p)) {
        ++p;
    }
    return static_cast<std::size_t>(p - begin);
}

} // namespace scanlib
