#include "header_scan.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#define SCANLIB_SCAN_AVX2 1
#else
#define SCANLIB_SCAN_AVX2 0
#endif

namespace scanlib {

namespace {

static_assert(std::endian::native == std::endian::little, "words are compared as they lie");
constexpr std::uint32_t start_word = 0xFFFFFFFFu;
constexpr std::uint32_t header_word = 0x00010000u;
constexpr std::size_t word_bytes = 4;

std::uint32_t word_at(const char* data, std::size_t i) noexcept {
    std::uint32_t word;
    std::memcpy(&word, data + i * word_bytes, sizeof word);
    return word;
}

// Blocks of words, which the compiler turns into vector compares.
constexpr std::size_t block = 64;

bool block_has_start_word(const char* data) noexcept {
    std::uint32_t any = 0;
    for (std::size_t i = 0; i < block; ++i) {
        any |= word_at(data, i) == start_word ? ~0u : 0u;
    }
    return any != 0;
}

/// The pair may begin with the block's last word, so that one word more is read.
bool block_has_pair(const char* data) noexcept {
    std::uint32_t any = 0;
    for (std::size_t i = 0; i < block; ++i) {
        const std::uint32_t differs =
            (word_at(data, i) ^ start_word) | (word_at(data, i + 1) ^ header_word);
        any |= differs == 0 ? 1u : 0u;
    }
    return any != 0;
}

/// Passes over blocks without start word from word `i` on: the first of one that has it, or of what
/// is too short for a block; `end` where all is passed. The last block may overlap the one before.
template<bool has_start_word(const char* data) noexcept>
[[gnu::always_inline]] inline std::size_t skip_blocks(const char* data, std::size_t i,
                                                      std::size_t end) noexcept {
    for (; i + block <= end; i += block) {
        if (has_start_word(data + i * word_bytes)) {
            return i;
        }
    }
    return end >= block && !has_start_word(data + (end - block) * word_bytes) ? end : i;
}

std::size_t skip_common(const char* data, std::size_t i, std::size_t end) noexcept {
    return skip_blocks<block_has_start_word>(data, i, end);
}

#if SCANLIB_SCAN_AVX2

/// No word is greater than the start word: the greatest one of a block tells.
[[gnu::target("avx2")]] inline bool block_has_start_word_avx2(const char* data) noexcept {
    const auto* const words = reinterpret_cast<const __m256i*>(data);
    __m256i even = _mm256_loadu_si256(words);
    __m256i odd = _mm256_loadu_si256(words + 1);
    for (std::size_t i = 2; i < block * word_bytes / sizeof even; i += 2) {
        even = _mm256_max_epu32(even, _mm256_loadu_si256(words + i));
        odd = _mm256_max_epu32(odd, _mm256_loadu_si256(words + i + 1));
    }
    const __m256i found = _mm256_cmpeq_epi32(_mm256_max_epu32(even, odd), _mm256_set1_epi32(-1));
    return _mm256_movemask_epi8(found) != 0;
}

[[gnu::target("avx2")]] std::size_t skip_avx2(const char* data, std::size_t i,
                                              std::size_t end) noexcept {
    return skip_blocks<block_has_start_word_avx2>(data, i, end);
}

#endif

using skipping = std::size_t(const char* data, std::size_t i, std::size_t end) noexcept;

skipping* skipping_of(header_scan::registers used) noexcept {
#if SCANLIB_SCAN_AVX2
    if (used == header_scan::registers::widest && __builtin_cpu_supports("avx2") != 0) {
        return skip_avx2;
    }
#endif
    return skip_common;
}

/// First i below `words` - 1 at which the two words of a header's start stand, else `words` - 1.
std::size_t pair_from(skipping* skip, const char* data, std::size_t i, std::size_t words) noexcept {
    const std::size_t last = words - 1;
    while (true) {
        i = skip(data, i, last);
        const std::size_t end = std::min(i + block, last);
        if (end == i + block && !block_has_pair(data + i * word_bytes)) {
            i = end;
            continue;
        }
        while (i < end && (word_at(data, i) != start_word || word_at(data, i + 1) != header_word)) {
            ++i;
        }
        if (i < end || i == last) {
            return i;
        }
    }
}

/// Whether the run of start words that ends in front of `end`, and does not reach below `begin`,
/// is odd.
bool odd_run(const char* data, std::size_t begin, std::size_t end) noexcept {
    bool odd = false;
    for (; end > begin && word_at(data, end - 1) == start_word; --end) {
        odd = !odd;
    }
    return odd;
}

} // namespace

header_scan::header_scan(registers used) noexcept : skip_(skipping_of(used)) {}

/// Returns whether the word completes a header's start.
bool header_scan::take_word(std::uint32_t word) noexcept {
    const bool found = counts_ && word == header_word;
    counts_ = !counts_ && word == start_word;
    return found;
}

/// Completes the word that the piece before has cut; returns the bytes taken.
std::size_t header_scan::fill_word(const char* data, std::size_t n, bool& found) {
    const std::size_t k = std::min(n, word_bytes - count_);
    std::copy_n(data, k, partial_.begin() + count_);
    count_ += static_cast<std::uint32_t>(k);
    if (count_ == word_bytes) {
        count_ = 0;
        found = take_word(word_at(partial_.data(), 0));
    }
    return k;
}

std::size_t header_scan::find(const char* data, std::size_t n) {
    if (count_ != 0 || counts_) {
        return search(data, n);
    }
    // Blocks without start word leave it at that.
    const std::size_t words = n / word_bytes;
    const std::size_t passed = skip_(data, 0, words) * word_bytes;
    if (passed == n) {
        return 0;
    }
    const std::size_t behind = search(data + passed, n - passed);
    return behind == 0 ? 0 : passed + behind;
}

std::size_t header_scan::search(const char* data, std::size_t n) {
    bool found = false;
    std::size_t done = count_ == 0 ? 0 : fill_word(data, n, found);
    if (found) {
        return done;
    }
    const char* const body = data + done;
    const std::size_t words = (n - done) / word_bytes;
    std::size_t begin = 0; // of the words whose runs begin with no start word before them
    if (words != 0 && counts_) {
        begin = 1;
        if (take_word(word_at(body, 0))) {
            return done + word_bytes;
        }
    }
    if (words > begin) {
        for (std::size_t i = pair_from(skip_, body, begin, words); i + 1 < words;
             i = pair_from(skip_, body, i + 1, words)) {
            if (odd_run(body, begin, i + 1)) {
                counts_ = false;
                return done + (i + 2) * word_bytes;
            }
        }
        counts_ = odd_run(body, begin, words);
    }
    done += words * word_bytes;
    if (done != n) {
        fill_word(data + done, n - done, found);
    }
    return 0;
}

} // namespace scanlib
