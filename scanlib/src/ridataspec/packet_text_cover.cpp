// Whether a line of text holds all of a packet.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <vector>

#include "packet_text_element.hpp"
#include "scanlib/packet_record.hpp"
#include "scanlib/packet_text.hpp"

namespace scanlib {

namespace {

using detail::words_for;
using packets::detail::extract_bits;
using packets::detail::insert_bits;

/// For each kind, the bits before the sequence that no listed field holds.
using gap_masks = std::array<std::vector<std::uint32_t>, packet_index_count>;

const gap_masks& gaps() {
    static const gap_masks made = [] {
        gap_masks all;
        for (std::size_t n = 0; n < packet_index_count; ++n) {
            const packet_layout& kind = layout_of(static_cast<packet_index>(n));
            std::vector<std::uint32_t>& mask = all[n];
            mask.resize(words_for(kind.fixed_bits));
            for (std::size_t bit = 0; bit < kind.fixed_bits; ++bit) {
                insert_bits(mask.data(), bit, 1, 1);
            }
            for (const field_layout& f : kind.fields) {
                for (std::size_t i = 0; f.listed && i < std::max(f.count, 1u); ++i) {
                    insert_bits(mask.data(), f.bit + i * f.width, f.width, 0);
                }
            }
        }
        return all;
    }();
    return made;
}

bool is_finite(std::uint64_t bits, std::size_t width) noexcept {
    return width == 32 ? std::isfinite(std::bit_cast<float>(static_cast<std::uint32_t>(bits)))
                       : std::isfinite(std::bit_cast<double>(bits));
}

/// Characters that end a field or a line.
bool is_printable_as_is(char c) noexcept {
    return c != '"' && c != '\n' && c != '\r';
}

bool field_survives(const std::uint32_t* words, const field_layout& f, std::size_t base) {
    if (f.type == field_type::text) {
        bool ended = false;
        for (std::size_t i = 0; i < f.count; ++i) {
            const auto c = static_cast<char>(extract_bits(words, f.bit + 8 * i, 8));
            if ((ended && c != '\0') || !is_printable_as_is(c)) {
                return false;
            }
            ended = c == '\0';
        }
        return true;
    }
    for (std::size_t i = 0; f.type == field_type::floating && i < std::max(f.count, 1u); ++i) {
        if (!is_finite(extract_bits(words, base + f.bit + i * f.width, f.width), f.width)) {
            return false;
        }
    }
    return true;
}

bool fixed_part_survives(packet_index n, const packet_layout& kind, const std::uint32_t* begin) {
    const std::vector<std::uint32_t>& gap = gaps()[static_cast<std::size_t>(n)];
    for (std::size_t i = 0; i < gap.size(); ++i) {
        if ((begin[i] & gap[i]) != 0) {
            return false;
        }
    }
    return std::all_of(kind.fields.begin(), kind.fields.end(), [&](const field_layout& f) {
        return !f.listed || field_survives(begin, f, 0);
    });
}

/// Whether `bits` is the end of what the payload uses: no word more, and zero bits up to there.
bool ends_at(const std::uint32_t* begin, const std::uint32_t* end, std::size_t bits) {
    if (static_cast<std::size_t>(end - begin) != words_for(bits)) {
        return false;
    }
    return bits % 32 == 0 || end[-1] >> (bits % 32) == 0;
}

bool text_sequence_survives(const packet_layout& kind, const std::uint32_t* begin,
                            const std::uint32_t* end) {
    const char* const first = reinterpret_cast<const char*>(begin) + kind.fixed_bits / 8;
    const auto capacity = static_cast<std::size_t>(reinterpret_cast<const char*>(end) - first);
    const std::size_t size = strnlen(first, capacity);
    return std::all_of(first, first + size, is_printable_as_is) &&
           ends_at(begin, end, kind.fixed_bits + 8 * std::max<std::size_t>(size, 1));
}

bool sequence_survives(const packet_layout& kind, const std::uint32_t* begin,
                       const std::uint32_t* end) {
    const std::size_t bits = static_cast<std::size_t>(end - begin) * 32 - kind.fixed_bits;
    const std::size_t count = bits / kind.element_bits;
    if (!ends_at(begin, end, kind.fixed_bits + count * kind.element_bits)) {
        return false;
    }
    for (std::size_t i = 0; kind.is_composite && i < count; ++i) {
        for (const field_layout& f : kind.element_fields) {
            if (!field_survives(begin, f, kind.fixed_bits + i * kind.element_bits)) {
                return false;
            }
        }
    }
    return true;
}

} // namespace

bool text_holds_packet(packet_id id, const std::uint32_t* begin, const std::uint32_t* end) {
    const packet_index n = index_of(id);
    const packet_layout& kind = layout_of(n);
    const auto words = static_cast<std::size_t>(end - begin);
    if (n == packet_index::unknown || words > detail::longest_payload(kind) ||
        words * 32 < kind.fixed_bits + (kind.is_text ? 8u : 0u) ||
        !fixed_part_survives(n, kind, begin)) {
        return false;
    }
    if (!kind.has_sequence) {
        return words * 32 == kind.fixed_bits;
    }
    return kind.is_text ? text_sequence_survives(kind, begin, end)
                        : sequence_survives(kind, begin, end);
}

} // namespace scanlib
