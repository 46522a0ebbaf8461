#pragma once

#include "scanlib/basic_packets.hpp"
#include "scanlib/packed_records.hpp"
#include "scanlib/packet_writers.hpp"

#include <array>
#include <cstdint>

namespace scanlib::detail {

/// `value` plus a signed difference, modulo its width.
template<class T>
constexpr T plus(T value, std::int32_t delta) noexcept {
    return static_cast<T>(value + static_cast<T>(delta));
}

/// Shots as the queues hold them.
struct plain_shot {
    std::uint32_t time = 0;
    std::uint32_t line = 0;
    std::uint32_t frame = 0;
    std::uint8_t echo_count = 0;
};
struct rad_shot {
    std::uint32_t time = 0;
    std::uint32_t line = 0;
    std::uint32_t frame = 0;
    std::uint16_t radiation = 0;
    std::uint8_t echo_count = 0;
};
struct hr_shot {
    std::uint64_t time = 0;
    std::uint32_t line = 0;
    std::uint32_t frame = 0;
    std::uint8_t echo_count = 0;
};

/// Words of one ordinary kind without sequence, with its view laid.
template<class View>
struct scratch {
    std::array<std::uint32_t, View::fixed_bits / 32> words{};
    View view{words.data(), words.data() + words.size()};
};

/// Calls the ordinary handlers of a consumer, with views over words of its own. Not copyable: the
/// views point into it.
class synthetic_packets {
  public:
    /// `total` counts the logical packets; both outlive this object.
    synthetic_packets(basic_packets& consumer, std::uint32_t& total) noexcept
        : consumer_(consumer), total_(total) {}
    synthetic_packets(const synthetic_packets&) = delete;
    synthetic_packets& operator=(const synthetic_packets&) = delete;

    /// A packet of the stream is dispatched: it counts once, together with what it first expands
    /// to.
    void begin_dispatch() noexcept {
        first_ = false;
        ++total_;
    }

    void emit(const packed_echo& e) {
        count();
        packets::echo_writer w(echo_.words.data());
        w.range_counter(static_cast<std::int32_t>(e.range));
        w.amplitude(e.amplitude);
        w.reflectance(static_cast<std::int16_t>(e.reflectance));
        w.flags(e.flags);
        w.deviation(static_cast<std::int16_t>(e.deviation));
        consumer_.on_echo(echo_.view);
    }

    /// The calls of the version chain of `laser_shot_2angles`, whoever ends it.
    void emit(const plain_shot& s) {
        count();
        packets::laser_shot_2angles_writer w(plain_.words.data());
        w.time_counter(s.time);
        w.line_counter(s.line);
        w.frame_counter(s.frame);
        consumer_.on_laser_shot_2angles(plain_.view);
        consumer_.on_laser_shot_1angle(one_angle_);
        consumer_.on_laser_shot(no_angle_);
    }

    void emit(const rad_shot& s) {
        count();
        packets::laser_shot_2angles_rad_writer w(rad_.words.data());
        w.time_counter(s.time);
        w.line_counter(s.line);
        w.frame_counter(s.frame);
        w.background_radiation(s.radiation);
        consumer_.on_laser_shot_2angles_rad(rad_.view);
    }

    void emit(const hr_shot& s) {
        count();
        packets::laser_shot_2angles_hr_writer w(hr_.words.data());
        w.time_counter_hr(s.time);
        w.line_counter(s.line);
        w.frame_counter(s.frame);
        consumer_.on_laser_shot_2angles_hr(hr_.view);
    }

    /// A head of sample blocks with `count` entries, which are taken as they are.
    void emit_block_head(std::uint64_t time, std::uint16_t value, const std::uint32_t* entries,
                         std::size_t entry_count);

    /// A sample block whose payload, word for word that of the ordinary kind, is begin to end.
    void emit_block(const std::uint32_t* begin, const std::uint32_t* end);

    /// Most entries of a head of sample blocks.
    static constexpr std::size_t most_entries = 7;

  private:
    using block_head = packets::sbl_dg_channel_header_1;

    void count() noexcept {
        total_ += first_ ? 1u : 0u;
        first_ = true;
    }

    basic_packets& consumer_;
    std::uint32_t& total_;
    bool first_ = false; ///< something was emitted in this dispatch
    scratch<packets::echo> echo_;
    scratch<packets::laser_shot_2angles> plain_;
    packets::laser_shot_1angle one_angle_{plain_.view.words(), plain_.view.end_of_words()};
    packets::laser_shot no_angle_{plain_.view.words(), plain_.view.end_of_words()};
    scratch<packets::laser_shot_2angles_rad> rad_;
    scratch<packets::laser_shot_2angles_hr> hr_;
    std::array<std::uint32_t, block_head::fixed_bits / 32 + most_entries> head_words_{};
};

} // namespace scanlib::detail
