#include "scanlib/packet_catalogue.hpp"

#include <bit>
#include <map>
#include <stdexcept>

#include "catalogue_data.hpp"
#include "packet_lookup.hpp"

namespace scanlib {

const char catalogue_version[] = "2.99996.9999";

namespace {

packet_mask mask_from_row(std::string_view row) {
    packet_mask mask;
    if (row.size() != packet_index_count) {
        throw std::invalid_argument(
            "packet catalogue: a tag row has another length than the catalogue");
    }
    for (std::size_t p = 0; p < row.size(); ++p) {
        if (row[p] != '0' && row[p] != '1') {
            throw std::invalid_argument(
                "packet catalogue: a tag row holds another character than 0 and 1");
        }
        mask.set(static_cast<packet_index>(row.size() - 1 - p), row[p] == '1');
    }
    return mask;
}

const std::array<packet_mask, detail::tag_count>& masks() {
    static const std::array<packet_mask, detail::tag_count> made = [] {
        std::array<packet_mask, detail::tag_count> all;
        for (std::size_t i = 0; i < all.size(); ++i) {
            all[i] = mask_from_row(detail::tags[i].members);
        }
        return all;
    }();
    return made;
}

const std::map<std::string_view, packet_id>& names() {
    static const std::map<std::string_view, packet_id> map = [] {
        std::map<std::string_view, packet_id> m;
        for (const packet_layout& row : detail::layouts) {
            m.emplace(row.name, packet_id{row.id, row.version});
        }
        return m;
    }();
    return map;
}

} // namespace

std::size_t packet_mask::count() const noexcept {
    std::size_t n = 0;
    for (const std::uint32_t w : words_) {
        n += static_cast<std::size_t>(std::popcount(w));
    }
    return n;
}

packet_index index_of(packet_id id) noexcept {
    return detail::member_of(detail::family_of(id.id), id.version);
}

const packet_layout& layout_of(packet_index n) noexcept {
    const auto i = static_cast<std::size_t>(n);
    return detail::layouts[i < packet_index_count ? i : 0];
}

std::string name_of(packet_id id) {
    return std::string(layout_of(index_of(id)).name);
}

std::optional<packet_id> id_of(std::string_view name) {
    const auto found = names().find(name);
    return found == names().end() ? std::nullopt : std::optional(found->second);
}

const packet_mask& mask_of(std::string_view tag) {
    for (std::size_t i = 0; i < detail::tag_count; ++i) {
        if (detail::tags[i].name == tag) {
            return masks()[i];
        }
    }
    return masks()[detail::tag_count - 1];
}

} // namespace scanlib
