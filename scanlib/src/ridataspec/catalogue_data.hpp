#pragma once

#include "scanlib/packet_catalogue.hpp"

namespace scanlib::detail {

inline constexpr std::size_t tag_count = 19;

struct tag_row {
    std::string_view name;
    std::string_view members; ///< one '0' or '1' an index, the highest index first
};

extern const packet_layout layouts[packet_index_count];
extern const tag_row tags[tag_count];

} // namespace scanlib::detail
