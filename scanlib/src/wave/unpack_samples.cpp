#include "scanlib/sample_codec.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#if defined(__x86_64__)
#include <immintrin.h>
#define SCANLIB_UNPACK_SSE41 1
#else
#define SCANLIB_UNPACK_SSE41 0
#endif

// Packed samples. Eight of W bits are W bytes, so that every group of eight has the same shifts.
namespace scanlib {

namespace {

constexpr std::size_t group_samples = 8;

/// Bytes that a group may be read from.
constexpr std::size_t group_reach = 16;

constexpr unsigned widest = 16;

std::uint64_t eight_bytes(const unsigned char* bytes) noexcept {
    std::uint64_t value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

/// A group by one load for each half: the second half begins at a byte or in the midst of one.
template<unsigned W>
void unpack_group(const unsigned char* bytes, std::uint16_t* out) noexcept {
    constexpr unsigned half = group_samples / 2;
    constexpr std::uint64_t mask = (1U << W) - 1;
    const std::uint64_t low = eight_bytes(bytes);
    const std::uint64_t high = eight_bytes(bytes + half * W / 8) >> half * W % 8;
    for (unsigned i = 0; i < half; ++i) {
        out[i] = static_cast<std::uint16_t>(low >> i * W & mask);
        out[half + i] = static_cast<std::uint16_t>(high >> i * W & mask);
    }
}

template<unsigned W>
void unpack_groups(const unsigned char* bytes, std::size_t groups, std::uint16_t* out) noexcept {
    for (std::size_t g = 0; g < groups; ++g) {
        unpack_group<W>(bytes + g * W, out + g * group_samples);
    }
}

#if SCANLIB_UNPACK_SSE41

/// Which bytes a sample's bits lie in, for lanes of `Lane` bytes beginning with sample `first`; and
/// the power of two that moves the sample to the upper end of its lane.
template<unsigned W, std::size_t Lane, class Factor>
struct lane_plan {
    alignas(16) std::array<std::uint8_t, 16> bytes{};
    alignas(16) std::array<Factor, 16 / Lane> factors{};

    constexpr explicit lane_plan(std::size_t first) {
        for (std::size_t i = 0; i < factors.size(); ++i) {
            const std::size_t bit = (first + i) * W;
            for (std::size_t b = 0; b < Lane; ++b) {
                const std::size_t byte = bit / 8 + b;
                bytes[i * Lane + b] = static_cast<std::uint8_t>(byte < group_reach ? byte : 0x80);
            }
            factors[i] = static_cast<Factor>(1U << (8 * Lane - W - bit % 8));
        }
    }
};

/// Whether each sample of a group lies within two bytes.
constexpr bool fits_two_bytes(unsigned width) {
    for (unsigned i = 0; i < group_samples; ++i) {
        if (i * width % 8 + width > 16) {
            return false;
        }
    }
    return true;
}

template<class Array>
[[gnu::target("sse4.1")]] __m128i load(const Array& values) noexcept {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(values.data()));
}

/// A shuffle brings the bytes of each sample into a lane of its own, a product moves it to the
/// lane's upper end, and one shift brings all of them down.
template<unsigned W>
[[gnu::target("sse4.1")]] void unpack_groups_sse41(const unsigned char* bytes, std::size_t groups,
                                                   std::uint16_t* out) noexcept {
    for (std::size_t g = 0; g < groups; ++g) {
        const __m128i packed = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + g * W));
        __m128i samples;
        if constexpr (fits_two_bytes(W)) {
            static constexpr lane_plan<W, 2, std::uint16_t> plan(0);
            const __m128i lanes = _mm_shuffle_epi8(packed, load(plan.bytes));
            samples = _mm_srli_epi16(_mm_mullo_epi16(lanes, load(plan.factors)), 16 - W);
        } else {
            static constexpr lane_plan<W, 4, std::uint32_t> first(0);
            static constexpr lane_plan<W, 4, std::uint32_t> second(4);
            const __m128i low = _mm_srli_epi32(
                _mm_mullo_epi32(_mm_shuffle_epi8(packed, load(first.bytes)), load(first.factors)),
                32 - W);
            const __m128i high = _mm_srli_epi32(
                _mm_mullo_epi32(_mm_shuffle_epi8(packed, load(second.bytes)), load(second.factors)),
                32 - W);
            samples = _mm_packus_epi32(low, high);
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + g * group_samples), samples);
    }
}

const bool has_sse41 = __builtin_cpu_supports("sse4.1") != 0;

#endif

/// Groups one after the other, by what the processor has. Reads `group_reach` bytes for each.
template<unsigned W>
void unpack_in_reach(const unsigned char* bytes, std::size_t groups, std::uint16_t* out) noexcept {
#if SCANLIB_UNPACK_SSE41
    if (has_sse41) {
        unpack_groups_sse41<W>(bytes, groups, out);
        return;
    }
#endif
    unpack_groups<W>(bytes, groups, out);
}

/// All samples of a payload. Groups near its end are read from a copy with room behind it.
template<unsigned W>
void unpack_width(const unsigned char* bytes, std::size_t size, std::size_t count,
                  std::uint16_t* out) noexcept {
    const std::size_t reached = size < group_reach ? 0 : (size - group_reach) / W + 1;
    const std::size_t groups = std::min(count / group_samples, reached);
    unpack_in_reach<W>(bytes, groups, out);
    std::size_t done = groups * group_samples;
    if (done == count) {
        return;
    }
    unsigned char rest[3 * group_reach] = {};
    std::memcpy(rest, bytes + groups * W, std::min(size - groups * W, 2 * group_reach));
    for (std::size_t g = 0; done < count; ++g, done += group_samples) {
        std::uint16_t group[group_samples];
        unpack_in_reach<W>(rest + g * W, 1, group);
        std::copy_n(group, std::min(count - done, group_samples), out + done);
    }
}

using unpack_function = void (*)(const unsigned char*, std::size_t, std::size_t,
                                 std::uint16_t*) noexcept;

template<std::size_t... I>
constexpr std::array<unpack_function, sizeof...(I)> functions(std::index_sequence<I...>) {
    return {unpack_width<I + 1>...};
}

/// Of widths from 1 on.
constexpr auto by_width = functions(std::make_index_sequence<widest - 1>());

/// Samples of more than 16 bits, one by one.
void unpack_wide(const std::uint32_t* words, std::size_t count, unsigned width,
                 std::uint16_t* out) noexcept {
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t bit = i * width;
        std::uint32_t value = words[bit / 32] >> bit % 32;
        if (bit % 32 > 16) {
            value |= words[bit / 32 + 1] << (32 - bit % 32);
        }
        out[i] = static_cast<std::uint16_t>(value);
    }
}

} // namespace

void unpack_samples(const std::uint32_t* words, std::size_t count, unsigned width,
                    std::uint16_t* out) noexcept {
    if (count == 0) {
        return; // there may be no memory either
    }
    if (width > widest) {
        unpack_wide(words, count, width, out);
    } else if (width == widest) {
        std::memcpy(out, words, count * sizeof *out);
    } else {
        by_width[width - 1](reinterpret_cast<const unsigned char*>(words),
                            (count * width + 31) / 32 * 4, count, out);
    }
}

} // namespace scanlib
