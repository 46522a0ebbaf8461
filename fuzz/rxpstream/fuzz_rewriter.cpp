// Any bytes as a stream and any text as its override text, read in pieces of any size. The input
// is the size of the pieces, the length of the text in two bytes, the text, and the stream.
//
// What is read is the same whatever the pieces are; a text that demands nothing changes no packet.
#include <algorithm>
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
    const std::size_t length = std::min<std::size_t>(data[1] | data[2] << 8, size - 3);
    const std::string pxp(reinterpret_cast<const char*>(data) + 3, length);
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
