#pragma once

#include "scanlib/packet_record.hpp"

#include <cstddef>
#include <cstdint>

/// Subpackages: what `packed_shot_echos_hr` (version 2) and `packed_shot_echos_sbl_hr` (version 3)
/// hold instead of elements. Each is one or more whole words and begins with a tag; bits count from
/// bit 0 of its first word. Version 3 numbers the kinds that it shares with version 2 one lower,
/// since it has no end mark.
namespace scanlib::detail::subpackage {

/// A field of Width bits at bit Bit.
template<class T, std::size_t Bit, std::size_t Width>
struct field {
    using value_type = T;
    static constexpr std::size_t width = Width;

    static T read(const std::uint32_t* words) noexcept {
        return packets::detail::extract<T, Bit, Width>(words);
    }
    /// Into cleared words.
    static void write(std::uint32_t* words, T value) noexcept {
        packets::detail::insert_bits(words, Bit, Width, packets::detail::to_bits<T, Width>(value));
    }
};

using tag = field<std::uint32_t, 0, 3>;

enum tag_v2 : std::uint32_t {
    v2_end,
    v2_key_shot,
    v2_delta_shot,
    v2_second_order_shot,
    v2_key_echo,
    v2_delta_echo,
};
enum tag_v3 : std::uint32_t {
    v3_key_shot,
    v3_delta_shot,
    v3_second_order_shot,
    v3_key_echo,
    v3_delta_echo,
    v3_block_head,
    v3_unknown,
    v3_block,
};

struct key_shot {
    static constexpr std::size_t words = 3;
    using time = field<std::uint64_t, 3, 49>;
    using line = field<std::uint32_t, 52, 22>;
    using frame = field<std::uint32_t, 74, 22>;
};

struct delta_shot {
    static constexpr std::size_t words = 2;
    using time = field<std::uint32_t, 3, 29>;
    using line = field<std::int16_t, 32, 16>;
    using frame = field<std::int16_t, 48, 16>;
};

/// Corrections to the deltas of the last delta_shot.
struct second_order_shot {
    static constexpr std::size_t words = 1;
    using time = field<std::int32_t, 3, 18>;
    using line = field<std::int8_t, 21, 6>;
    using frame = field<std::int8_t, 27, 5>;
};

/// `offset` is reflectance minus amplitude.
struct key_echo {
    static constexpr std::size_t words = 3;
    using range = field<std::int32_t, 3, 26>;
    using amplitude = field<std::uint16_t, 29, 16>;
    using offset = field<std::uint16_t, 45, 16>;
    using deviation = field<std::uint16_t, 61, 16>;
};

struct delta_echo {
    static constexpr std::size_t words = 2;
    using range = field<std::int32_t, 3, 26>;
    using amplitude = field<std::int16_t, 29, 14>;
    using offset = field<std::int16_t, 43, 10>;
    using deviation = field<std::int16_t, 53, 11>;
};

/// Followed by one word for each channel, as the sequence of `sbl_dg_channel_header_1` has them.
struct block_head {
    static constexpr std::size_t words = 1;
    using value = field<std::uint16_t, 3, 16>;
    using channel_count = field<std::uint32_t, 29, 3>;
};

/// One channel of a block_head, bits counted from its own word.
struct block_entry {
    using channel = field<std::uint32_t, 0, 4>;
    using value = field<std::uint32_t, 4, 18>;
    using second_value = field<std::uint32_t, 22, 10>;
};

/// Followed, from `payload` on, by the payload of a `sbl_dg_channel_data_compressed`, whose fixed
/// part is one word.
struct block {
    static constexpr std::size_t words = 2;
    static constexpr std::size_t payload = 1;
    using sample_words = field<std::uint32_t, 3, 10>;
    using channel = field<std::uint32_t, 48, 4>;
};

/// Most words of any subpackage.
inline constexpr std::size_t longest = block::words + (1u << block::sample_words::width) - 1;

} // namespace scanlib::detail::subpackage
