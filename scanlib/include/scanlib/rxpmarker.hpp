#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "scanlib/basic_buffer.hpp"
#include "scanlib/connection.hpp"
#include "scanlib/loss_log.hpp"

namespace scanlib {

/// Settled sizes of the two codecs, in words.
inline constexpr std::size_t decoder_capacity = 1024;
inline constexpr std::size_t decoder_headroom = 340;    ///< the part behind its ring
inline constexpr std::size_t encoder_capacity = 131072; ///< ring and headroom of the encoder
inline constexpr std::size_t encoder_headroom = 65536;  ///< the part behind its ring

/// What both codecs share: one array of words, its first part a ring, the rest headroom.
///
///     words                    ring end          end of the array
///     |  ring                  |  headroom        |
///     |....rrrrrrrrrrw.........|..................|
///          ^ read    ^ write
///
/// Positions wrap from ring end to the array's start. A packet that runs over ring end goes on in
/// the headroom, so that it is contiguous. One ring word stays free: write equal to read means
/// empty.
///
/// Words 0xFFFFFF01 and above begin a frame and stay as they are; a body word of 0xFFFFFF00 and
/// above is written as 0xFFFFFF00 and its inverse.
class basic_rxpmarker {
  public:
    /// Limit of capacity and of headroom, in words.
    static constexpr std::uint64_t largest_size = 0x100000;

    basic_rxpmarker(const basic_rxpmarker&) = delete;
    basic_rxpmarker& operator=(const basic_rxpmarker&) = delete;
    virtual ~basic_rxpmarker();
    virtual void get(basic_buffer& buffer) = 0;
    virtual void put(basic_buffer& buffer) = 0;

  protected:
    basic_rxpmarker(std::uint64_t capacity, std::uint64_t headroom, bool with_preamble);

    /// Makes the array larger; does nothing for a smaller headroom or ring. Opens the new room just
    /// before the read position. Throws scanlib_exception ("basic_rxpmarker::attempt_to_resize:
    /// excess packet size").
    void attempt_to_resize(std::uint64_t capacity, std::uint64_t headroom);

    std::uint32_t* array_begin() const noexcept { return words_.get(); }
    std::uint32_t* ring_end() const noexcept { return words_.get() + (capacity_ - headroom_); }
    std::uint32_t* array_end() const noexcept { return words_.get() + capacity_; }
    std::uint64_t ring_size() const noexcept { return capacity_ - headroom_; }
    std::uint32_t* wrapped(std::uint32_t* p) const noexcept {
        return p >= ring_end() ? array_begin() : p;
    }

    std::uint64_t capacity_;
    std::uint64_t headroom_;
    std::unique_ptr<std::uint32_t[]> words_;
    // Atomic for the one use by two threads: a decoder without a connection.
    std::atomic<std::uint32_t*>
        write_; ///< end of what the ring holds; in the encoder of what is wholly encoded
    std::atomic<std::uint32_t*> read_; ///< the producer must not pass it
    std::atomic<bool> end_of_input_{false};
    bool preamble_pending_;
};

/// Cuts a stream into packets, handed out in place.
///
/// With a connection it reads when it needs more, grows its ring and headroom while one packet is
/// larger than what they hold, and belongs to one thread. Without one it is a ring between a
/// producer, which calls `put`, and a consumer, which calls `get`.
class decoder_rxpmarker : public basic_rxpmarker {
  public:
    /// Shares `connection`, which may be null. `with_preamble` says that the stream's first 16
    /// bytes are the preamble.
    decoder_rxpmarker(std::shared_ptr<basic_rconnection> connection, std::uint64_t capacity,
                      std::uint64_t headroom, bool with_preamble);
    ~decoder_rxpmarker() override;

    /// Sets `packet` to the next packet, start word first, escapes removed; valid until the next
    /// call. An empty packet is the clean end; a call behind that throws. Throws scanlib_exception
    /// ("Bad preamble.", "Attempt to read beyond end of input.", "Buffer overflow!", "Start escape
    /// missing!", "Max headroom exhausted!", and the text of attempt_to_resize), and what the
    /// connection throws.
    void get(basic_buffer& packet) override;

    /// Takes the filled part of `region`, the one handed out before, and sets it to the next free
    /// one. An empty part is the end of the input. Waits for room where there is no connection.
    void put(basic_buffer& region) override;

    /// Moves to a raw byte offset, that of a start word. Throws scanlib_exception ("Cannot seek.",
    /// "Invalid seek position.") and what the connection throws.
    void seek(std::uint64_t position);

    /// Raw byte offset of the next word; right behind `get` that of the next start word.
    std::uint64_t tell() const noexcept { return stream_position_; }

    /// Copies up to `bytes` / 4 raw words from the ring, without fetching more. Returns the bytes
    /// copied.
    std::uint32_t raw_read(char* dst, std::uint16_t bytes);

    /// True once the input ended while a `get` looked for more: what that call handed out may be
    /// cut.
    bool packet_truncated() const noexcept { return packet_truncated_; }

    /// Where losses are counted; null for nowhere. The log outlives this object.
    void set_loss_log(loss_log* log) noexcept { losses_ = log; }

  private:
    struct assembly;

    void check_preamble();
    bool get_in_place(basic_buffer& packet);
    void assemble(basic_buffer& packet);
    void fill();
    void make_room(assembly& a);
    void make_headroom(assembly& a);
    void resize_under(assembly& a, std::uint64_t capacity, std::uint64_t headroom);
    std::uint32_t* free_end(std::uint32_t* write) const noexcept;

    std::shared_ptr<basic_rconnection> owner_;
    basic_rconnection* connection_;
    basic_buffer fill_region_;
    bool packet_truncated_ = false;
    bool past_end_ = false;
    std::uint32_t* decode_;
    std::uint64_t stream_position_ = 0;
    loss_log* losses_ = nullptr;
};

/// Escapes finished packets and drains them to a connection, when the ring is full, on `flush`, and
/// when destroyed.
class encoder_rxpmarker : public basic_rxpmarker {
  public:
    /// Shares `connection`, which may be null: then `get` drains.
    encoder_rxpmarker(std::shared_ptr<basic_wconnection> connection, std::uint64_t capacity,
                      std::uint64_t headroom, bool with_preamble);
    /// Marks the end and flushes; what the connection throws then is dropped, as is a packet in the
    /// making.
    ~encoder_rxpmarker() override;

    /// Sets `region` to what can be drained next, after counting what it says was drained (its
    /// begin to end).
    void get(basic_buffer& region) override;

    /// Encodes the packet in begin to end, if there is one, and sets `area` to the empty area for
    /// the next: the whole headroom. Throws scanlib_exception ("Start escape missing!", "Buffer
    /// overflow.") and what the connection throws.
    void put(basic_buffer& area) override;

    /// Drains all encoded packets to the connection, and closes it once the end is marked.
    void flush();

    /// The next flush closes the connection.
    void mark_end() noexcept { end_of_input_ = true; }

  private:
    void encode(const basic_buffer& packet);
    void place(std::uint32_t word);

    std::shared_ptr<basic_wconnection> owner_;
    basic_wconnection* connection_;
    basic_buffer drain_region_;
    std::uint32_t* encode_;
    std::uint64_t preamble_drained_ = 0;
    bool draining_preamble_ = false;
};

} // namespace scanlib
