#include <algorithm>
#include <cstring>

#include "scanlib/rxpmarker.hpp"
#include "source_name.hpp"
#include "words.hpp"

namespace scanlib {

/// Pointers of a packet in the making.
struct decoder_rxpmarker::assembly {
    std::uint32_t* begin;       ///< start word
    std::uint32_t* destination; ///< where the next word goes
    bool move_needed = false;   ///< words no longer lie where they must go
};

decoder_rxpmarker::decoder_rxpmarker(std::shared_ptr<basic_rconnection> connection,
                                     std::uint64_t capacity, std::uint64_t headroom,
                                     bool with_preamble)
    : basic_rxpmarker(capacity, headroom, with_preamble)
    , owner_(std::move(connection))
    , connection_(owner_.get())
    , decode_(array_begin()) {}

decoder_rxpmarker::~decoder_rxpmarker() = default;

void decoder_rxpmarker::check_preamble() {
    for (const std::uint32_t expected : preamble) {
        decode_ = wrapped(decode_);
        if (decode_ == write_.load(std::memory_order_acquire)) {
            read_.store(decode_, std::memory_order_release);
            fill();
        }
        if (decode_ == write_.load(std::memory_order_acquire) || *decode_ != expected) {
            throw scanlib_exception("Bad preamble.", rxpmarker_source, __LINE__);
        }
        ++decode_;
    }
    stream_position_ += sizeof preamble;
    preamble_pending_ = false;
}

/// A packet without escapes that the ring holds to its end, as nearly all are. False for any other.
bool decoder_rxpmarker::get_in_place(basic_buffer& packet) {
    std::uint32_t* const begin = decode_;
    const std::uint32_t* const write = write_.load(std::memory_order_acquire);
    const std::uint32_t* const end = write < begin ? ring_end() : write;
    if (begin >= end || *begin <= escape_word) {
        return false;
    }
    std::uint32_t* const next = begin + 1 + plain_run(begin + 1, end);
    if (next == end || *next == escape_word) {
        return false;
    }
    read_.store(begin, std::memory_order_release);
    decode_ = next;
    stream_position_ += static_cast<std::uint64_t>(next - begin) * 4;
    packet = basic_buffer(begin, next, next);
    return true;
}

void decoder_rxpmarker::get(basic_buffer& packet) {
    if (preamble_pending_) [[unlikely]] {
        check_preamble();
    }
    if (past_end_) {
        throw scanlib_exception("Attempt to read beyond end of input.", rxpmarker_source, __LINE__);
    }
    if (!get_in_place(packet)) [[unlikely]] {
        assemble(packet);
    }
}

/// The next packet word for word, with more input where it is needed.
void decoder_rxpmarker::assemble(basic_buffer& packet) {
    packet = basic_buffer(decode_, decode_, decode_);
    std::uint32_t* write = write_.load(std::memory_order_acquire);
    // The flag before the position: what was put ahead of the end must be seen with it.
    if (end_of_input_.load(std::memory_order_acquire) &&
        wrapped(decode_) == wrapped(write_.load(std::memory_order_acquire))) {
        past_end_ = true;
        return;
    }
    read_.store(decode_, std::memory_order_release);
    assembly a{decode_, decode_};
    bool first_word = true;
    bool escape_pending = false;
    while (true) {
        if (decode_ >= ring_end()) {
            decode_ = array_begin();
            a.move_needed = true;
        }
        if (decode_ == write) {
            write = write_.load(std::memory_order_acquire);
            if (decode_ == write) {
                make_room(a);
                fill();
                write = write_.load(std::memory_order_acquire);
                if (decode_ == write) {
                    packet_truncated_ = true;
                    packet = basic_buffer(a.begin, a.destination, a.destination);
                    return;
                }
                continue;
            }
        }
        if (first_word) {
            if (*decode_ <= escape_word) {
                throw scanlib_exception("Start escape missing!", rxpmarker_source, __LINE__);
            }
            if (a.move_needed) {
                *a.destination = *decode_;
            }
            first_word = false;
        } else if (escape_pending) {
            *a.destination = ~*decode_;
            escape_pending = false;
        } else {
            std::uint32_t* const available = write > decode_ ? write : ring_end();
            const auto room = array_end() - a.destination;
            const std::uint32_t* const end =
                available - decode_ > room ? decode_ + room : available;
            const std::size_t run = plain_run(decode_, end);
            if (a.move_needed) {
                std::memmove(a.destination, decode_, run * sizeof *decode_);
            }
            a.destination += run;
            decode_ += run;
            stream_position_ += run * 4;
            if (a.destination == array_end()) [[unlikely]] {
                make_headroom(a);
                write = write_.load(std::memory_order_acquire);
                continue;
            }
            if (decode_ == end) {
                continue;
            }
            if (*decode_ > escape_word) {
                packet = basic_buffer(a.begin, a.destination, a.destination);
                return;
            }
            escape_pending = true;
            a.move_needed = true;
            ++decode_;
            stream_position_ += 4;
            continue;
        }
        ++a.destination;
        ++decode_;
        stream_position_ += 4;
        if (a.destination == array_end()) [[unlikely]] {
            make_headroom(a);
            write = write_.load(std::memory_order_acquire);
        }
    }
}

/// Before a fill: a ring that this packet has filled up must grow.
void decoder_rxpmarker::make_room(assembly& a) {
    const auto full = [this] { return wrapped(write_.load() + 1) == read_.load(); };
    if (!full()) {
        return;
    }
    if (connection_ != nullptr) {
        resize_under(a, 2 * capacity_ - headroom_, headroom_);
    }
    if (full()) {
        throw scanlib_exception("Buffer overflow!", rxpmarker_source, __LINE__);
    }
}

/// The packet has reached the array's end.
void decoder_rxpmarker::make_headroom(assembly& a) {
    if (connection_ != nullptr) {
        const auto headroom = static_cast<std::uint64_t>(a.destination - a.begin) + 1;
        resize_under(a, ring_size() + headroom, headroom);
    }
    if (a.destination == array_end()) {
        throw scanlib_exception("Max headroom exhausted!", rxpmarker_source, __LINE__);
    }
}

/// Resizes and carries the pointers of the packet in the making over.
void decoder_rxpmarker::resize_under(assembly& a, std::uint64_t capacity, std::uint64_t headroom) {
    // What lies at or behind the read position keeps its distance from ring end, the rest its
    // offset from the start.
    struct place {
        bool from_ring_end;
        std::ptrdiff_t distance;
    };
    const auto remember = [this](const std::uint32_t* p) {
        const bool moved = p >= read_.load();
        return place{moved, moved ? p - ring_end() : p - array_begin()};
    };
    const auto recall = [this](place w) {
        return (w.from_ring_end ? ring_end() : array_begin()) + w.distance;
    };
    const place decode = remember(decode_);
    const place begin = remember(a.begin);
    const place destination = remember(a.destination);
    attempt_to_resize(capacity, headroom);
    decode_ = recall(decode);
    a.begin = recall(begin);
    a.destination = recall(destination);
    fill_region_ = basic_buffer();
}

void decoder_rxpmarker::fill() {
    if (connection_ == nullptr) {
        return;
    }
    if (fill_region_.capacity() == 0) {
        put(fill_region_);
    }
    char* const bytes = reinterpret_cast<char*>(fill_region_.begin());
    const std::uint64_t room = fill_region_.capacity() * 4;
    std::uint64_t got = 0;
    do {
        const std::uint64_t k = connection_->read(bytes + got, room - got);
        if (k == 0 && got % 4 != 0) {
            if (losses_ != nullptr) {
                losses_->note(loss::partial_word, got);
            }
            got = 0;
        }
        if (k == 0) {
            break;
        }
        got += k;
    } while ((room - got) % 4 != 0);
    fill_region_.set_filled(static_cast<std::size_t>(got / 4));
    put(fill_region_);
}

/// End of the free region that begins at the write position.
std::uint32_t* decoder_rxpmarker::free_end(std::uint32_t* write) const noexcept {
    std::uint32_t* const read = read_.load(std::memory_order_acquire);
    if (read > write) {
        return read - 1;
    }
    return read == array_begin() ? ring_end() - 1 : ring_end();
}

void decoder_rxpmarker::put(basic_buffer& region) {
    std::uint32_t* write = write_.load(std::memory_order_relaxed);
    if (region.capacity() != 0) {
        if (region.empty()) {
            end_of_input_.store(true, std::memory_order_release);
        } else {
            write += region.size();
            write = write == ring_end() ? array_begin() : write;
            write_.store(write, std::memory_order_release);
        }
    }
    std::uint32_t* end = free_end(write);
    while (end == write && connection_ == nullptr) {
        end = free_end(write);
    }
    region = basic_buffer(write, write, end);
}

void decoder_rxpmarker::seek(std::uint64_t position) {
    if (connection_ == nullptr) {
        throw scanlib_exception("Cannot seek.", rxpmarker_source, __LINE__);
    }
    if (position % 4 != 0) {
        throw scanlib_exception("Invalid seek position.", rxpmarker_source, __LINE__);
    }
    connection_->seek(position);
    stream_position_ = position;
    decode_ = write_.load();
    preamble_pending_ = position == 0 || preamble_pending_;
}

std::uint32_t decoder_rxpmarker::raw_read(char* dst, std::uint16_t bytes) {
    std::uint32_t copied = 0;
    for (; copied + 4u <= bytes; copied += 4) {
        decode_ = wrapped(decode_);
        if (decode_ == write_.load(std::memory_order_acquire)) {
            break;
        }
        std::memcpy(dst + copied, decode_, 4);
        ++decode_;
    }
    return copied;
}

} // namespace scanlib
