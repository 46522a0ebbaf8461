#pragma once

#include "scanlib/packet_catalogue.hpp"
#include "scanlib/packet_families.hpp"

namespace scanlib::detail {

/// All versions of an id; an empty family for an id that no kind has.
inline const packet_family& family_of(std::uint32_t id) noexcept {
    return id > 0xFFFF ? families[0] : families[pages[page_of[id >> 8]][id & 0xFF]];
}

inline packet_index member_of(const packet_family& f, std::uint32_t version) noexcept {
    const std::uint32_t n = version - f.base;
    return static_cast<packet_index>(n < f.count ? chain[f.first + n] : 0);
}

} // namespace scanlib::detail
