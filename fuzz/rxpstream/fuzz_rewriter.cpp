// Any bytes as a stream and any text as its override text, read in pieces of any size. The input
// is the size of the pieces, the length of the text in two bytes, the text, and the stream. With
// the topmost bit of the length the text is made of its bytes, so that it is a valid document.
//
// What is read is the same whatever the pieces are; a text that demands nothing changes no packet.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "scanlib/override_text.hpp"
#include "scanlib/rxp_istream.hpp"
#include "support/memory_connections.hpp"

namespace {

using bytes = std::vector<unsigned char>;
using packets = std::vector<std::pair<scanlib::packet_id, std::vector<std::uint32_t>>>;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// Takes one byte after the other from a text, then zeros.
class choices {
  public:
    explicit choices(const std::string& from) : from_(from) {}
    bool more() const { return next_ < from_.size(); }
    std::size_t below(std::size_t n) {
        return (more() ? static_cast<unsigned char>(from_[next_++]) : 0u) % n;
    }
    template<std::size_t N>
    const char* of(const std::array<const char*, N>& all) {
        return all[below(N)];
    }

  private:
    const std::string& from_;
    std::size_t next_ = 0;
};

constexpr std::array<const char*, 14> ids{"[1, 0]",  "[1, -1]",  "[2, 3]",   "[27, 4]", "[69, 0]",
                                          "[91, 0]", "[104, 0]", "[175, 0]", "[58, 0]", "[21, 1]",
                                          "[10, 0]", "[17, 0]",  "[8, 0]",   "[]"};
constexpr std::array<const char*, 15> fields{"1",
                                             "1.5",
                                             "-7",
                                             "65536",
                                             "\"T\"",
                                             "\"TYPE-1\"",
                                             "\"S1000001\"",
                                             "[]",
                                             "[1, 2]",
                                             "[{2, 10}]",
                                             "[{0, 67}, {4, 27}]",
                                             "921600",
                                             "x",
                                             "",
                                             "5.0000002374872565e-04"};

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        out += c == '"' ? "\\\"" : std::string(1, c);
    }
    return out + "\"";
}

std::string condition_of(choices& from) {
    std::string out = std::string("{\"ID\": ") + from.of(ids) + ", \"contentID\": [";
    for (std::size_t n = from.below(3), i = 0; i < n; ++i) {
        const std::size_t index = from.below(10);
        out += std::string(i == 0 ? "[" : ", [") + std::to_string(index) + ", " +
               quoted(from.of(fields)) + "]";
    }
    return out + "]}";
}

std::string made_text(const std::string& bytes) {
    choices from(bytes);
    std::string verification;
    std::string packets;
    while (from.more()) {
        if (from.below(4) == 0) {
            verification += (verification.empty() ? "" : ", ") + condition_of(from);
            continue;
        }
        packets += std::string(packets.empty() ? "" : ", ") +
                   "{\"existing_packet_identification\": " + condition_of(from) +
                   ", \"new_packet\": {";
        if (from.below(3) != 0) {
            packets += std::string("\"ID\": ") + from.of(ids) + ", \"content\": [";
            for (std::size_t n = from.below(10), i = 0; i < n; ++i) {
                packets += (i == 0 ? "" : ", ") + quoted(from.of(fields));
            }
            packets += "]";
        }
        packets += "}}";
    }
    return "{\"file_verification\": [" + verification + "], \"packets\": [" + packets + "]}";
}

struct outcome {
    bytes delivered;
    std::string failure;
    bool operator==(const outcome&) const = default;
};

outcome read_all(const bytes& stream, const std::string& pxp, std::uint64_t source_piece,
                 std::uint64_t piece) {
    outcome o;
    const auto connection =
        std::make_shared<test_support::memory_rconnection>(stream, source_piece);
    connection->pxp(pxp);
    bytes part(piece);
    try {
        while (const auto k = connection->read(reinterpret_cast<char*>(part.data()), part.size())) {
            o.delivered.insert(o.delivered.end(), part.begin(),
                               part.begin() + static_cast<std::ptrdiff_t>(k));
        }
    } catch (const std::exception& e) {
        o.failure = e.what();
    }
    return o;
}

/// The packets up to the first defect.
packets packets_of(const bytes& stream) {
    packets all;
    scanlib::rxp_istream in;
    in.attach(std::make_shared<test_support::memory_rconnection>(stream));
    try {
        while (in.next()) {
            all.emplace_back(in.id(),
                             std::vector<std::uint32_t>(in.body().begin(), in.body().end()));
        }
    } catch (const std::exception&) {
        return all;
    }
    return all;
}

bool is_override_text(const std::string& pxp) {
    try {
        scanlib::parse_override_text(pxp);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

/// Pieces decide how much of a stream without a whole number of words is dropped at its end.
void check_pieces(bytes stream, const std::string& pxp, std::uint64_t piece) {
    stream.resize(stream.size() / 4 * 4);
    const outcome whole = read_all(stream, pxp, ~std::uint64_t{0}, 4096);
    const outcome pieces = read_all(stream, pxp, piece, 4096);
    require(whole.failure == pieces.failure);
    require(!whole.failure.empty() || whole.delivered == pieces.delivered);
    require(whole.failure.empty() || !is_override_text(pxp) || !whole.failure.starts_with("<"));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3 || size > 100000) {
        return 0;
    }
    const std::uint64_t piece = 1 + data[0];
    const std::size_t length = std::min<std::size_t>(data[1] | (data[2] & 0x7F) << 8, size - 3);
    const std::string text(reinterpret_cast<const char*>(data) + 3, length);
    const bool make = data[2] >= 0x80;
    const std::string pxp = make ? made_text(text) : text;
    require(!make || is_override_text(pxp));
    const bytes stream(data + 3 + length, data + size);
    read_all(stream, pxp, piece, piece);
    check_pieces(stream, pxp, piece);
    const outcome same = read_all(stream, "{}", ~std::uint64_t{0}, 4096);
    if (same.failure.empty()) {
        const packets before = packets_of(stream);
        const packets after = packets_of(same.delivered);
        require(stream.size() % 4 != 0 || before.size() == after.size());
    }
    return 0;
}
