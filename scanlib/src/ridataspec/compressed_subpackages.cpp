#include "compressed_state.hpp"
#include "subpackage.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace scanlib {

namespace detail {

void synthetic_packets::emit_block_head(std::uint64_t time, std::uint16_t value,
                                        const std::uint32_t* entries, std::size_t entry_count) {
    count();
    constexpr std::size_t fixed = block_head::fixed_bits / 32;
    std::fill_n(head_words_.begin(), fixed, 0u);
    packets::sbl_dg_channel_header_1_writer writer(head_words_.data());
    writer.time_counter_hr(time);
    writer.block_value(value);
    std::copy_n(entries, entry_count, head_words_.begin() + fixed);
    const std::uint32_t* const end = head_words_.data() + fixed + entry_count;
    block_head view(head_words_.data(), end);
    consumer_.on_sbl_dg_channel_header_1(view, end);
}

void synthetic_packets::emit_block(const std::uint32_t* begin, const std::uint32_t* end) {
    count();
    packets::sbl_dg_channel_data_compressed view(begin, end);
    consumer_.on_sbl_dg_channel_data_compressed(view, end);
}

} // namespace detail

namespace sub = detail::subpackage;
using detail::plus;

namespace {

/// May come without a head of its own.
constexpr std::uint32_t unannounced_channel = 5;

} // namespace

/// The next subpackage, `words` long. Of one that reaches beyond the end, the missing words are 0.
inline const std::uint32_t* compressed_packets::decoder_state::take(const std::uint32_t*& at,
                                                                    const std::uint32_t* end,
                                                                    std::size_t words) {
    const std::uint32_t* const begin = at;
    const auto left = static_cast<std::size_t>(end - at);
    if (words <= left) [[likely]] {
        at += words;
        return begin;
    }
    owner.note_loss(loss::short_subpackage);
    std::copy_n(begin, left, cut.begin());
    std::fill_n(cut.begin() + static_cast<std::ptrdiff_t>(left), words - left, 0u);
    at = end;
    return cut.data();
}

inline void compressed_packets::decoder_state::key_shot(const std::uint32_t* w) {
    using layout = sub::key_shot;
    current.time = layout::time::read(w);
    current.line = layout::line::read(w);
    current.frame = layout::frame::read(w);
    out.emit(current);
}

inline void compressed_packets::decoder_state::delta_shot(const std::uint32_t* w) {
    using layout = sub::delta_shot;
    last_time_delta = layout::time::read(w);
    last_line_delta = layout::line::read(w);
    last_frame_delta = layout::frame::read(w);
    current.time += last_time_delta;
    current.line = plus(current.line, last_line_delta);
    current.frame = plus(current.frame, last_frame_delta);
    out.emit(current);
}

/// The last explicit deltas stay, so that the slope persists.
inline void compressed_packets::decoder_state::second_order_shot(const std::uint32_t* w) {
    using layout = sub::second_order_shot;
    const std::uint32_t time_delta =
        last_time_delta + static_cast<std::uint32_t>(layout::time::read(w));
    current.time += time_delta;
    current.line = plus(current.line, last_line_delta + layout::line::read(w));
    current.frame = plus(current.frame, last_frame_delta + layout::frame::read(w));
    out.emit(current);
}

inline void compressed_packets::decoder_state::key_echo(const std::uint32_t* w) {
    using layout = sub::key_echo;
    current_echo.range = static_cast<std::uint32_t>(layout::range::read(w));
    current_echo.amplitude = layout::amplitude::read(w);
    current_echo.reflectance = plus(current_echo.amplitude, layout::offset::read(w));
    current_echo.deviation = layout::deviation::read(w);
    out.emit(current_echo);
}

inline void compressed_packets::decoder_state::delta_echo(const std::uint32_t* w) {
    using layout = sub::delta_echo;
    const std::int32_t amplitude_delta = layout::amplitude::read(w);
    current_echo.range = plus(current_echo.range, layout::range::read(w));
    current_echo.amplitude = plus(current_echo.amplitude, amplitude_delta);
    current_echo.reflectance =
        plus(current_echo.reflectance, amplitude_delta + layout::offset::read(w));
    current_echo.deviation = plus(current_echo.deviation, layout::deviation::read(w));
    out.emit(current_echo);
}

void compressed_packets::decoder_state::block_head(const std::uint32_t* w) {
    using layout = sub::block_head;
    out.emit_block_head(current.time, layout::value::read(w), w + layout::words,
                        layout::channel_count::read(w));
    block_announced = true;
}

void compressed_packets::decoder_state::block(const std::uint32_t* w) {
    using layout = sub::block;
    const std::uint32_t channel = layout::channel::read(w);
    if (channel == unannounced_channel && !block_announced) {
        std::uint32_t entry = 0;
        sub::block_entry::channel::write(&entry, channel);
        out.emit_block_head(current.time, 0, &entry, 1);
        block_announced = true;
    }
    out.emit_block(w + layout::payload, w + layout::words + layout::sample_words::read(w));
}

void compressed_packets::on_packed_shot_echos_hr(packets::packed_shot_echos_hr& p,
                                                 const std::uint32_t*) {
    decoder_state& s = *state_;
    const std::uint32_t* at = p.words();
    const std::uint32_t* const end = p.end_of_words();
    while (at != end) {
        const std::uint32_t tag = sub::tag::read(at);
        switch (tag) {
        case sub::v2_end:
            return;
        case sub::v2_key_shot:
            s.key_shot(s.take(at, end, sub::key_shot::words));
            break;
        case sub::v2_delta_shot:
            s.delta_shot(s.take(at, end, sub::delta_shot::words));
            break;
        case sub::v2_second_order_shot:
            s.second_order_shot(s.take(at, end, sub::second_order_shot::words));
            break;
        case sub::v2_key_echo:
            s.key_echo(s.take(at, end, sub::key_echo::words));
            break;
        case sub::v2_delta_echo:
            s.delta_echo(s.take(at, end, sub::delta_echo::words));
            break;
        default:
            throw std::runtime_error("Unknown subpackage v2: " + std::to_string(tag));
        }
    }
}

/// The stream is told as one of bits, but every subpackage fills whole words.
void compressed_packets::on_packed_shot_echos_sbl_hr(packets::packed_shot_echos_sbl_hr& p,
                                                     const std::uint32_t*) {
    decoder_state& s = *state_;
    const std::uint32_t* at = p.words();
    const std::uint32_t* const end = p.end_of_words();
    while (at != end) {
        const std::uint32_t tag = sub::tag::read(at);
        switch (tag) {
        case sub::v3_key_shot:
            s.block_announced = false;
            s.key_shot(s.take(at, end, sub::key_shot::words));
            break;
        case sub::v3_delta_shot:
            s.block_announced = false;
            s.delta_shot(s.take(at, end, sub::delta_shot::words));
            break;
        case sub::v3_second_order_shot:
            s.block_announced = false;
            s.second_order_shot(s.take(at, end, sub::second_order_shot::words));
            break;
        case sub::v3_key_echo:
            s.key_echo(s.take(at, end, sub::key_echo::words));
            break;
        case sub::v3_delta_echo:
            s.delta_echo(s.take(at, end, sub::delta_echo::words));
            break;
        case sub::v3_block_head: {
            const std::size_t channels = sub::block_head::channel_count::read(at);
            const std::uint32_t* const w = s.take(at, end, sub::block_head::words + channels);
            if (!s.skip_sample_blocks) {
                s.block_head(w);
            }
            break;
        }
        case sub::v3_block: {
            const std::size_t samples = sub::block::sample_words::read(at);
            const std::uint32_t* const w = s.take(at, end, sub::block::words + samples);
            if (!s.skip_sample_blocks) {
                s.block(w);
            }
            break;
        }
        default:
            throw std::runtime_error("Unknown subpackage v3: " + std::to_string(tag));
        }
    }
}

} // namespace scanlib
