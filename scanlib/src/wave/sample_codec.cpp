#include "scanlib/sample_codec.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

namespace scanlib {

namespace {

/// `width` bits (at most 16) at bit `bit`; touches only the words that hold them.
std::uint32_t bits_at(const std::uint32_t* words, std::size_t bit, unsigned width) noexcept {
    const std::size_t offset = bit % 32;
    std::uint64_t value = words[bit / 32];
    if (offset + width > 32) {
        value |= std::uint64_t{words[bit / 32 + 1]} << 32;
    }
    return static_cast<std::uint32_t>(value >> offset) & ((1u << width) - 1);
}

/// Samples of at most 16 bits, all but those at the end by one load each: a sample begins in the
/// first byte of eight that it reads.
void unpack_narrow(const std::uint32_t* words, std::size_t bits, unsigned width,
                   std::uint16_t* out) noexcept {
    const auto* bytes = reinterpret_cast<const unsigned char*>(words);
    const std::size_t count = bits / width;
    const std::uint32_t mask = (1u << width) - 1;
    const std::size_t whole_bytes = (bits + 31) / 32 * 4;
    // Those whose eight bytes lie in the payload.
    const std::size_t by_load =
        whole_bytes < 8 ? 0 : std::min(count, ((whole_bytes - 8) * 8 + 7) / width + 1);
    std::size_t i = 0;
    for (; i < by_load; ++i) {
        const std::size_t bit = i * width;
        std::uint64_t eight;
        std::memcpy(&eight, bytes + bit / 8, sizeof eight);
        out[i] = static_cast<std::uint16_t>((eight >> bit % 8) & mask);
    }
    for (; i < count; ++i) {
        out[i] = static_cast<std::uint16_t>(bits_at(words, i * width, width));
    }
}

} // namespace

void unpack_samples(const std::uint32_t* words, std::size_t bits, unsigned width,
                    std::uint16_t* out) noexcept {
    if (width == 0) {
        return;
    }
    if (width == 16) {
        std::memcpy(out, words, bits / 16 * sizeof *out);
    } else if (width < 16) {
        unpack_narrow(words, bits, width, out);
    } else {
        for (std::size_t i = 0; i < bits / width; ++i) {
            out[i] = static_cast<std::uint16_t>(bits_at(words, i * width, 16));
        }
    }
}

unsigned pack_samples(std::span<const std::uint16_t> samples, unsigned width,
                      std::vector<std::uint32_t>& out) {
    const std::uint64_t mask = (1u << width) - 1;
    std::uint64_t waiting = 0;
    unsigned filled = 0;
    for (const std::uint16_t s : samples) {
        waiting |= (s & mask) << filled;
        filled += width;
        if (filled >= 32) {
            out.push_back(static_cast<std::uint32_t>(waiting));
            waiting >>= 32;
            filled -= 32;
        }
    }
    if (filled == 0) {
        return 32;
    }
    out.push_back(static_cast<std::uint32_t>(waiting));
    return filled;
}

void decompress_samples(const std::uint32_t* words, std::size_t payload_words16,
                        std::vector<std::uint16_t>& out) {
    const std::size_t end = payload_words16 * 16;
    std::size_t bit = 0;
    std::uint32_t sum = 0;
    while (bit + 4 <= end) {
        const unsigned width = bits_at(words, bit, 4);
        bit += 4;
        if (width == 0 || bit + compressed_group * width > end) {
            return;
        }
        for (std::size_t i = 0; i < compressed_group; ++i, bit += width) {
            sum += bits_at(words, bit, width);
            out.push_back(static_cast<std::uint16_t>(sum));
        }
    }
}

void compress_samples(std::span<const std::uint16_t> samples, unsigned resolution,
                      std::vector<std::uint16_t>& out) {
    const std::uint32_t mask = (1u << resolution) - 1;
    std::uint64_t waiting = 0;
    unsigned filled = 0;
    const auto put = [&](std::uint32_t value, unsigned width) {
        waiting |= std::uint64_t{value} << filled;
        filled += width;
        while (filled >= 16) {
            out.push_back(static_cast<std::uint16_t>(waiting));
            waiting >>= 16;
            filled -= 16;
        }
    };
    std::uint32_t last = 0;
    for (std::size_t first = 0; first < samples.size(); first += compressed_group) {
        std::uint32_t steps[compressed_group] = {};
        std::uint32_t all = 1; // a width of 0 would end the data
        for (std::size_t i = 0; i < compressed_group && first + i < samples.size(); ++i) {
            steps[i] = (samples[first + i] - last) & mask;
            last += steps[i];
            all |= steps[i];
        }
        const auto width = static_cast<unsigned>(std::bit_width(all));
        put(width, 4);
        for (const std::uint32_t step : steps) {
            put(step, width);
        }
    }
    put(0, 4);
    if (filled != 0) {
        out.push_back(static_cast<std::uint16_t>(waiting));
    }
}

} // namespace scanlib
