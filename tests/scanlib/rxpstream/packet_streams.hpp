#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "scanlib/packet_catalogue.hpp"
#include "scanlib/rxp_istream.hpp"
#include "scanlib/rxpmarker/streams.hpp"
#include "support/memory_connections.hpp"

/// Streams of packets, framed without the streams under test.
namespace packet_streams {

using streams::words;
using bytes = std::vector<unsigned char>;

struct packet {
    scanlib::packet_id id;
    words body;
    bool operator==(const packet&) const = default;
};
using packets = std::vector<packet>;

inline void PrintTo(const packet& p, std::ostream* out) {
    *out << p.id.id << "." << p.id.version << " {";
    for (const std::uint32_t w : p.body) {
        *out << " " << w;
    }
    *out << " }";
}

/// The words of a text field, cut or filled with zeros.
inline void put_text(words& body, const std::string& text, std::size_t bytes_of_field) {
    std::vector<char> field(bytes_of_field);
    std::copy_n(text.begin(), std::min(text.size(), bytes_of_field), field.begin());
    const std::size_t at = body.size();
    body.resize(at + bytes_of_field / 4);
    std::memcpy(body.data() + at, field.data(), bytes_of_field);
}

inline packet header(const std::vector<scanlib::packet_id>& codes = {},
                     const std::string& serial = "S1", const std::string& build = "B1",
                     const std::string& type = "T1") {
    packet p{{1, 0}, {}};
    for (const std::string& text : {type, build, serial}) {
        put_text(p.body, text, 16);
    }
    for (const scanlib::packet_id id : codes) {
        p.body.push_back(id.id << 16 | id.version);
    }
    return p;
}

/// echo_gap_header, a kind with a u32 and an f32, here 0 and 1.
inline packet gap(std::uint32_t first, std::uint32_t float_bits = 0x3F800000) {
    return {{152, 0}, {first, float_bits}};
}
/// blob_uint32, a u32 and a sequence.
inline packet blob(const words& body) {
    return {{58, 0}, body};
}
/// laser_shot: the measurement has begun.
inline packet shot(std::uint32_t time) {
    return {{10, 0}, {time}};
}
inline packet context_end(std::uint32_t id, std::uint32_t version) {
    return {{21, 1}, {id << 16 | version}};
}

/// Frames with long heads.
inline bytes framed(const packets& all, bool with_preamble = false) {
    streams::packets heads;
    for (const packet& p : all) {
        heads.push_back(streams::concat({0xFFFFFFFF, p.id.id << 16 | p.id.version}, p.body));
    }
    return streams::encode_all(heads, with_preamble);
}

inline packets read_packets(const std::shared_ptr<scanlib::basic_rconnection>& connection) {
    packets all;
    scanlib::rxp_istream in;
    in.attach(connection);
    while (in.next()) {
        all.push_back({in.id(), {in.body().begin(), in.body().end()}});
    }
    return all;
}

inline packets read_packets(const bytes& stream) {
    return read_packets(std::make_shared<test_support::memory_rconnection>(stream));
}

} // namespace packet_streams
