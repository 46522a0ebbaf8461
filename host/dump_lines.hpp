#pragma once

#include "scanlib/loss_log.hpp"
#include "scanlib/packet_head.hpp"
#include "scanlib/packet_text.hpp"

#include <array>
#include <cstdint>
#include <string>

namespace host {

/// What `dump_lines` makes of the packets.
struct dump_form {
    scanlib::packet_mask selection = scanlib::mask_of("all"); ///< by a packet's own pair
    scanlib::pair_form pairs = scanlib::pair_form::named;
    bool lossless = false; ///< each line gives its packet's words again
};

/// Makes the packets of a stream lines of text, one each.
///
/// A packet that its kind's line cannot hold is a line of words in hexadecimal under the name
/// "unknown": one that ends before its sequence, and in the lossless form all that
/// text_holds_packet refuses. Such lines keep the named form.
class dump_lines {
  public:
    /// Short payloads are counted in `losses`, which outlives this object.
    dump_lines(const dump_form& form, scanlib::loss_log& losses);

    /// Appends the line of the packet in begin to end, unless the selection leaves it out. Returns
    /// whether it did.
    bool take(const std::uint32_t* begin, const std::uint32_t* end, std::string& text) {
        // Few packets of a long recording may be wanted: the low byte tells most of the others.
        return maybe_wanted_[*begin & 0xFF] && take_head(begin, end, text);
    }

  private:
    bool take_head(const std::uint32_t* begin, const std::uint32_t* end, std::string& text);
    void learn(const scanlib::packet_head& header);
    void sort_codes();
    bool is_selected(scanlib::packet_id id) const noexcept;
    void append(const scanlib::packet_head& head, std::string& text);

    dump_form form_;
    scanlib::loss_log& losses_;
    scanlib::short_code_table codes_;
    std::array<bool, 256> maybe_wanted_; ///< by the low byte of the start word
};

} // namespace host
