#pragma once

#include "ring_queue.hpp"
#include "scanlib/compressed_packets.hpp"
#include "subpackage.hpp"
#include "synthetic_packets.hpp"

#include <array>
#include <cstdint>

namespace scanlib {

/// What an expansion knows between packets.
struct compressed_packets::decoder_state {
    decoder_state(compressed_packets& consumer, bool skip) noexcept
        : owner(consumer), skip_sample_blocks(skip), out(consumer, consumer.packet_total) {}

    compressed_packets& owner;
    const bool skip_sample_blocks;
    detail::synthetic_packets out;

    // Key and frame packets.
    bool key_seen = false;
    bool echoes_used = false;
    bool shots_ready = false;
    std::uint32_t pending_echoes = 0; ///< owed to the shot delivered last
    packed_echo echo;                 ///< accumulators
    detail::plain_shot plain;
    detail::rad_shot rad;
    detail::hr_shot hr;
    detail::ring_queue<packed_echo> echoes{queue_limit};
    detail::ring_queue<detail::plain_shot> plain_shots{queue_limit};
    detail::ring_queue<detail::rad_shot> rad_shots{queue_limit};
    detail::ring_queue<detail::hr_shot> hr_shots{queue_limit};

    // Subpackages.
    detail::hr_shot current; ///< without echo count
    packed_echo current_echo;
    std::uint32_t last_time_delta = 0;
    std::int32_t last_line_delta = 0;
    std::int32_t last_frame_delta = 0;
    bool block_announced = false;
    std::array<std::uint32_t, detail::subpackage::longest> cut{}; ///< one that its packet cuts off

    void begin_key_shot();
    template<class Shot>
    void push_shot(detail::ring_queue<Shot>& queue, const Shot& shot);
    void push_echo(const packed_echo& e);
    template<class Shot, class Packet>
    void frame_shots(detail::ring_queue<Shot>& queue, Shot& last, Packet& p);
    template<class Packet>
    void key_echo(const Packet& p, std::uint16_t reflectance);
    template<class Packet>
    void frame_echoes(Packet& p);
    bool deliver_echoes();
    template<class Shot>
    bool deliver_shots(detail::ring_queue<Shot>& queue);
    void flush();
    void flush_hr();

    const std::uint32_t* take(const std::uint32_t*& at, const std::uint32_t* end,
                              std::size_t words);
    void key_shot(const std::uint32_t* words);
    void delta_shot(const std::uint32_t* words);
    void second_order_shot(const std::uint32_t* words);
    void key_echo(const std::uint32_t* words);
    void delta_echo(const std::uint32_t* words);
    void block_head(const std::uint32_t* words);
    void block(const std::uint32_t* words);
};

} // namespace scanlib
