#include "scanlib/rxp_istream.hpp"

#include <stdexcept>
#include <utility>

#include "id_mismatch.hpp"
#include "scanlib/packets.hpp"
#include "scanlib/rxpmarker.hpp"

namespace scanlib {

struct rxp_istream::state {
    bool fail = true;
    std::shared_ptr<basic_rconnection> connection;
    std::shared_ptr<decoder_rxpmarker> decoder;
    basic_buffer packet; ///< the last frame, in the decoder's ring
    short_code_table codes;
    std::set<packet_id> known;
    packet_id id;
    std::span<const std::uint32_t> body;
    std::vector<std::uint32_t> padded; ///< body of a packet shorter than its kind

    void share(std::shared_ptr<basic_rconnection> with, bool with_preamble) {
        connection = std::move(with);
        decoder = std::make_shared<decoder_rxpmarker>(connection, decoder_capacity,
                                                      decoder_headroom, with_preamble);
        body = {};
        fail = false;
    }
    void learn();
};

/// Takes over the codes that the header at hand assigns.
void rxp_istream::state::learn() {
    if (body.size() * 32 < packets::header::fixed_bits) {
        throw std::range_error(detail::missing_sequence);
    }
    packets::header header(body.data(), body.data() + body.size());
    codes.learn(header);
    for (std::uint32_t j = 0; j < header.size() && j + 1 < long_form; ++j) {
        known.insert({header[j].id(), header[j].version()});
    }
}

rxp_istream::rxp_istream() : state_(std::make_shared<state>()) {}
rxp_istream::rxp_istream(const std::string& uri) : rxp_istream() {
    open(uri);
}
rxp_istream::rxp_istream(const char* uri) : rxp_istream(std::string(uri)) {}
rxp_istream::rxp_istream(const std::filesystem::path& path) : rxp_istream(path.string()) {}

void rxp_istream::open(const std::string& uri) {
    const std::string prefix = uri.find(':') == std::string::npos ? "file:" : "";
    std::shared_ptr<basic_rconnection> connection(basic_rconnection::create(prefix + uri, "", ""));
    connection->open();
    state_->share(std::move(connection), true);
}

std::shared_ptr<basic_rconnection>
rxp_istream::attach(std::shared_ptr<basic_rconnection> connection) {
    std::shared_ptr<basic_rconnection> previous = state_->connection;
    if (connection) {
        state_->share(std::move(connection), false);
    } else {
        state_->connection.reset();
        state_->fail = true;
    }
    return previous;
}

rxp_istream& rxp_istream::next() {
    state& s = *state_;
    if (s.fail) {
        return *this;
    }
    s.decoder->get(s.packet);
    if (s.packet.empty()) {
        s.fail = true;
        return *this;
    }
    const packet_head head = read_head(s.packet.begin(), s.packet.end(), s.codes);
    s.id = {head.id, head.version};
    s.body = {head.payload, head.end};
    if (s.id == header_id) {
        s.learn();
    }
    return *this;
}

rxp_istream& rxp_istream::operator>>(packet_id& id) {
    if (next()) {
        id = state_->id;
    }
    return *this;
}

/// The body of the packet at hand, which must be `wanted`; as many words as its fixed part has are
/// readable.
const std::uint32_t* rxp_istream::expect(packet_id wanted, std::uint32_t fixed_bits) {
    state& s = *state_;
    if (s.id != wanted) {
        detail::throw_id_mismatch("rxp_istream", wanted, s.id);
    }
    const std::size_t words = (fixed_bits + 31) / 32;
    if (s.body.size() >= words) {
        return s.body.data();
    }
    if (layout_of(index_of(wanted)).has_sequence) {
        throw std::range_error(detail::missing_sequence);
    }
    s.padded.assign(s.body.begin(), s.body.end());
    s.padded.resize(words);
    return s.padded.data();
}

void rxp_istream::close() {
    state_->fail = true;
    if (const auto connection = std::exchange(state_->connection, nullptr)) {
        connection->close();
    }
}

std::uint32_t rxp_istream::raw_read(char* dst, std::uint16_t bytes) {
    state_->fail = true;
    return state_->decoder ? state_->decoder->raw_read(dst, bytes) : 0;
}

std::uint64_t rxp_istream::tell() const {
    return state_->decoder ? state_->decoder->tell() : 0;
}

void rxp_istream::seek(std::uint64_t position) {
    if (!state_->decoder) {
        throw std::runtime_error("rxp_istream: not open");
    }
    state_->decoder->seek(position);
}

bool rxp_istream::is_open() const noexcept {
    return state_->connection != nullptr;
}
bool rxp_istream::fail() const noexcept {
    return state_->fail;
}
packet_id rxp_istream::id() const noexcept {
    return state_->id;
}
std::span<const std::uint32_t> rxp_istream::body() const noexcept {
    return state_->body;
}
const short_code_table& rxp_istream::short_codes() const noexcept {
    return state_->codes;
}
const std::set<packet_id>& rxp_istream::known_ids() const noexcept {
    return state_->known;
}

} // namespace scanlib
