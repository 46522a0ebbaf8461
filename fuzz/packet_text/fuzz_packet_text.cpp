// Any text as the lines of packets: what reads back prints to something that reads to the same
// words.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "scanlib/packet_text.hpp"

namespace {

using scanlib::packet_id;
using scanlib::pair_form;
using words = std::vector<std::uint32_t>;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// One packet of a stream. Returns false where the text is none.
bool read(std::istream& in, packet_id& id, words& body) {
    in >> id;
    const bool as_words = scanlib::index_of(id) == scanlib::packet_index::unknown;
    if (as_words) {
        scanlib::read_packet_words(in, body);
    } else {
        scanlib::read_packet(in, id, body);
    }
    require(!in.fail() || body.empty());
    return !in.fail();
}

void check(packet_id id, const words& body, pair_form form) {
    const std::uint32_t* const begin = body.data();
    const std::uint32_t* const end = begin + body.size();
    std::string line;
    scanlib::append_packet(line, id, begin, end, form);
    std::stringstream stream;
    if (form == pair_form::numeric) {
        stream << scanlib::numeric_packets;
    }
    scanlib::print_packet(stream, id, begin, end);
    require(stream.str() == line);
    packet_id again;
    words read_again;
    require(read(stream, again, read_again));
    require(again == id);
    require(read_again == body);
    if (scanlib::text_holds_packet(id, begin, end)) {
        require(line.find('\n') == line.size() - 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (const auto form : {pair_form::named, pair_form::numeric}) {
        std::istringstream in(text);
        if (form == pair_form::numeric) {
            in >> scanlib::numeric_packets;
        }
        packet_id id;
        words body;
        while (read(in, id, body)) {
            check(id, body, form);
        }
    }
    return 0;
}
