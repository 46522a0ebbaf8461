#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

#include "scanlib/basic_buffer.hpp"
#include "scanlib/packet_head.hpp"
#include "scanlib/packet_writers.hpp"
#include "scanlib/rxpmarker.hpp"

namespace scanlib {

/// Writes packets to a stream. Each packet is assembled directly in the encoder's headroom, under
/// the shortest head that the `header` packets written so far allow. Not copyable; belongs to one
/// thread.
class packet_emitter {
  public:
    /// Shares `encoder`, which must have had no packet yet.
    explicit packet_emitter(std::shared_ptr<encoder_rxpmarker> encoder);
    packet_emitter(const packet_emitter&) = delete;
    packet_emitter& operator=(const packet_emitter&) = delete;

    /// Writes one packet of the kind of `Writer`, with `elements` elements in its sequence. `fill`
    /// gets the writer over cleared words. Throws std::out_of_range for a packet beyond the
    /// headroom, and what the encoder throws.
    template<class Writer, class Fill>
    void emit(Fill&& fill, std::size_t elements = 0) {
        const packet_id id{Writer::id, Writer::version};
        std::uint32_t* payload = begin_packet(id, Writer::words(elements));
        Writer writer(payload);
        std::forward<Fill>(fill)(writer);
        end_packet(id, payload);
    }

    /// Writes one packet that consists of its head alone.
    template<class Writer>
    void emit() {
        emit<Writer>([](Writer&) {});
    }

    /// Writes one packet from the words of its payload.
    void put(packet_id id, std::span<const std::uint32_t> payload);

    /// Passes what was written so far on to the connection.
    void flush();

    /// Packets written so far.
    std::uint64_t packets() const noexcept { return packets_; }

  private:
    std::uint32_t* begin_packet(packet_id id, std::size_t payload_words);
    void end_packet(packet_id id, const std::uint32_t* payload);

    std::shared_ptr<encoder_rxpmarker> encoder_;
    basic_buffer area_;
    short_code_table codes_;
    std::uint64_t packets_ = 0;
};

} // namespace scanlib
