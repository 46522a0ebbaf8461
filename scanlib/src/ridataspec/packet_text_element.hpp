#pragma once

#include <algorithm>
#include <span>

#include "scanlib/packet_catalogue.hpp"
#include "scanlib/packet_text.hpp"

namespace scanlib::detail {

constexpr std::size_t words_for(std::size_t bits) noexcept {
    return (bits + 31) / 32;
}

/// Words of the longest payload of a kind. The last of them may hold an element beyond the limit,
/// since the number of elements follows from whole words.
constexpr std::size_t longest_payload(const packet_layout& kind) noexcept {
    const std::size_t elements = kind.has_sequence ? kind.limit : 0;
    return kind.has_sequence && kind.limit == 0
               ? longest_text_body
               : std::min(longest_text_body,
                          words_for(kind.fixed_bits + elements * kind.element_bits));
}

/// The fields of a sequence's element as the text form has them: those of the table for a composite
/// element, else one unsigned number.
class text_element {
  public:
    explicit text_element(const packet_layout& kind) noexcept
        : number_{"", field_type::unsigned_integer, 0, kind.element_bits, 0, true}, kind_(kind) {}

    std::span<const field_layout> fields() const noexcept {
        return kind_.is_composite ? kind_.element_fields : std::span(&number_, 1);
    }

  private:
    field_layout number_;
    const packet_layout& kind_;
};

} // namespace scanlib::detail
