#include "simulator/recorder.hpp"

#include "scanlib/packet_writers.hpp"
#include "simulator/description.hpp"

#include <algorithm>
#include <cmath>

namespace simulator {

namespace {

namespace packets = scanlib::packets;

constexpr std::uint32_t lead_pairs = 3;          ///< PPS pairs ahead of the first shot
constexpr std::uint64_t report_interval = 65536; ///< shots between two calls of `progress`
constexpr std::uint32_t seconds_a_day = 86400;

/// Sunlight, stronger on one side, in counts.
std::uint16_t radiation_of(const shot& s) {
    return static_cast<std::uint16_t>(200 +
                                      s.frame_counter * 100ULL / scan_program::frame_circle_count);
}

} // namespace

recorder::recorder(const scan_settings& settings, scanlib::packet_emitter& emitter)
    : settings_(settings)
    , out_(emitter)
    , scene_(settings.seed)
    , instrument_(settings)
    , calibration_(settings, instrument_.units())
    , program_(settings)
    , writer_(settings.form, emitter)
    , digitiser_(settings)
    , waveforms_(settings.waveforms, emitter, writer_)
    , random_(settings.seed ^ 0xEC40E5EC40E5EC40)
    , next_second_(settings.start_time + 1) {}

void recorder::emit_pps(double pps_time) {
    if (is_high_resolution(settings_.form)) {
        out_.emit<packets::pps_sync_hr_writer>([&](packets::pps_sync_hr_writer& p) {
            p.system_counter_hr(instrument_.system_counter_hr(pps_time));
            p.pps_time_hr(static_cast<std::uint64_t>(pps_time) % seconds_a_day * 1'000'000);
        });
    } else {
        out_.emit<packets::pps_sync_writer>([&](packets::pps_sync_writer& p) {
            p.system_counter(instrument_.system_counter(pps_time));
            p.pps_time(static_cast<std::uint32_t>(pps_time) % seconds_a_day * 1000);
        });
    }
}

void recorder::emit_counter_sync(double pps_time) {
    // The high-resolution form leaves the synchronisation of the shots alone.
    if (is_high_resolution(settings_.form)) {
        out_.emit<packets::counter_sync_2angles_hr_writer>(
            [&](auto& p) { p.system_counter_hr(instrument_.system_counter_hr(pps_time)); });
    } else {
        out_.emit<packets::counter_sync_writer>(
            [&](auto& p) { p.system_counter(instrument_.system_counter(pps_time)); });
    }
}

void recorder::emit_housekeeping(std::uint32_t second) {
    const auto hour = static_cast<std::uint8_t>(second / 3600 % 24);
    const auto minute = static_cast<std::uint8_t>(second / 60 % 60);
    const auto in_minute = static_cast<std::uint8_t>(second % 60);
    const std::uint32_t counter = instrument_.system_counter(second);
    out_.emit<packets::hk_rtc_sys_writer>([&](packets::hk_rtc_sys_writer& p) {
        p.field_1(20);
        p.field_2(1);
        p.field_3(1);
        p.field_4(hour);
        p.field_5(minute);
        p.field_6(in_minute);
        p.field_7(counter);
    });
    out_.emit<packets::hk_time_writer>([&](packets::hk_time_writer& p) {
        p.field_1(counter);
        p.field_2(2020);
        p.field_3(1);
        p.field_4(1);
        p.field_5(hour);
        p.field_6(minute);
        p.field_7(in_minute);
    });
    // A tripod never stands quite still.
    const auto tilt = [&] { return static_cast<std::int16_t>(random_.between(-20, 20)); };
    out_.emit<packets::hk_incl_writer>([&](packets::hk_incl_writer& p) {
        p.field_1(tilt());
        p.field_2(tilt());
    });
}

void recorder::emit_second(std::uint32_t second) {
    writer_.flush();
    emit_counter_sync(second);
    emit_pps(second);
    emit_housekeeping(second);
}

/// Zone that a line measures, from 1.
std::uint32_t recorder::zone_of_line() const {
    return static_cast<std::uint32_t>(line_ % settings_.zones) + 1;
}

void recorder::emit_zone() {
    const double length = zone_length(settings_.pulse_rate);
    const std::uint32_t zone = zone_of_line();
    // Half of the blind range lies between the gates and the nearest echoes.
    const double margin = 0.5 * blind_range;
    out_.emit<packets::mta_settings_1_writer>([&](packets::mta_settings_1_writer& p) {
        p.mta_zones(settings_.zones_by == zone_telling::number ? static_cast<std::uint8_t>(zone)
                                                               : std::uint8_t{0});
        p.gate_low(static_cast<float>((zone - 1) * length + margin));
        p.gate_high(static_cast<float>(zone * length - margin));
        p.unambiguous_range(static_cast<float>(length));
    });
}

/// Whether the receiver listens when an echo of this range returns.
bool recorder::is_heard(double range) const {
    const double length = zone_length(settings_.pulse_rate);
    const std::uint32_t zone = zone_of_line();
    return range >= (zone - 1) * length + blind_range && range <= zone * length - blind_range;
}

void recorder::end_line() {
    if (settings_.zones != 0) {
        // The pulse that would come next is not fired, and ends the line for the receiver.
        land_echoes(instrument_.system_counter_hr(shot_time_ + 1 / settings_.pulse_rate));
        in_flight_.clear();
    }
    writer_.flush();
    out_.emit<packets::line_stop_writer>();
}

void recorder::move_to(const shot& s) {
    while (s.pps_time >= next_second_) {
        emit_second(next_second_++);
    }
    const bool first = done_.shots == 0;
    if (!first && s.line == line_) {
        return;
    }
    if (!first) {
        end_line();
    }
    if (!first && s.frame != frame_) {
        out_.emit<packets::frame_stop_writer>();
    }
    if (first || s.frame != frame_) {
        out_.emit<packets::frame_start_up_writer>();
    }
    line_ = s.line;
    frame_ = s.frame;
    if (settings_.zones != 0) {
        emit_zone();
    }
    out_.emit<packets::line_start_up_writer>();
    ++done_.lines;
}

void recorder::emit_shot(const shot& s) {
    const std::uint64_t time = is_high_resolution(settings_.form)
                                   ? instrument_.system_counter_hr(s.pps_time)
                                   : instrument_.system_counter(s.pps_time);
    if (settings_.zones != 0) {
        land_echoes(time);
    }
    shot_ticks_ = time;
    shot_time_ = s.pps_time;
    writer_.shot({time, s.line_counter, s.frame_counter, radiation_of(s)});
    ++done_.shots;
    if (const auto pane = calibration_.pane_echo(s)) {
        emit_echo(*pane, 0);
    }
    instrument_.aim(s);
    receive_echoes();
    if (settings_.waveforms != waveform_form::none) {
        digitiser_.sample(time, echoes_);
    }
    calibration_.add_ringing(echoes_);
    for (const received_echo& e : echoes_) {
        if (settings_.zones == 0) {
            emit_echo(e, 0);
        } else if (is_heard(e.range)) {
            in_flight_.launch(shot_ticks_, e);
        }
    }
    if (settings_.waveforms != waveform_form::none) {
        emit_waveforms(s);
    }
}

void recorder::emit_waveforms(const shot& s) {
    const sampled_shot& sampled = digitiser_.newest();
    waveforms_.write(sampled);
    done_.waveforms += sampled.runs().size();
    if (listener_) {
        listener_(s, sampled);
    }
}

/// The echoes of the beam at hand.
void recorder::receive_echoes() {
    const bool shifted = settings_.optics == mechanics::mirrorwheel_biaxial;
    if (shifted) {
        before_cast_ = random_;
    }
    scene_.cast(instrument_.beam_origin(), instrument_.beam_direction(),
                instrument_.greatest_range(), random_, hits_);
    echoes_.clear();
    std::size_t earlier = 0;
    for (std::size_t i = 0; i < hits_.size(); ++i) {
        surface_hit hit = *(hits_.begin() + i);
        if (shifted && !find_shifted(i, hit)) {
            continue;
        }
        received_echo e{};
        if (instrument_.receive(hit, earlier++, random_, e)) {
            echoes_.push_back(e);
        }
    }
}

/// Where a receiver beside the laser sees the hit number `index`: the place at its range, as the
/// model tells it, must lie on the surface. The shift changes slowly with the range, so that the
/// cast along the shifted line settles in a few rounds. False if the shifted line misses.
bool recorder::find_shifted(std::size_t index, surface_hit& hit) const {
    constexpr int rounds = 12;
    constexpr double settled = 1e-9;
    hit_list shifted;
    for (int i = 0; i < rounds; ++i) {
        const vector3 origin =
            instrument_.mirrors().position(hit.range) - hit.range * instrument_.beam_direction();
        random_source random = before_cast_;
        scene_.cast(origin, instrument_.beam_direction(), instrument_.greatest_range(), random,
                    shifted);
        if (index >= shifted.size()) {
            return false;
        }
        const surface_hit next = *(shifted.begin() + index);
        const bool same = std::abs(next.range - hit.range) < settled;
        hit = next;
        if (same) {
            return true;
        }
    }
    return false;
}

/// Writes an echo behind the newest shot, its range counted from there. `farther` is how far light
/// came, in metres of range, between its own shot and the newest.
void recorder::emit_echo(const received_echo& e, double farther) {
    const std::int32_t counter = calibration_.told_counter(e, farther);
    writer_.echo({static_cast<std::uint32_t>(counter), e.amplitude,
                  static_cast<std::uint16_t>(e.reflectance), e.flags,
                  static_cast<std::uint16_t>(e.deviation)});
    ++(e.artefact ? done_.artefacts : done_.echoes);
}

/// Writes the echoes that return before the counter reads `now` behind the newest shot.
void recorder::land_echoes(std::uint64_t now) {
    for (const flying_echo& f : in_flight_.land(now, instrument_)) {
        emit_echo(f.echo, instrument_.range_between(f.shot_ticks, shot_ticks_));
    }
}

void recorder::emit_fan_shot(const shot& s) {
    const auto column = static_cast<std::uint32_t>(done_.shots % optics::fan_columns);
    fan_echoes_.clear();
    instrument_.aim(s);
    for (std::uint32_t row = 0; row < optics::fan_rows; ++row) {
        instrument_.select_beam(column, row);
        receive_echoes();
        for (const received_echo& e : echoes_) {
            fan_echoes_.push_back({row, e});
        }
    }
    out_.emit<packets::channeled_shot_echoes_writer>(
        [&](packets::channeled_shot_echoes_writer& p) {
            p.time_counter(instrument_.system_counter(s.pps_time));
            p.angle_0(static_cast<std::uint16_t>(column));
            p.line_counter(s.line_counter);
            for (std::size_t i = 0; i < fan_echoes_.size(); ++i) {
                const auto& [row, e] = fan_echoes_[i];
                auto element = p.element(i);
                element.range_counter(static_cast<std::uint16_t>(
                    std::clamp(std::lround(e.range / instrument_.units().range), 0L, 65535L)));
                element.amplitude(
                    static_cast<std::uint8_t>(std::min<std::uint16_t>(e.amplitude, 255)));
                element.angle_1(static_cast<std::uint8_t>(row));
                element.deviation(
                    static_cast<std::uint8_t>(std::min<std::int16_t>(e.deviation, 15)));
            }
        },
        fan_echoes_.size());
    ++done_.shots;
    done_.echoes += fan_echoes_.size();
}

void recorder::finish() {
    if (done_.shots != 0) {
        end_line();
        out_.emit<packets::frame_stop_writer>();
    }
    out_.emit<packets::meas_stop_writer>();
    // A reader knows a packet's end by the start of the next: this one is never delivered.
    out_.emit<packets::generic_end_writer>();
    out_.flush();
    done_.packets = out_.packets();
}

recording_summary recorder::run(const std::function<void(std::uint64_t)>& progress) {
    describe(instrument_, calibration_, waveforms_, out_);
    for (std::uint32_t pair = lead_pairs; pair-- > 0;) {
        // A whole number of seconds; the first day has no seconds before it.
        emit_second(settings_.start_time - std::min(pair, settings_.start_time));
    }
    out_.emit<packets::meas_start_writer>();
    const bool fan = settings_.optics == mechanics::mirrorwheel_fanbeam;
    double first_time = 0;
    for (std::uint64_t n = 0; n < settings_.shots; ++n) {
        shot s = program_.next();
        if (fan) {
            s.frame_counter = 0; // its packets have no room for it
        }
        move_to(s);
        if (fan) {
            emit_fan_shot(s);
        } else {
            emit_shot(s);
        }
        first_time = n == 0 ? s.pps_time : first_time;
        done_.seconds = s.pps_time - first_time;
        if (n % report_interval == 0) {
            progress(n);
        }
    }
    finish();
    return done_;
}

} // namespace simulator
