#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "scanlib/packet_catalogue.hpp"

namespace scanlib {

/// Limits of an override text, so that no text exhausts memory or stack. A text that edits a few
/// dozen packets, calibration tables among them, is far below.
inline constexpr std::size_t longest_override_text = std::size_t{1} << 24; ///< bytes
inline constexpr std::size_t most_override_values = std::size_t{1} << 18;  ///< strings and lists
inline constexpr std::size_t deepest_override_text = 256;                  ///< nested brackets

/// Which packets an entry means: those of a kind, and with certain fields.
struct packet_condition {
    /// A field's text.
    struct field {
        std::size_t index; ///< 0 is the first field behind the pair
        std::string text;  ///< that the field must have in the packet's text form
    };
    std::optional<std::uint32_t> id;      ///< none matches no packet
    std::optional<std::uint32_t> version; ///< none matches every version
    std::vector<field> fields;

    bool matches(packet_id packet) const noexcept {
        return id == packet.id && (!version || *version == packet.version);
    }
};

/// An entry of the list "packets".
struct packet_override {
    packet_condition existing;
    bool has_new_packet = false; ///< else the packet is deleted
    packet_id new_id;            ///< (0, 0) where it cannot be read
    std::string new_fields;      ///< its text line behind the pair: ", a, b" and a newline
};

/// An override text: how to correct the packets at the head of a stream, and which stream it is
/// for.
///
///     {
///       "file_verification": [ { "ID": [1, 0], "contentID": [[2, "\"S100\""]] } ],
///       "packets": [
///         { "existing_packet_identification": { "ID": [27, -1], "contentID": [[0, "15"]] },
///           "new_packet": { "ID": [27, 4], "content": ["-3.5", "980", "..."] } }
///       ]
///     }
struct override_text {
    /// Conditions by their id, in the order of the list.
    using index = std::unordered_map<std::uint32_t, std::vector<std::size_t>>;

    std::vector<packet_condition> verification;
    std::vector<packet_override> packets;
    index verification_by_id;
    index packets_by_id;
};

/// Reads a JSON document. Members that are missing count as empty, others are passed over. Throws
/// std::runtime_error with the position of what is no JSON, and for a text beyond the limits.
override_text parse_override_text(const std::string& pxp);

} // namespace scanlib
