#pragma once

#include "scanlib/packet_catalogue.hpp"
#include "scanlib/packet_writers.hpp"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <utility>
#include <vector>

/// Small whole measurements, between them with every packet that a pointcloud listens to. All
/// numbers are such as an instrument might tell.
namespace scanlib::testing {

struct stream_packet {
    packet_id id;
    std::vector<std::uint32_t> payload;
};

using packet_list = std::vector<stream_packet>;

/// Puts packets together to a measurement.
class stream_builder {
  public:
    template<class Writer, class Fill>
    stream_builder& add(Fill&& fill, std::size_t elements = 0) {
        stream_packet packet{{Writer::id, Writer::version},
                             std::vector<std::uint32_t>(Writer::words(elements))};
        Writer writer(packet.payload.data());
        fill(writer);
        packets_.push_back(std::move(packet));
        return *this;
    }
    template<class Writer>
    stream_builder& add() {
        return add<Writer>([](Writer&) {});
    }
    packet_list take() { return std::move(packets_); }

    stream_builder& begin(std::uint32_t circle = 3600) {
        add<packets::header_writer>([](auto& w) {
            w.type_id("MODEL-1");
            w.build("B 2");
            w.serial("S3");
        });
        add<packets::header_device_writer>([](auto& w) { w.letter('A'); });
        return add<packets::units_4_writer>([=](auto& w) {
            w.range_unit(0.001F);
            w.line_circle_count(circle);
            w.frame_circle_count(circle);
            w.systime_unit(1e-07F);
            w.ampl_refl_unit(0.01F);
            w.systime_hr_unit(1.9073486e-13F);
            w.systime_hr_bits(49);
            w.utc_unit(1e-06F);
        });
    }
    stream_builder& wheel(float turned = 1) {
        return add<packets::device_geometry_writer>(
            [=](auto& w) {
                w.laser_origin(0, 0.25F);
                w.laser_direction(2, 1.0F);
                w.mirror_axis_direction(0, 1.0F);
                w.mirror_axis_origin(1, 0.125F);
                w.line_angle_0(10);
                for (std::size_t i = 0; i < 2; ++i) {
                    w.element(i).normal(2, 0.8F * turned);
                    w.element(i).normal(1, 0.6F);
                    w.element(i).dist(0.03125F);
                }
            },
            2);
    }
    stream_builder& lock() {
        for (std::uint32_t s = 1; s <= 2; ++s) {
            add<packets::pps_sync_writer>([=](auto& w) {
                w.system_counter(s * 10000000);
                w.pps_time(s * 1000);
            });
        }
        return add<packets::meas_start_writer>();
    }
    stream_builder& shot(std::uint32_t n) {
        return add<packets::laser_shot_2angles_writer>([=](auto& w) {
            w.time_counter(20000000 + 1000 * n);
            w.line_counter(50 * n);
            w.frame_counter(n);
        });
    }
    stream_builder& shot_hr(std::uint64_t n) {
        return add<packets::laser_shot_2angles_hr_writer>([=](auto& w) {
            w.time_counter_hr((std::uint64_t{1} << 43) + 10000000 * n);
            w.line_counter(static_cast<std::uint32_t>(50 * n));
            w.frame_counter(static_cast<std::uint32_t>(n));
        });
    }
    stream_builder& echo(std::int32_t range, std::uint16_t amplitude = 1000) {
        return add<packets::echo_writer>([=](auto& w) {
            w.range_counter(range);
            w.amplitude(amplitude);
            w.reflectance(-500);
            w.flags(5);
            w.deviation(3);
        });
    }
    /// A few shots with echoes, and the ends of line, frame and measurement.
    stream_builder& shots(std::uint32_t from = 0) {
        for (std::uint32_t n = from; n < from + 4; ++n) {
            shot(n);
            for (std::uint32_t e = 0; e < n % 4 + 1; ++e) {
                echo(static_cast<std::int32_t>(2000 * (e + 1)),
                     static_cast<std::uint16_t>(500 + 900 * e));
            }
        }
        add<packets::line_stop_writer>();
        add<packets::frame_stop_writer>();
        return add<packets::meas_stop_writer>();
    }
    stream_builder& curve(std::uint16_t id, std::initializer_list<std::uint16_t> values) {
        return add<packets::calib_table_writer>(
            [&](auto& w) {
                w.table_id(id);
                w.x_factor(180.0);
                w.y_factor(0.5);
                w.y_offset(0.25);
                std::uint16_t i = 0;
                for (const std::uint16_t y : values) {
                    w.element(i).x(i);
                    w.element(i).y(y);
                    ++i;
                }
            },
            values.size());
    }
    stream_builder& text(std::string_view json) {
        return add<packets::rxp_parameters_writer>(
            [&](auto& w) {
                for (std::size_t i = 0; i < json.size(); ++i) {
                    w.element(i, static_cast<std::uint8_t>(json[i]));
                }
            },
            json.size());
    }
    template<class Writer>
    stream_builder& numbers(std::uint8_t pairs, std::initializer_list<float> values) {
        return add<Writer>(
            [&](auto& w) {
                w.pairs(pairs);
                std::size_t i = 0;
                for (const float v : values) {
                    w.element(i++, v);
                }
            },
            values.size());
    }

  private:
    packet_list packets_;
};

/// Every correction of an echo, and notch windows by angle.
inline packet_list calibrated_stream() {
    stream_builder b;
    b.begin().wheel();
    b.add<packets::atmosphere_4_writer>([](auto& w) {
        w.temperature(20.0F);
        w.pressure(1000.0F);
        w.rel_humidity(50.0F);
        w.rng_scale(1.0F);
        w.pressure_sl(1013.0F);
        w.group_velocity(299700000.0F);
        w.attenuation(0.5F);
        w.wavelength(1550.0F);
    });
    b.add<packets::arange_table_writer>(
        [](auto& w) {
            w.step(5.0F);
            w.element(1, 7);
            w.element(2, -7);
        },
        8);
    b.add<packets::nrange_table_writer>(
        [](auto& w) {
            w.element(1, 3);
            w.element(2, -3);
        },
        8);
    b.add<packets::reftab_table_writer>(
        [](auto& w) {
            w.step_counter(4000);
            w.element(1, 30);
            w.element(2, -30);
        },
        6);
    b.curve(14, {1, 2}).curve(15, {2, 3}).curve(20, {1, 1}).curve(21, {3, 4});
    b.add<packets::notch_filter_modification_parameters_writer>([](auto& w) {
        w.width_offset(0.1F);
        w.width_scale(0.01F);
        w.ampl_scale(1.0F);
    });
    b.add<packets::notch_filter_writer>([](auto& w) {
        w.range_high(0.5F);
        w.amplitude(3.0F);
    });
    b.lock().shots();
    b.add<packets::calib_2D_table_writer>(
        [](auto& w) {
            w.table_kind(1);
            w.rows(2);
            w.columns(3);
            w.row_factor(1.0);
            w.column_factor(5.0);
            w.value_factor(0.001);
            w.value_offset(-0.01);
            for (std::size_t i = 0; i < 11; ++i) {
                w.element(i, static_cast<std::uint16_t>(i % 5 * 3));
            }
        },
        11);
    return b.shots(4).take();
}

/// Both forms of the dynamic trigger, and modulated pulses.
inline packet_list triggered_stream() {
    stream_builder b;
    b.begin().wheel();
    b.add<packets::dyntrig_writer>(
        [](auto& w) {
            w.offset(0.0F);
            w.scale(10.0F);
            for (std::size_t i = 0; i < 2; ++i) {
                w.element(i).thra1(20.0F);
                w.element(i).del1(0.5F);
                w.element(i).dec1(1.0F);
                w.element(i).thra2(20.0F);
                w.element(i).del2(0.5F);
                w.element(i).dec2(1.0F);
            }
        },
        2);
    b.add<packets::pulse_position_modulation_1_writer>(
        [](auto& w) {
            w.pulse_num_mod_ampl(3);
            w.element(0, 1e-06F);
            w.element(1, 2e-06F);
        },
        2);
    b.add<packets::m_sequence_mta_writer>([](auto& w) { w.interval_count(15); });
    b.add<packets::pulse_position_modulation_writer>(
        [](auto& w) {
            w.pulse_num_mod_ampl(3);
            w.element(0, 1e-06F);
        },
        1);
    b.lock().shots();
    b.numbers<packets::dyntrig_pre_writer>(2, {0, 0, 20, 5, 10, 50, 0, 30, 5, 10});
    b.numbers<packets::dyntrig_post_writer>(2, {0, 0, 20, 5, 10, 50, 0, 30, 5, 10});
    return b.shots(4).take();
}

/// Echoes of earlier shots, gap pulses, checksums, a shot told with its beam, and older echoes.
inline packet_list zoned_stream() {
    stream_builder b;
    b.begin().wheel();
    b.add<packets::crc32_header_writer>(
        [](auto& w) {
            w.element(0).id(42);
            w.element(1).id(50);
        },
        2);
    b.add<packets::range_finder_debug_laser_writer>(
        [](auto& w) { w.pulse_repetition_rate(300000.0F); });
    b.add<packets::range_finder_settings_writer>(
        [](auto& w) { w.pulse_repetition_rate(300000.0F); });
    b.add<packets::range_finder_program_2_writer>([](auto& w) { w.pulse_repetition_rate(3e5); });
    b.add<packets::mta_settings_writer>([](auto& w) {
        w.gate_low(1.0F);
        w.gate_high(900.0F);
        w.unambiguous_range(300.0F);
    });
    b.add<packets::counter_sync_writer>([](auto& w) { w.system_counter(9000000); });
    b.add<packets::pwm_sync_writer>([](auto& w) { w.system_counter(9100000); });
    b.add<packets::counter_sync_2angles_hr_writer>(
        [](auto& w) { w.system_counter_hr(std::uint64_t{1} << 42); });
    b.lock();
    b.add<packets::pps_sync_hr_writer>([](auto& w) {
        w.system_counter_hr(std::uint64_t{1} << 43);
        w.pps_time_hr(3000000);
    });
    for (std::uint64_t n = 0; n < 5; ++n) {
        b.shot_hr(n).echo(5000).echo(9000);
    }
    b.add<packets::crc32_check_writer>([](auto& w) { w.sequence(1); }).echo(9500);
    b.add<packets::crc32_check_writer>([](auto& w) { w.sequence(2); });
    b.add<packets::mta_settings_1_writer>([](auto& w) {
        w.mta_zones(2);
        w.unambiguous_range(300.0F);
    });
    b.shot_hr(5).echo(5000).echo(-5000);
    b.add<packets::mta_settings_3_writer>([](auto& w) {
        w.mode(2);
        w.gate_high(900.0F);
        w.unambiguous_range(300.0F);
    });
    b.shot_hr(6).echo(6000);
    b.add<packets::echo_gap_data_writer>(
        [](auto& w) {
            w.time_begin(std::uint64_t{1} << 43);
            w.time_end((std::uint64_t{1} << 43) + 10000000);
            w.line_begin(3500);
            w.line_end(100);
            w.frame_end(5);
            w.pulse_count(8);
            w.element(0).first(1);
            w.element(0).count(3);
        },
        1);
    b.add<packets::laser_shot_utctime_origin_direction_writer>([](auto& w) {
         w.utc_counter(1000000);
         w.origin(0, -4194304);
         w.direction(2, 16384);
     }).echo(7000);
    b.add<packets::laser_shot_2angles_rad_writer>([](auto& w) {
        w.time_counter(20010000);
        w.background_radiation(77);
    });
    b.add<packets::laser_shot_6angles_writer>([](auto& w) { w.time_counter(20020000); });
    b.add<packets::laser_echo_qual_writer>([](auto& w) { w.deviation(7); });
    b.add<packets::laser_echo_writer>([](auto& w) { w.range_counter(3000); });
    b.add<packets::laser_echo_sw_writer>([](auto& w) { w.range_counter(4000); });
    b.add<packets::echo_1_writer>([](auto& w) { w.range_counter(5000); });
    return b.shots(40).take();
}

/// A fan of lasers.
inline packet_list fan_stream() {
    stream_builder b;
    b.begin().wheel();
    b.add<packets::device_geometry_laser_direction_writer>(
        [](auto& w) {
            w.num_angles_0(2);
            w.num_angles_1(2);
            w.rotation_axis_0(0, 1.0F);
            w.rotation_axis_1(1, 1.0F);
            for (std::size_t i = 0; i < 4; ++i) {
                w.element(i).alpha_0(0.01F * static_cast<float>(i));
                w.element(i).alpha_1(-0.02F * static_cast<float>(i));
            }
        },
        4);
    b.lock();
    for (std::uint32_t n = 0; n < 2; ++n) {
        b.add<packets::channeled_shot_echoes_writer>(
            [=](auto& w) {
                w.time_counter(20000000 + n);
                w.angle_0(1);
                w.line_counter(70 + n);
                for (std::size_t i = 0; i < 3; ++i) {
                    w.element(i).range_counter(static_cast<std::uint16_t>(1000 * (i + 1)));
                    w.element(i).amplitude(100);
                    w.element(i).angle_1(static_cast<std::uint8_t>(i % 2));
                }
            },
            3);
    }
    return b.add<packets::line_stop_writer>().shots().take();
}

namespace detail {

template<class Writer>
void take_deflected_head(Writer& w) {
    w.laser_direction(2, 1.0F);
    w.mirror_axis_direction(0, 1.0F);
    w.element(0).normal(2, 0.8F);
    w.element(0).normal(1, 0.6F);
}

} // namespace detail

/// Every scanner model; the shots of the last five segments use the newest ones.
inline packet_list geometry_stream() {
    using namespace packets;
    stream_builder b;
    const auto wave = [](auto& w, std::size_t nodes) {
        for (std::size_t i = 0; i < nodes; ++i) {
            w.element(i).s_rot_angle(0.001F * static_cast<float>(i));
            w.element(i).t_rot_angle(-0.002F);
        }
    };
    const auto window = [&](auto& w) {
        w.t_axis(0, 1.0F);
        w.s_axis(1, 1.0F);
        w.angle_sin_min(-1.0F);
        w.angle_sin_inc(0.2F);
        wave(w, 11);
    };
    const auto cone = [&](auto& w) {
        w.cone_axis_direction(0, 1.0F);
        w.beam_direction_0(2, 1.0F);
        wave(w, 8);
    };
    const auto surface = [&](auto& w) {
        w.rotation_axis_for_s_t_axes(0, 1.0F);
        w.facet_distance(0.05F);
        wave(w, 8);
    };
    const auto deflection = [](auto& w) {
        detail::take_deflected_head(w);
        w.deflection_mirror_origin(0, 0.1F);
        w.deflection_mirror_direction(0, 1.0F);
    };
    const auto lens = [](auto& w) {
        w.laser_direction(2, 1.0F);
        w.wedge_axis_direction(2, 1.0F);
        w.facet1_direction(2, -1.0F);
        w.facet2_direction(2, -0.995F);
        w.facet2_direction(0, 0.0998F);
        w.dist(-0.01F);
        w.refraction_index(1.5F);
    };
    b.begin().wheel();
    b.add<device_geometry_1_writer>([](auto& w) {
        w.exit_pane_thickness(0.005F);
        w.exit_pane_index(1.5F);
        w.exit_pane_direction(0, 1.0F);
    });
    b.add<device_geometry_3_writer>(deflection, 1);
    b.add<device_geometry_2_writer>(lens).add<device_geometry_7_writer>(cone, 8);
    b.wheel().add<device_geometry_6_writer>(window, 11);
    b.add<device_geometry_3_writer>(deflection, 1).add<device_geometry_6_writer>(window, 11);
    b.wheel().add<device_geometry_7_writer>(cone, 8);
    b.wheel(-1).add<device_geometry_7N_writer>(surface, 8);
    b.wheel().add<device_geometry_7D_writer>(surface, 8);
    b.lock();
    for (int i = 0; i < 2; ++i) {
        b.add<line_start_segment_1_writer>().shots();
        b.add<line_start_segment_2_writer>().shots(4);
        b.add<line_start_segment_3_writer>().shots(8);
        b.add<line_start_segment_4_writer>().shots(12);
        b.add<line_start_segment_5_writer>().shots(16);
        if (i == 0) {
            b.add<header_writer>();
            b.wheel().add<biaxial_geometry_writer>(
                [](auto& w) {
                    w.aperture_direction(0, 1.0F);
                    for (std::size_t k = 0; k < 3; ++k) {
                        w.element(k).range(2.0F * static_cast<float>(k + 1));
                        w.element(k).shift(0.001F);
                    }
                },
                3);
            b.add<device_geometry_2_writer>(lens);
            b.add<device_geometry_4_writer>(
                [](auto& w) {
                    detail::take_deflected_head(w);
                    w.line_angle_0(-5);
                    w.nodding_axis_direction(1, 1.0F);
                    w.nodding_normal(0, 1.0F);
                    w.nodding_dist(0.01F);
                },
                1);
            b.add<device_geometry_5_writer>([](auto& w) {
                w.laser_direction(2, 1.0F);
                w.line_mirror_axis_direction(0, 1.0F);
                w.frame_mirror_axis_direction(2, 1.0F);
                w.facet_direction(1, 0.6F);
                w.facet_direction(2, 0.8F);
                w.dist(0.01F);
            });
            b.wheel().add<device_geometry_7D_writer>(surface, 8);
        }
    }
    return b.take();
}

/// The packed forms of shots and echoes.
inline packet_list packed_stream() {
    using namespace packets;
    stream_builder b;
    b.begin().wheel().lock();
    b.add<packed_key_laser_shot_2angles_writer>([](auto& w) {
        w.time_counter(20000000);
        w.echo_count(2);
    });
    b.add<packed_key_echo_writer>([](auto& w) {
        w.range_counter(1000);
        w.amplitude(900);
    });
    const auto shot_frame = [](auto& w) {
        w.time_delta(100);
        w.echo_count(1);
        w.line_delta(10);
        w.element(0).echo_count(2);
        w.element(1).time_correction(-2);
    };
    const auto echo_frame = [](auto& w) {
        for (std::size_t i = 0; i < 4; ++i) {
            w.element(i).range_delta(500);
            w.element(i).amplitude_delta(-20);
        }
    };
    b.add<packed_frame_laser_shot_2angles_writer>(shot_frame, 2);
    b.add<packed_frame_echo_writer>(echo_frame, 4);
    b.add<packed_key_laser_shot_2angles_rad_writer>([](auto& w) {
        w.time_counter(20100000);
        w.background_radiation(44);
    });
    b.add<packed_frame_laser_shot_2angles_rad_writer>(shot_frame, 2);
    b.add<packed_frame_echo_writer>(echo_frame, 4);
    b.add<mta_settings_writer>([](auto& w) {
        w.gate_high(500.0F);
        w.unambiguous_range(300.0F);
    });
    b.add<packed_key_laser_shot_2angles_hr_mta_writer>([](auto& w) {
        w.time_counter_hr(std::uint64_t{1} << 43);
        w.echo_count(1);
    });
    b.add<packed_key_echo_hr_writer>([](auto& w) { w.range_counter(1000); });
    const auto shot_frame_hr = [](auto& w) {
        w.time_delta(10000000);
        w.echo_count(1);
        w.line_delta(10);
        w.element(0).echo_count(2);
        w.element(1).echo_count(1);
    };
    b.add<packed_frame_laser_shot_2angles_hr_writer>(shot_frame_hr, 2);
    b.add<packed_frame_echo_hr_writer>(echo_frame, 4);
    b.add<packed_key_laser_shot_2angles_hr_writer>([](auto& w) {
        w.time_counter_hr((std::uint64_t{1} << 43) + 200000000);
        w.echo_count(1);
    });
    b.add<packed_key_echo_hr_1_writer>([](auto& w) { w.range_counter(1000); });
    b.add<packed_frame_laser_shot_2angles_hr_writer>(shot_frame_hr, 2);
    const auto echo_frame_1 = [](auto& w) {
        for (std::size_t i = 0; i < 4; ++i) {
            w.element(i).range_delta(500);
            w.element(i).offset_delta(3);
        }
    };
    b.add<packed_frame_echo_hr_1_writer>(echo_frame_1, 4);
    // A key shot, a key echo, a delta shot, a delta echo, and the end.
    const std::uint32_t version_2[] = {
        1U | 4000U << 3, 1U << 31,   0x00000040,    4U | 1000U << 3, 100, 0,
        2U | 8000U << 3, 0x00010005, 5U | 20U << 3, 0x00200000,      0};
    b.add<packed_shot_echos_hr_writer>(
        [&](auto& w) {
            for (std::size_t i = 0; i < std::size(version_2); ++i) {
                w.element(i, version_2[i]);
            }
        },
        std::size(version_2));
    const std::uint32_t version_3[] = {0U | 4000U << 3, 1U << 31, 0x00000040,
                                       3U | 1000U << 3, 100,      0};
    b.add<packed_shot_echos_sbl_hr_writer>(
        [&](auto& w) {
            for (std::size_t i = 0; i < std::size(version_3); ++i) {
                w.element(i, version_3[i]);
            }
        },
        std::size(version_3));
    return b.shots(50).take();
}

/// Parameters that an earlier reader stored.
inline packet_list stored_stream() {
    stream_builder b;
    b.begin().text(R"({"pointcloud":{
        "dyntrig":{"offset":0,"scale":10,"table":[{"thra1":20,"del1":0.5,"dec1":1,"thra2":20,
                   "del2":0.5,"dec2":1}]},
        "scanmech":[{"kind":"mirrorwheel","range_unit":0.001,"line_circle_count":3600,
                     "frame_circle_count":3600,"laser_origin":[0.25,0,0],"laser_direction":[0,0,1],
                     "mirror_axis_origin":[0,0,0],"mirror_axis_direction":[1,0,0],"line_angle_0":10,
                     "facets":[{"normal":[0,0.6,0.8],"dist":0.5}]}],
        "nrange":[0,0.1,0.2],"nrange_delta":2,"refltab":[1,2,3],"refltab_delta":4,
        "delta_rg":0.125}})");
    return b.lock().shots().take();
}

struct named_stream {
    const char* name;
    packet_list (*make)();
};

inline constexpr named_stream valid_streams[] = {
    {"calibrated", calibrated_stream}, {"triggered", triggered_stream},
    {"zoned", zoned_stream},           {"fan", fan_stream},
    {"geometry", geometry_stream},     {"packed", packed_stream},
    {"stored", stored_stream},
};

} // namespace scanlib::testing
