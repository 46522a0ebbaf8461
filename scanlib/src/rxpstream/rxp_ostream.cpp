#include "scanlib/rxp_ostream.hpp"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "id_mismatch.hpp"
#include "scanlib/packets.hpp"
#include "scanlib/rxpmarker.hpp"

namespace scanlib {

struct rxp_ostream::state {
    basic_buffer area;    ///< of the next packet, in the encoder's headroom
    std::size_t ring = 0; ///< words that the encoder holds encoded
    short_code_table codes;
    packet_id expected; ///< (0, 0) for none
    std::shared_ptr<basic_wconnection> connection;
    std::shared_ptr<encoder_rxpmarker> encoder;
    std::filesystem::path path;

    void share(std::shared_ptr<basic_wconnection> with, bool with_preamble) {
        connection = std::move(with);
        encode_with(encoder_capacity, encoder_headroom, with_preamble);
    }
    void encode_with(std::size_t capacity, std::size_t headroom, bool with_preamble) {
        encoder =
            std::make_shared<encoder_rxpmarker>(connection, capacity, headroom, with_preamble);
        ring = capacity - headroom;
        area = basic_buffer();
        encoder->put(area);
    }
    void drain();
    void make_room(std::size_t words);
    void close();
};

/// Passes on what is encoded and lets the encoder go without closing the connection.
void rxp_ostream::state::drain() {
    if (encoder) {
        encoder->flush();
        encoder->mark_end();
        encoder.reset();
    }
}

/// Sees to it that a packet of `words` words fits the area, and the ring if all of them are
/// escaped. The settled sizes do for all but the longest.
void rxp_ostream::state::make_room(std::size_t words) {
    if (words > basic_rxpmarker::largest_size + longest_head) {
        throw std::length_error("rxp_ostream: packet of " + std::to_string(words) +
                                " words is too long");
    }
    if (words <= area.capacity() && 2 * words < ring) {
        return;
    }
    const std::size_t headroom = std::max(words, area.capacity());
    drain();
    encode_with(headroom + 2 * words + 1, headroom, false);
}

void rxp_ostream::state::close() {
    const auto closing = std::exchange(connection, nullptr);
    if (!closing) {
        return;
    }
    const auto encoding = std::exchange(encoder, nullptr);
    encoding->mark_end();
    encoding->flush();
    closing->close();
}

rxp_ostream::rxp_ostream() : state_(std::make_shared<state>()) {}

rxp_ostream::rxp_ostream(const std::filesystem::path& path, bool keep) : rxp_ostream() {
    keep_ = keep;
    open(path);
}

// Two may share a state. NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
rxp_ostream& rxp_ostream::operator=(const rxp_ostream& other) {
    if (state_ != other.state_) {
        release();
    }
    state_ = other.state_;
    keep_ = other.keep_;
    return *this;
}

rxp_ostream::~rxp_ostream() {
    release();
}

void rxp_ostream::release() noexcept {
    if (state_.use_count() != 1) {
        return;
    }
    try {
        state_->close();
    } catch (...) {
        // A destructor has nobody to tell; whoever cares closes before.
    }
    if (!keep_ && !state_->path.empty()) {
        std::error_code ignored;
        std::filesystem::remove(state_->path, ignored);
    }
}

void rxp_ostream::open(const std::filesystem::path& path) {
    std::shared_ptr<basic_wconnection> connection(basic_wconnection::create(path.string()));
    connection->open();
    state_->close();
    state_->path = path;
    state_->share(std::move(connection), true);
}

std::shared_ptr<basic_wconnection>
rxp_ostream::attach(std::shared_ptr<basic_wconnection> connection) {
    state_->drain();
    std::shared_ptr<basic_wconnection> previous = std::exchange(state_->connection, nullptr);
    if (connection) {
        state_->share(std::move(connection), false);
    }
    return previous;
}

void rxp_ostream::expect(packet_id id) {
    state_->expected = id;
}

void rxp_ostream::write(packet_id id, std::span<const std::uint32_t> body) {
    state& s = *state_;
    if (s.expected != packet_id{} && s.expected != id) {
        detail::throw_id_mismatch("rxp_ostream", s.expected, id);
    }
    if (!s.encoder) {
        throw std::runtime_error("rxp_ostream: not open");
    }
    const bool is_header = id == header_id;
    if (is_header && body.size() * 32 < packets::header::fixed_bits) {
        throw std::range_error(detail::missing_sequence);
    }
    s.make_room(longest_head + body.size());
    const std::size_t head = write_head(s.area.begin(), id, s.codes);
    s.area.set_filled(head + body.size());
    std::copy(body.begin(), body.end(), s.area.begin() + head);
    if (is_header) {
        packets::header header(body.data(), body.data() + body.size());
        s.codes.learn(header);
    }
    s.encoder->put(s.area);
    s.expected = {};
}

void rxp_ostream::close() {
    state_->close();
}

bool rxp_ostream::is_open() const noexcept {
    return state_->connection != nullptr;
}
const short_code_table& rxp_ostream::short_codes() const noexcept {
    return state_->codes;
}

} // namespace scanlib
