#include "scanlib/ostream_packets.hpp"

#include <ostream>

#include "scanlib/packet_text.hpp"

namespace scanlib {

template<class View>
void ostream_packets::visit(View& p) {
    print({View::id, View::version}, p.words(), p.end_of_words());
}

template class handler_visitor<ostream_packets>;

ostream_packets::ostream_packets(std::ostream* out) noexcept : out_(out) {}

ostream_packets::~ostream_packets() = default;

bool ostream_packets::dispatch(const std::uint32_t* begin, const std::uint32_t* end) {
    unknown_ = 0;
    try {
        return basic_packets::dispatch(begin, end);
    } catch (...) {
        if (in_line_) {
            *out_ << '\n';
            in_line_ = false;
        }
        throw;
    }
}

unknown_walk ostream_packets::on_packet(packet_id id, const packet_head& /*head*/) {
    if (out_ != nullptr) {
        *out_ << id;
        in_line_ = true;
    }
    return unknown_walk::enough;
}

unknown_walk ostream_packets::on_unknown(std::uint32_t /*id*/, std::uint32_t /*version*/,
                                         const std::uint32_t* begin, const std::uint32_t* end) {
    if (out_ == nullptr) {
        continue_chain = false;
        return unknown_walk::enough;
    }
    print_packet_fields(*out_, {}, begin, end);
    in_line_ = false;
    return ++unknown_ < unknown_lines ? unknown_walk::more : unknown_walk::enough;
}

void ostream_packets::print(packet_id id, const std::uint32_t* begin, const std::uint32_t* end) {
    continue_chain = false;
    if (out_ != nullptr) {
        print_packet_fields(*out_, id, begin, end);
        in_line_ = false;
    }
}

} // namespace scanlib
