#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "scanlib/packet_text.hpp"

namespace test_support {

using packet_words = std::vector<std::uint32_t>;

/// The line of a packet, without its newline.
inline std::string text_of(scanlib::packet_id id, const packet_words& body,
                           scanlib::pair_form form = scanlib::pair_form::named) {
    std::string text;
    scanlib::append_packet(text, id, body.data(), body.data() + body.size(), form);
    text.pop_back();
    return text;
}

/// What a line says.
struct read_line {
    scanlib::packet_id id;
    packet_words body;
    bool failed = false;
    std::string rest; ///< of the line, behind what was read
};

inline read_line read_text(const std::string& line,
                           scanlib::pair_form form = scanlib::pair_form::named) {
    std::istringstream in(line);
    if (form == scanlib::pair_form::numeric) {
        in >> scanlib::numeric_packets;
    }
    read_line read;
    in >> read.id;
    scanlib::read_packet(in, read.id, read.body);
    read.failed = in.fail();
    in.clear();
    std::getline(in, read.rest);
    return read;
}

} // namespace test_support
