#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "scanlib/stream_words.hpp"

namespace scanlib {

/// True for the escape word and all start words.
inline bool is_marked(std::uint32_t word) noexcept {
    return word >= escape_word;
}

constexpr std::size_t scan_block = 16;

/// Which words of a block are marked: bit i for word i.
inline std::uint32_t marked_words(const std::uint32_t* block) noexcept {
#if defined(__SSE2__)
    const __m128i lowest_byte = _mm_set1_epi32(0xFF);
    const auto marked = [&](std::size_t i) {
        const __m128i words = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + i));
        return _mm_cmpeq_epi32(_mm_or_si128(words, lowest_byte), _mm_set1_epi32(-1));
    };
    const __m128i halves = _mm_packs_epi16(_mm_packs_epi32(marked(0), marked(4)),
                                           _mm_packs_epi32(marked(8), marked(12)));
    return static_cast<std::uint32_t>(_mm_movemask_epi8(halves));
#else
    std::uint32_t marked = 0;
    for (std::size_t i = 0; i < scan_block; ++i) {
        marked |= static_cast<std::uint32_t>(is_marked(block[i])) << i;
    }
    return marked;
#endif
}

/// Number of plain words from `begin` up to the first marked one, or to `end`. By blocks, since a
/// branch for each word of a short packet would be mispredicted at its end.
inline std::size_t plain_run(const std::uint32_t* begin, const std::uint32_t* end) noexcept {
    const std::uint32_t* p = begin;
    for (; end - p >= static_cast<std::ptrdiff_t>(scan_block); p += scan_block) {
        if (const std::uint32_t marked = marked_words(p); marked != 0) {
            return static_cast<std::size_t>(p - begin) +
                   static_cast<std::size_t>(std::countr_zero(marked));
        }
    }
    while (p != end && !is_marked(*p)) {
        ++p;
    }
    return static_cast<std::size_t>(p - begin);
}

} // namespace scanlib
