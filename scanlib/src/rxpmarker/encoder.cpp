#include <algorithm>

#include "scanlib/rxpmarker.hpp"
#include "source_name.hpp"
#include "words.hpp"

namespace scanlib {

namespace {

constexpr std::uint64_t preamble_bytes = sizeof preamble;

} // namespace

encoder_rxpmarker::encoder_rxpmarker(std::shared_ptr<basic_wconnection> connection,
                                     std::uint64_t capacity, std::uint64_t headroom,
                                     bool with_preamble)
    : basic_rxpmarker(capacity, headroom, with_preamble)
    , owner_(std::move(connection))
    , connection_(owner_.get())
    , encode_(array_begin()) {}

encoder_rxpmarker::~encoder_rxpmarker() {
    if (end_of_input_) {
        return;
    }
    try {
        mark_end();
        flush();
    } catch (...) {
        // A destructor has nobody to tell; whoever cares flushes before.
        return;
    }
}

/// Writes one word to the ring, draining it first where it is full.
inline void encoder_rxpmarker::place(std::uint32_t word) {
    encode_ = wrapped(encode_);
    std::uint32_t* const next = wrapped(encode_ + 1);
    if (next == read_.load(std::memory_order_relaxed)) {
        if (write_.load(std::memory_order_relaxed) == next) {
            throw scanlib_exception("Buffer overflow.", rxpmarker_source, __LINE__);
        }
        flush();
    }
    *encode_++ = word;
}

void encoder_rxpmarker::encode(const basic_buffer& packet) {
    if (*packet.begin() <= escape_word) {
        throw scanlib_exception("Start escape missing!", rxpmarker_source, __LINE__);
    }
    // A packet that failed half-way left words behind the committed end.
    encode_ = write_.load(std::memory_order_relaxed);
    place(*packet.begin());
    for (const std::uint32_t* p = packet.begin() + 1; p != packet.end(); ++p) {
        if (is_marked(*p)) {
            place(escape_word);
            place(~*p);
        } else {
            place(*p);
        }
    }
    encode_ = wrapped(encode_);
    write_.store(encode_, std::memory_order_relaxed);
}

void encoder_rxpmarker::put(basic_buffer& area) {
    if (!area.empty()) {
        encode(area);
    }
    area = basic_buffer(ring_end(), ring_end(), array_end());
}

void encoder_rxpmarker::get(basic_buffer& region) {
    if (preamble_pending_) {
        // The preamble drains like a region of the ring, ahead of all frames.
        preamble_drained_ += draining_preamble_ ? region.size() * 4 : 0;
        draining_preamble_ = preamble_drained_ < preamble_bytes;
        if (draining_preamble_) {
            auto* const words = const_cast<std::uint32_t*>(preamble.data());
            std::uint32_t* const rest = words + preamble_drained_ / 4;
            region = basic_buffer(rest, words + preamble.size(), words + preamble.size());
            return;
        }
        preamble_pending_ = false;
        region = basic_buffer();
    }
    std::uint32_t* read = read_.load(std::memory_order_relaxed) + region.size();
    read = read == ring_end() ? array_begin() : read;
    read_.store(read, std::memory_order_relaxed);
    std::uint32_t* const committed = write_.load(std::memory_order_relaxed);
    std::uint32_t* const end = committed >= read ? committed : ring_end();
    region = basic_buffer(read, end, end);
}

void encoder_rxpmarker::flush() {
    if (connection_ == nullptr) {
        return;
    }
    basic_buffer region;
    for (get(region); !region.empty(); get(region)) {
        const char* bytes = reinterpret_cast<const char*>(region.begin());
        auto rest = static_cast<std::int64_t>(region.size() * 4);
        while (rest > 0) {
            const std::int64_t taken = connection_->write(bytes, rest);
            bytes += taken;
            rest -= taken;
        }
    }
    if (end_of_input_) {
        connection_->close();
    }
}

} // namespace scanlib
