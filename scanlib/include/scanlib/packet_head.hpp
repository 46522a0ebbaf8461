#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "scanlib/packet_catalogue.hpp"

namespace scanlib {

namespace packets {
class header;
}

/// The first word of a packet has all ones in its upper three bytes; its low byte tells the form of
/// the head.
inline constexpr std::uint32_t start_word_base = 0xFFFFFF00u;
inline constexpr std::uint8_t long_form = 255;    ///< a second word holds id << 16 | version
inline constexpr std::uint8_t void_form = 254;    ///< void_data
inline constexpr std::uint8_t check_form = 253;   ///< crc32_check
inline constexpr std::size_t longest_head = 2;    ///< words
inline constexpr packet_id void_id{65535, 65535}; ///< of void_data
inline constexpr packet_id check_id{50, 0};       ///< of crc32_check
inline constexpr packet_id header_id{1, 0};       ///< of header

/// The short codes that a stream assigned through its `header` packets.
///
/// A header gives its sequence's entry j, counted from 0, the code j + 1. Codes from 255 on do not
/// exist.
class short_code_table {
  public:
    /// Gives `code` (1 to 254) to `id`; other codes are passed over.
    void assign(std::size_t code, packet_id id);

    /// Gives the entries of a header's sequence their codes.
    void learn(packets::header& header);

    /// The pair of a code; (0, code) where the table holds none.
    packet_id id_of(std::uint8_t code) const noexcept {
        return code != 0 && code <= ids_.size() ? ids_[code - 1u] : packet_id{0, code};
    }

    /// The code of a pair, 0 where it has none.
    std::uint8_t code_of(packet_id id) const;

    /// Number of the highest code assigned.
    std::size_t size() const noexcept { return ids_.size(); }

  private:
    std::vector<packet_id> ids_;
    std::map<packet_id, std::uint8_t> codes_;
};

/// The head of a packet in a stream's words, as a consumer sees it.
struct packet_head {
    std::uint32_t id; ///< as read from the head, whatever version is being attempted
    std::uint32_t version;
    const std::uint32_t* begin;   ///< first word of the packet, the head's
    const std::uint32_t* payload; ///< first word behind the head
    const std::uint32_t* end;
};

/// Reads the head of the packet that lies in begin to end, at least one word. A missing second word
/// counts as 0.
inline packet_head read_head(const std::uint32_t* begin, const std::uint32_t* end,
                             const short_code_table& codes) noexcept {
    const auto form = static_cast<std::uint8_t>(*begin);
    if (form == long_form) {
        const std::uint32_t word = end - begin > 1 ? begin[1] : 0;
        return {word >> 16, word & 0xFFFF, begin, end - begin > 1 ? begin + 2 : end, end};
    }
    const packet_id id = form == void_form    ? void_id
                         : form == check_form ? check_id
                                              : codes.id_of(form);
    return {id.id, id.version, begin, begin + 1, end};
}

/// Writes the shortest head for `id` to `words` (room for longest_head words); returns its length
/// in words.
std::size_t write_head(std::uint32_t* words, packet_id id, const short_code_table& codes);

} // namespace scanlib
