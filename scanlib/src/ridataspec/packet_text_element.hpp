#pragma once

#include <span>

#include "scanlib/packet_catalogue.hpp"

namespace scanlib::detail {

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
