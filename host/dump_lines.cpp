#include "dump_lines.hpp"

#include "scanlib/packets.hpp"

#include <stdexcept>

namespace host {

using scanlib::packet_id;

dump_lines::dump_lines(const dump_form& form, scanlib::loss_log& losses)
    : form_(form), losses_(losses) {
    sort_codes();
}

bool dump_lines::is_selected(packet_id id) const noexcept {
    return form_.selection.test(scanlib::index_of(id));
}

void dump_lines::sort_codes() {
    for (std::size_t form = 0; form < maybe_wanted_.size(); ++form) {
        const packet_id id = codes_.id_of(static_cast<std::uint8_t>(form));
        // A header teaches its codes, wanted or not.
        maybe_wanted_[form] = is_selected(id) || id == scanlib::header_id;
    }
    maybe_wanted_[scanlib::void_form] = is_selected(scanlib::void_id);
    maybe_wanted_[scanlib::check_form] = is_selected(scanlib::check_id);
    maybe_wanted_[scanlib::long_form] = true;
}

void dump_lines::learn(const scanlib::packet_head& header) {
    if ((header.end - header.payload) * 32 < std::ptrdiff_t{scanlib::packets::header::fixed_bits}) {
        return;
    }
    scanlib::packets::header view(header.payload, header.end);
    codes_.learn(view);
    sort_codes();
}

bool dump_lines::take_head(const std::uint32_t* begin, const std::uint32_t* end,
                           std::string& text) {
    const scanlib::packet_head head = scanlib::read_head(begin, end, codes_);
    const packet_id id{head.id, head.version};
    if (id == scanlib::header_id) {
        learn(head);
    }
    if (!is_selected(id)) {
        return false;
    }
    append(head, text);
    return true;
}

void dump_lines::append(const scanlib::packet_head& head, std::string& text) {
    const packet_id id{head.id, head.version};
    if (form_.lossless && !scanlib::text_holds_packet(id, head.payload, head.end)) {
        scanlib::append_packet_words(text, id, head.payload, head.end);
        return;
    }
    const scanlib::packet_layout& kind = scanlib::layout_of(scanlib::index_of(id));
    if (!kind.has_sequence && (head.end - head.payload) * 32 < std::ptrdiff_t{kind.fixed_bits}) {
        losses_.note(scanlib::loss::short_payload);
    }
    try {
        scanlib::append_packet(text, id, head.payload, head.end, form_.pairs);
    } catch (const std::range_error&) {
        scanlib::append_packet_words(text, id, head.payload, head.end);
    }
}

} // namespace host
