#include "scanlib/sample_codec.hpp"

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

constexpr unsigned width_bits = 4;

/// Groups that room is made for at a time.
constexpr std::size_t groups_ahead = 16;

std::uint64_t eight_bytes(const unsigned char* bytes) noexcept {
    std::uint64_t value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

/// Where a group of steps lies. Its bits begin with a byte or the upper half of one, and so do
/// those of its second four, so that a load of eight bytes holds each four.
struct step_group {
    unsigned width; ///< at most 15
    std::size_t first_byte;
    std::size_t first_shift;
    std::size_t second_byte;
    std::size_t second_shift;

    step_group(std::size_t bit, unsigned bits_each) noexcept
        : width(bits_each)
        , first_byte(bit / 8)
        , first_shift(bit % 8)
        , second_byte((bit + half * bits_each) / 8)
        , second_shift((bit + half * bits_each) % 8) {}

    /// Adds the steps to `sum` one by one. Both loads must lie in the payload.
    void add_up(const unsigned char* bytes, std::uint32_t& sum, std::uint16_t* out) const noexcept {
        const std::uint32_t mask = (1U << width) - 1;
        std::uint64_t four = eight_bytes(bytes + first_byte) >> first_shift;
        for (std::size_t i = 0; i < compressed_group; ++i) {
            if (i == half) {
                four = eight_bytes(bytes + second_byte) >> second_shift;
            }
            sum += static_cast<std::uint32_t>(four) & mask;
            four >>= width;
            out[i] = static_cast<std::uint16_t>(sum);
        }
    }

    static constexpr std::size_t half = compressed_group / 2;
};

} // namespace

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
    const auto* bytes = reinterpret_cast<const unsigned char*>(words);
    const std::size_t size = payload_words16 * 2;
    const std::size_t end = size * 8;
    std::size_t filled = out.size();
    std::size_t bit = 0;
    std::uint32_t sum = 0;
    while (bit + width_bits <= end) {
        const unsigned width = bits_at(words, bit, width_bits);
        bit += width_bits;
        if (width == 0 || bit + compressed_group * width > end) {
            break;
        }
        if (filled == out.size()) {
            out.resize(filled + groups_ahead * compressed_group);
        }
        std::uint16_t* const group = out.data() + filled;
        const step_group place(bit, width);
        if (place.second_byte + sizeof(std::uint64_t) <= size) {
            place.add_up(bytes, sum, group);
        } else {
            for (std::size_t i = 0; i < compressed_group; ++i) {
                sum += bits_at(words, bit + i * width, width);
                group[i] = static_cast<std::uint16_t>(sum);
            }
        }
        bit += compressed_group * width;
        filled += compressed_group;
    }
    out.resize(filled);
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
