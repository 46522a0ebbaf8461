#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace scanlib {

/// The two ways in which sample blocks hold their samples, both least significant bit first.

/// Samples that a packed payload of `bits` bits holds at `width` bits each; a width of 0 holds
/// none.
constexpr std::size_t packed_sample_count(std::size_t bits, unsigned width) noexcept {
    return width == 0 ? 0 : bits / width;
}

/// Reads `count` samples of `width` bits each, which cross words, to `out`. Of a width above 16 the
/// low 16 bits of each sample count.
void unpack_samples(const std::uint32_t* words, std::size_t count, unsigned width,
                    std::uint16_t* out) noexcept;

/// The inverse: appends words to `out` and returns the bits used in the last one, 1 to 32.
/// Width 1 to 16; higher bits of a sample are lost.
unsigned pack_samples(std::span<const std::uint16_t> samples, unsigned width,
                      std::vector<std::uint32_t>& out);

/// Samples of a group of the compressed form.
inline constexpr std::size_t compressed_group = 8;

/// Most samples that a compressed payload can hold.
constexpr std::size_t most_decompressed(std::size_t payload_words16) noexcept {
    // A group of the least width has 4 + 8 bits.
    return (payload_words16 * 16 / 12 + 1) * compressed_group;
}

/// Reads the compressed form: groups of a 4-bit width and eight numbers of that width, each of
/// which is added to a sum that runs on; its low 16 bits are the next sample. Width 0, or a group
/// that the payload does not hold whole, ends it. `payload_words16` counts words of 16 bits.
/// Appends to `out`.
void decompress_samples(const std::uint32_t* words, std::size_t payload_words16,
                        std::vector<std::uint16_t>& out);

/// The inverse for samples of `resolution` bits (1 to 15): a step down is told as the step up that
/// is the same modulo 2 to the resolution, so that of what decompress_samples gives the low
/// `resolution` bits are the samples. The last group is filled by repeating the last sample.
/// Appends words of 16 bits to `out`.
void compress_samples(std::span<const std::uint16_t> samples, unsigned resolution,
                      std::vector<std::uint16_t>& out);

} // namespace scanlib
