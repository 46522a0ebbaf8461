#include "scanlib/packet_head.hpp"

#include "scanlib/packets.hpp"

namespace scanlib {

void short_code_table::assign(std::size_t code, packet_id id) {
    if (code == 0 || code >= long_form) {
        return;
    }
    if (ids_.size() < code) {
        ids_.resize(code);
    }
    packet_id& entry = ids_[code - 1];
    // A pair that loses its code must be written in the long form from now on.
    if (const auto old = codes_.find(entry); old != codes_.end() && old->second == code) {
        codes_.erase(old);
    }
    entry = id;
    codes_[id] = static_cast<std::uint8_t>(code);
}

void short_code_table::learn(packets::header& header) {
    for (std::uint32_t j = 0; j < header.size(); ++j) {
        const auto entry = header[j];
        assign(j + 1u, {entry.id(), entry.version()});
    }
}

std::uint8_t short_code_table::code_of(packet_id id) const {
    const auto found = codes_.find(id);
    return found == codes_.end() ? std::uint8_t{0} : found->second;
}

std::size_t write_head(std::uint32_t* words, packet_id id, const short_code_table& codes) {
    if (id == void_id || id == check_id) {
        words[0] = start_word_base | (id == void_id ? void_form : check_form);
        return 1;
    }
    // The heads of the codes 253 and 254 mean something else, though a header may assign them.
    const std::uint8_t code = id == header_id ? std::uint8_t{0} : codes.code_of(id);
    if (code != 0 && code < check_form) {
        words[0] = start_word_base | code;
        return 1;
    }
    words[0] = start_word_base | long_form;
    words[1] = id.id << 16 | (id.version & 0xFFFF);
    return 2;
}

} // namespace scanlib
