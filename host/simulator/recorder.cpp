#include "simulator/recorder.hpp"

#include "scanlib/packet_writers.hpp"

#include <array>
#include <cmath>

namespace simulator {

namespace {

namespace packets = scanlib::packets;

constexpr std::uint32_t lead_pairs = 3;          ///< PPS pairs ahead of the first shot
constexpr std::uint64_t report_interval = 65536; ///< shots between two calls of `progress`
constexpr std::uint32_t seconds_a_day = 86400;

/// Kinds frequent enough for a short code.
constexpr std::array frequent_kinds{
    packets::laser_shot_2angles_writer::index,
    packets::laser_shot_2angles_hr_writer::index,
    packets::echo_writer::index,
    packets::line_start_up_writer::index,
    packets::line_stop_writer::index,
    packets::pps_sync_writer::index,
    packets::pps_sync_hr_writer::index,
    packets::counter_sync_writer::index,
    packets::hk_time_writer::index,
    packets::hk_rtc_sys_writer::index,
    packets::hk_incl_writer::index,
    packets::generic_end_writer::index,
};

} // namespace

recorder::recorder(const scan_settings& settings, scanlib::packet_emitter& emitter)
    : settings_(settings)
    , out_(emitter)
    , scene_(settings.seed)
    , instrument_(settings)
    , program_(settings)
    , random_(settings.seed ^ 0xEC40E5EC40E5EC40)
    , next_second_(settings.start_time + 1) {}

void recorder::emit_header() {
    out_.emit<packets::header_writer>(
        [](packets::header_writer& p) {
            p.type_id(instrument::type_id);
            p.build(instrument::build);
            p.serial(instrument::serial);
            for (std::size_t i = 0; i < frequent_kinds.size(); ++i) {
                const scanlib::packet_layout& kind = scanlib::layout_of(frequent_kinds[i]);
                auto entry = p.element(i);
                entry.id(static_cast<std::uint16_t>(kind.id));
                entry.version(static_cast<std::uint16_t>(kind.version));
            }
        },
        frequent_kinds.size());
}

void recorder::emit_units() {
    out_.emit<packets::units_4_writer>([](packets::units_4_writer& p) {
        p.range_unit(instrument::range_unit);
        p.line_circle_count(scan_program::line_circle_count);
        p.frame_circle_count(scan_program::frame_circle_count);
        p.systime_unit(instrument::systime_unit);
        p.ampl_refl_unit(instrument::ampl_refl_unit);
        p.systime_hr_unit(instrument::systime_hr_unit);
        p.systime_hr_bits(instrument::systime_hr_bits);
        p.utc_unit(instrument::systime_unit);
    });
}

void recorder::emit_geometry() {
    const scanlib::mirrorwheel& optics = instrument_.optics();
    out_.emit<packets::device_geometry_writer>(
        [&](packets::device_geometry_writer& p) {
            for (std::size_t i = 0; i < 3; ++i) {
                p.laser_origin(i, static_cast<float>(optics.laser_origin[i]));
                p.laser_direction(i, static_cast<float>(optics.laser_direction[i]));
                p.mirror_axis_origin(i, static_cast<float>(optics.mirror_axis_origin[i]));
                p.mirror_axis_direction(i, static_cast<float>(optics.mirror_axis_direction[i]));
            }
            p.line_angle_0(optics.line_angle_0);
            for (std::size_t f = 0; f < optics.facets.size(); ++f) {
                auto facet = p.element(f);
                for (std::size_t i = 0; i < 3; ++i) {
                    facet.normal(i, static_cast<float>(optics.facets[f].normal[i]));
                }
                facet.dist(static_cast<float>(optics.facets[f].dist));
            }
        },
        optics.facets.size());
}

void recorder::emit_reflectance_table() {
    out_.emit<packets::reftab_table_writer>(
        [](packets::reftab_table_writer& p) {
            p.step_counter(instrument::reftab_step_counter());
            for (std::size_t i = 0; i < instrument::reftab_entries; ++i) {
                p.element(i, instrument::reftab_entry(i));
            }
        },
        instrument::reftab_entries);
}

void recorder::emit_atmosphere() {
    out_.emit<packets::atmosphere_4_writer>([](packets::atmosphere_4_writer& p) {
        p.temperature(15.0F);
        p.pressure(1000.0F);
        p.rel_humidity(60.0F);
        p.rng_scale(0.0F);
        p.pressure_sl(1013.0F);
        p.group_velocity(instrument::group_velocity);
        p.attenuation(instrument::attenuation);
        p.wavelength(instrument::wavelength);
    });
}

void recorder::describe_instrument() {
    emit_header();
    emit_units();
    emit_geometry();
    emit_reflectance_table();
    emit_atmosphere();
}

void recorder::emit_pps(double pps_time) {
    if (settings_.high_resolution) {
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
    if (settings_.high_resolution) {
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
    emit_counter_sync(second);
    emit_pps(second);
    emit_housekeeping(second);
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
        out_.emit<packets::line_stop_writer>();
    }
    if (!first && s.frame != frame_) {
        out_.emit<packets::frame_stop_writer>();
    }
    if (first || s.frame != frame_) {
        out_.emit<packets::frame_start_up_writer>();
    }
    out_.emit<packets::line_start_up_writer>();
    line_ = s.line;
    frame_ = s.frame;
    ++done_.lines;
}

void recorder::emit_shot(const shot& s) {
    if (settings_.high_resolution) {
        out_.emit<packets::laser_shot_2angles_hr_writer>(
            [&](packets::laser_shot_2angles_hr_writer& p) {
                p.time_counter_hr(instrument_.system_counter_hr(s.pps_time));
                p.line_counter(s.line_counter);
                p.frame_counter(s.frame_counter);
            });
    } else {
        out_.emit<packets::laser_shot_2angles_writer>([&](packets::laser_shot_2angles_writer& p) {
            p.time_counter(instrument_.system_counter(s.pps_time));
            p.line_counter(s.line_counter);
            p.frame_counter(s.frame_counter);
        });
    }
    ++done_.shots;
    instrument_.aim(s);
    scene_.cast(instrument_.beam_origin(), instrument_.beam_direction(),
                instrument_.greatest_range(), random_, hits_);
    emit_echoes();
}

void recorder::emit_echoes() {
    std::size_t earlier = 0;
    for (const surface_hit& hit : hits_) {
        echo_counts counts{};
        if (!instrument_.receive(hit, earlier++, random_, counts)) {
            continue;
        }
        out_.emit<packets::echo_writer>([&](packets::echo_writer& p) {
            p.range_counter(counts.range_counter);
            p.amplitude(counts.amplitude);
            p.reflectance(counts.reflectance);
            p.flags(counts.flags);
            p.deviation(counts.deviation);
        });
        ++done_.echoes;
    }
}

void recorder::finish() {
    if (done_.shots != 0) {
        out_.emit<packets::line_stop_writer>();
        out_.emit<packets::frame_stop_writer>();
    }
    out_.emit<packets::meas_stop_writer>();
    // A reader knows a packet's end by the start of the next: this one is never delivered.
    out_.emit<packets::generic_end_writer>();
    out_.flush();
    done_.packets = out_.packets();
}

recording_summary recorder::run(const std::function<void(std::uint64_t)>& progress) {
    describe_instrument();
    for (std::uint32_t pair = lead_pairs; pair-- > 0;) {
        // A whole number of seconds; the first day has no seconds before it.
        emit_second(settings_.start_time - std::min(pair, settings_.start_time));
    }
    out_.emit<packets::meas_start_writer>();
    double first_time = 0;
    for (std::uint64_t n = 0; n < settings_.shots; ++n) {
        const shot s = program_.next();
        move_to(s);
        emit_shot(s);
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
