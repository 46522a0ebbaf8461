#include "scanlib/compressed_packets.hpp"

#include "compressed_state.hpp"

#include <type_traits>

namespace scanlib {

using detail::plus;
using detail::ring_queue;

namespace {

/// Adds a frame's slope and an element's corrections to a shot.
template<class Shot, class Packet, class Element>
void advance(Shot& shot, const Packet& p, const Element& e) {
    const std::uint32_t time_delta =
        p.time_delta() + static_cast<std::uint32_t>(e.time_correction());
    shot.time += time_delta;
    shot.line = plus(shot.line, p.line_delta() + e.line_correction());
    shot.frame = plus(shot.frame, p.frame_delta() + e.frame_correction());
    shot.echo_count = e.echo_count();
}

template<class Shot, class Packet>
void advance(Shot& shot, const Packet& p) {
    shot.time += p.time_delta();
    shot.line = plus(shot.line, p.line_delta());
    shot.frame = plus(shot.frame, p.frame_delta());
    shot.echo_count = p.echo_count();
}

template<class Element>
void advance(packed_echo& echo, const Element& e) {
    echo.range = plus(echo.range, e.range_delta());
    echo.amplitude = plus(echo.amplitude, e.amplitude_delta());
    if constexpr (requires { e.offset_delta(); }) {
        echo.reflectance = plus(echo.reflectance, e.amplitude_delta() + e.offset_delta());
    } else {
        echo.reflectance = plus(echo.reflectance, e.reflectance_delta());
    }
    echo.flags = e.flags();
    echo.deviation = plus(echo.deviation, e.deviation_delta());
}

} // namespace

compressed_packets::compressed_packets(bool skip_sample_blocks)
    : state_(std::make_unique<decoder_state>(*this, skip_sample_blocks)) {}

compressed_packets::~compressed_packets() = default;

bool compressed_packets::dispatch(const std::uint32_t* begin, const std::uint32_t* end) {
    state_->out.begin_dispatch();
    return basic_packets::dispatch(begin, end);
}

/// What the packets before a key left unmatched never finds its counterpart.
void compressed_packets::decoder_state::begin_key_shot() {
    if (echoes_used) {
        const std::size_t left =
            echoes.size() + plain_shots.size() + rad_shots.size() + hr_shots.size();
        if (left != 0) {
            owner.note_loss(loss::packed_leftover, left);
        }
        echoes.clear();
        plain_shots.clear();
        rad_shots.clear();
        hr_shots.clear();
        pending_echoes = 0;
        echoes_used = false;
    }
    shots_ready = true;
}

template<class Shot>
inline void compressed_packets::decoder_state::push_shot(ring_queue<Shot>& queue,
                                                         const Shot& shot) {
    if (!queue.push(shot)) [[unlikely]] {
        owner.note_loss(loss::packed_queue_full);
    }
}

/// Echoes before the first key shot would be dropped by it in any case.
inline void compressed_packets::decoder_state::push_echo(const packed_echo& e) {
    if (!shots_ready) [[unlikely]] {
        owner.note_loss(loss::echo_without_shot);
    } else if (!echoes.push(e)) [[unlikely]] {
        owner.note_loss(loss::packed_queue_full);
    }
}

/// False where an echo that is owed has not come yet.
inline bool compressed_packets::decoder_state::deliver_echoes() {
    while (pending_echoes != 0) {
        if (echoes.empty()) {
            return false;
        }
        out.emit(echoes.front());
        echoes.pop();
        --pending_echoes;
    }
    return true;
}

template<class Shot>
inline bool compressed_packets::decoder_state::deliver_shots(ring_queue<Shot>& queue) {
    while (!queue.empty()) {
        out.emit(queue.front());
        pending_echoes = queue.front().echo_count;
        queue.pop();
        if (!deliver_echoes()) {
            return false;
        }
    }
    return true;
}

void compressed_packets::decoder_state::flush() {
    if (shots_ready && deliver_echoes() && deliver_shots(plain_shots)) {
        deliver_shots(rad_shots);
    }
}

void compressed_packets::decoder_state::flush_hr() {
    if (shots_ready && deliver_echoes()) {
        deliver_shots(hr_shots);
    }
}

void compressed_packets::on_packed_key_laser_shot_2angles(
    packets::packed_key_laser_shot_2angles& p) {
    decoder_state& s = *state_;
    s.begin_key_shot();
    s.plain = {p.time_counter(), p.line_counter(), p.frame_counter(), p.echo_count()};
    s.push_shot(s.plain_shots, s.plain);
    s.flush();
    s.key_seen = true;
}

void compressed_packets::on_packed_key_laser_shot_2angles_rad(
    packets::packed_key_laser_shot_2angles_rad& p) {
    decoder_state& s = *state_;
    s.begin_key_shot();
    s.rad = {p.time_counter(), p.line_counter(), p.frame_counter(), p.background_radiation(),
             p.echo_count()};
    s.push_shot(s.rad_shots, s.rad);
    s.flush();
    s.key_seen = true;
}

void compressed_packets::on_packed_key_laser_shot_2angles_hr(
    packets::packed_key_laser_shot_2angles_hr& p) {
    decoder_state& s = *state_;
    s.begin_key_shot();
    s.hr = {p.time_counter_hr(), p.line_counter(), p.frame_counter(), p.echo_count()};
    s.push_shot(s.hr_shots, s.hr);
    s.flush_hr();
    s.key_seen = true;
}

/// Pushes the shots of a frame.
template<class Shot, class Packet>
inline void compressed_packets::decoder_state::frame_shots(ring_queue<Shot>& queue, Shot& last,
                                                           Packet& p) {
    Shot shot = last;
    advance(shot, p);
    push_shot(queue, shot);
    const std::uint32_t n = p.size();
    for (std::uint32_t i = 0; i < n; ++i) {
        const auto e = p[i];
        if constexpr (!std::is_same_v<Shot, detail::hr_shot>) {
            if (e.time_correction() == closing_time_correction) {
                break;
            }
        }
        advance(shot, p, e);
        push_shot(queue, shot);
    }
    last = shot;
}

void compressed_packets::on_packed_frame_laser_shot_2angles(
    packets::packed_frame_laser_shot_2angles& p, const std::uint32_t*) {
    if (!state_->key_seen) {
        note_loss(loss::packed_shot_without_key);
        return;
    }
    state_->frame_shots(state_->plain_shots, state_->plain, p);
    state_->flush();
}

void compressed_packets::on_packed_frame_laser_shot_2angles_rad(
    packets::packed_frame_laser_shot_2angles_rad& p, const std::uint32_t*) {
    if (!state_->key_seen) {
        note_loss(loss::packed_shot_without_key);
        return;
    }
    state_->rad.radiation = p.background_radiation();
    state_->frame_shots(state_->rad_shots, state_->rad, p);
    state_->flush();
}

void compressed_packets::on_packed_frame_laser_shot_2angles_hr(
    packets::packed_frame_laser_shot_2angles_hr& p, const std::uint32_t*) {
    if (!state_->key_seen) {
        note_loss(loss::packed_shot_without_key);
        return;
    }
    state_->frame_shots(state_->hr_shots, state_->hr, p);
    state_->flush_hr();
}

template<class Packet>
void compressed_packets::decoder_state::key_echo(const Packet& p, std::uint16_t reflectance) {
    echoes_used = true;
    echo = {static_cast<std::uint32_t>(p.range_counter()), p.amplitude(), reflectance, p.flags(),
            p.deviation()};
    push_echo(echo);
}

template<class Packet>
void compressed_packets::decoder_state::frame_echoes(Packet& p) {
    echoes_used = true;
    const std::uint32_t n = p.size();
    packed_echo e = echo; // in registers: a copy made of freshly written parts is slow
    for (std::uint32_t i = 0; i < n; ++i) {
        advance(e, p[i]);
        push_echo(e);
    }
    echo = e;
}

void compressed_packets::on_packed_key_echo(packets::packed_key_echo& p) {
    state_->key_echo(p, static_cast<std::uint16_t>(p.reflectance()));
    state_->flush();
}

void compressed_packets::on_packed_key_echo_hr(packets::packed_key_echo_hr& p) {
    state_->key_echo(p, static_cast<std::uint16_t>(p.reflectance()));
    state_->flush_hr();
}

void compressed_packets::on_packed_key_echo_hr_1(packets::packed_key_echo_hr_1& p) {
    state_->key_echo(p, plus(p.amplitude(), p.reflectance_offset()));
    state_->flush_hr();
}

void compressed_packets::on_packed_frame_echo(packets::packed_frame_echo& p, const std::uint32_t*) {
    state_->frame_echoes(p);
    state_->flush();
}

void compressed_packets::on_packed_frame_echo_hr(packets::packed_frame_echo_hr& p,
                                                 const std::uint32_t*) {
    state_->frame_echoes(p);
    state_->flush_hr();
}

void compressed_packets::on_packed_frame_echo_hr_1(packets::packed_frame_echo_hr_1& p,
                                                   const std::uint32_t*) {
    state_->frame_echoes(p);
    state_->flush_hr();
}

} // namespace scanlib
