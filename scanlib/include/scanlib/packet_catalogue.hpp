#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "scanlib/packet_index.hpp"

namespace scanlib {

/// Identity of a packet on the stream. 16 bits each on the wire. (0, 0) means unknown.
struct packet_id {
    std::uint32_t id = 0;
    std::uint32_t version = 0;
    // What the compiler makes has a 0 that is no pointer. NOLINTNEXTLINE(modernize-use-nullptr)
    auto operator<=>(const packet_id&) const = default;
};

/// A set of catalogue indices: which kinds are delivered to handlers.
class packet_mask {
  public:
    constexpr bool test(std::size_t n) const noexcept {
        return (words_[n / 32] >> (n % 32) & 1u) != 0;
    }
    constexpr bool test(packet_index n) const noexcept { return test(static_cast<std::size_t>(n)); }
    constexpr packet_mask& set(packet_index n, bool value = true) noexcept {
        const auto i = static_cast<std::size_t>(n);
        const std::uint32_t bit = 1u << (i % 32);
        words_[i / 32] = value ? words_[i / 32] | bit : words_[i / 32] & ~bit;
        return *this;
    }
    /// Number of kinds in the set.
    std::size_t count() const noexcept;
    bool operator==(const packet_mask&) const = default;

    constexpr packet_mask& operator|=(const packet_mask& other) noexcept {
        for (std::size_t i = 0; i < words_.size(); ++i) {
            words_[i] |= other.words_[i];
        }
        return *this;
    }

  private:
    std::array<std::uint32_t, (packet_index_count + 31) / 32> words_{};
};

/// What the bits of a field stand for.
enum class field_type : std::uint8_t { unsigned_integer, signed_integer, floating, text };

/// One field of a kind, as far as the catalogue tells: for consumers that treat all kinds alike.
struct field_layout {
    const char* name; ///< empty for a field that is known by its number only
    field_type type;
    std::uint32_t bit;   ///< position from the payload's start, or from the element's
    std::uint32_t width; ///< bits of the value, or of one entry of an array
    std::uint32_t count; ///< entries of an array or text, 0 for a single value
    bool listed;         ///< stands in the text form
};

/// One kind of packet.
struct packet_layout {
    std::string_view name;
    std::uint32_t id;
    std::uint32_t version;
    std::uint32_t fixed_bits; ///< of the payload, or of its part before the sequence
    bool has_sequence;
    std::uint32_t element_bits;
    std::uint32_t limit; ///< largest count of elements, 0 for none declared
    bool is_text;        ///< the sequence is text
    bool is_variable;    ///< behind the fields stands a part that the view leaves alone
    bool is_composite;   ///< the text form of an element is its fields, not one unsigned number
    std::span<const field_layout> fields;
    std::span<const field_layout> element_fields;
};

/// Revision of the catalogue.
extern const char catalogue_version[];

/// Index of the kind with exactly this id and version, `unknown` where there is none.
packet_index index_of(packet_id id) noexcept;

/// The row at an index; `unknown` has id and version 0 and no fields.
const packet_layout& layout_of(packet_index n) noexcept;

/// Name of a kind, "unknown" for a pair that no row has.
std::string name_of(packet_id id);

/// The pair with this name; "unknown" gives (0, 0). Empty for a name that no row has.
std::optional<packet_id> id_of(std::string_view name);

/// The kinds that bear a tag. "all" holds index 0 too; a name that is no tag gives the empty mask.
const packet_mask& mask_of(std::string_view tag);

} // namespace scanlib
