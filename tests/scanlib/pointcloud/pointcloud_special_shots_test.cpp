#include "recording_pointcloud.hpp"
#include "scanlib/mirrorwheel_fanbeam.hpp"
#include "scanlib/scanlib_exception.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numbers>

using namespace scanlib;
using namespace scanlib::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr std::uint64_t second = 5242880000000;

struct gap {
    std::uint32_t first;
    std::uint16_t count;
};

/// A stretch of `pulses` shots over 1 ms, from 2 s on.
void feed_gap(fed_pointcloud& cloud, std::uint32_t pulses, std::initializer_list<gap> stretches,
              std::uint32_t line_begin = 3500, std::uint32_t line_end = 100,
              std::uint32_t frame_begin = 10, std::uint32_t frame_end = 18) {
    cloud.feed<packets::echo_gap_data_writer>(
        [&](auto& w) {
            w.time_begin(2 * second);
            w.time_end(2 * second + second / 1000);
            w.line_begin(line_begin);
            w.line_end(line_end);
            w.frame_begin(frame_begin);
            w.frame_end(frame_end);
            w.pulse_count(pulses);
            std::size_t i = 0;
            for (const gap& g : stretches) {
                w.element(i).first(g.first);
                w.element(i).count(g.count);
                ++i;
            }
        },
        stretches.size());
}

vector3 plain_beam(double line, double frame, double circle) {
    const double polar = line * 2 * std::numbers::pi / circle;
    const double azimuth = frame * 2 * std::numbers::pi / circle;
    return {std::sin(polar) * std::cos(azimuth), std::sin(polar) * std::sin(azimuth),
            std::cos(polar)};
}

void expect_near(const vector3& a, const vector3& b, double most = 1e-12) {
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(a[i], b[i], most);
    }
}

void feed_fan(fed_pointcloud& cloud) {
    cloud.geometry();
    cloud.feed<packets::device_geometry_laser_direction_writer>(
        [](auto& w) {
            w.num_angles_0(2);
            w.num_angles_1(2);
            w.rotation_axis_0(0, 1.0F);
            w.rotation_axis_1(1, 1.0F);
            for (std::size_t i = 0; i < 4; ++i) {
                w.element(i).alpha_0(0.125F * static_cast<float>(i));
                w.element(i).alpha_1(-0.0625F * static_cast<float>(i));
            }
        },
        4);
}

/// One shot of column 1 with an echo in row 0, one in row 1, and one in row 0 again.
void feed_channels(fed_pointcloud& cloud, std::uint32_t ticks, std::size_t echoes = 3) {
    cloud.feed<packets::channeled_shot_echoes_writer>(
        [&](auto& w) {
            w.time_counter(ticks);
            w.angle_0(1);
            w.line_counter(0x200001);
            for (std::size_t i = 0; i < echoes; ++i) {
                w.element(i).range_counter(static_cast<std::uint16_t>(1000 + 500 * i));
                w.element(i).amplitude(static_cast<std::uint8_t>(200 + i));
                w.element(i).angle_1(static_cast<std::uint8_t>(i % 2));
                w.element(i).deviation(static_cast<std::uint8_t>(i + 3));
            }
        },
        echoes);
}

struct beam {
    std::uint64_t utc;
    std::int32_t origin[3];
    std::int32_t direction[3];
};

void feed_told_shot(fed_pointcloud& cloud, const beam& told, std::uint8_t validity = 0) {
    cloud.feed<packets::laser_shot_utctime_origin_direction_writer>([&](auto& w) {
        w.utc_counter(told.utc);
        w.validity(validity);
        for (std::size_t i = 0; i < 3; ++i) {
            w.origin(i, told.origin[i]);
            w.direction(i, told.direction[i]);
        }
    });
}

void feed_all_units(fed_pointcloud& cloud) {
    cloud.feed<packets::units_4_writer>([](auto& w) {
        w.range_unit(0.001F);
        w.line_circle_count(3600);
        w.frame_circle_count(3600);
        w.systime_unit(1e-07F);
        w.ampl_refl_unit(0.01F);
        w.systime_hr_unit(1.0F / 1024);
        w.systime_hr_bits(49);
        w.utc_unit(1.0F / 64);
    });
}

} // namespace

TEST(pointcloud_gap, pulses_are_spread_evenly_between_the_two_ends_round_the_circle) {
    fed_pointcloud cloud;
    cloud.units(0.001F, 3600);
    feed_gap(cloud, 8, {{1, 2}, {6, 1}});
    ASSERT_EQ(cloud.gap_pulses.size(), 3U);
    const double places[] = {1.0 / 8, 2.0 / 8, 6.0 / 8};
    // From 3500 over 3600 to 100: 200 counts.
    const double lines[] = {3525, 3550, 50};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(cloud.gap_pulses[i].time, 2 + places[i] * 0.001, 1e-9);
        expect_near(cloud.gap_pulses[i].direction, plain_beam(lines[i], 10 + 8 * places[i], 3600));
    }
}

TEST(pointcloud_gap, counts_are_cut_to_whole_ones) {
    fed_pointcloud cloud;
    cloud.units(0.001F, 3600);
    feed_gap(cloud, 3, {{0, 3}}, 100, 105, 7, 7);
    ASSERT_EQ(cloud.gap_pulses.size(), 3U);
    expect_near(cloud.gap_pulses[0].direction, plain_beam(100, 7, 3600));
    expect_near(cloud.gap_pulses[1].direction, plain_beam(101, 7, 3600));
    expect_near(cloud.gap_pulses[2].direction, plain_beam(103, 7, 3600));
}

TEST(pointcloud_gap, the_shot_at_hand_is_as_before) {
    fed_pointcloud cloud;
    cloud.units(0.001F, 3600);
    cloud.geometry();
    cloud.shot(1000, 300, 40);
    feed_gap(cloud, 4, {{0, 4}});
    EXPECT_EQ(cloud.gap_pulses.size(), 4U);
    EXPECT_NE(cloud.gap_pulses[0].direction, cloud.shots[0].direction);
    cloud.echo(2000);
    cloud.frame_stop();
    ASSERT_EQ(cloud.ended.size(), 1U);
    EXPECT_EQ(cloud.ended[0].time, cloud.shots[0].time);
    EXPECT_EQ(cloud.ended[0].direction, cloud.shots[0].direction);
    EXPECT_EQ(cloud.ended[0].facet, cloud.shots[0].facet);
    const target& t = cloud.reported.at(0);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_FLOAT_EQ(t.vertex[i], static_cast<float>(t.echo_range * cloud.shots[0].direction[i] +
                                                        cloud.shots[0].origin[i]));
    }
}

TEST(pointcloud_gap, pulses_wait_for_the_synchronisation_where_external_times_are_asked_for) {
    fed_pointcloud cloud(true);
    cloud.units(0.001F, 3600);
    feed_gap(cloud, 4, {{0, 4}});
    EXPECT_THAT(cloud.gap_pulses, IsEmpty());
    for (const std::uint64_t s : {1U, 2U}) {
        cloud.feed<packets::pps_sync_hr_writer>([&](auto& w) {
            w.system_counter_hr(s * second);
            w.pps_time_hr((s + 100) * 1000000);
        });
    }
    feed_gap(cloud, 4, {{1, 1}});
    ASSERT_EQ(cloud.gap_pulses.size(), 1U);
    EXPECT_NEAR(cloud.gap_pulses[0].time, 102.00025, 1e-8);
}

TEST(pointcloud_gap, no_pulses_and_no_circle_do_not_divide_by_zero) {
    fed_pointcloud cloud;
    cloud.units(0.001F, 0);
    feed_gap(cloud, 0, {{0, 2}});
    ASSERT_EQ(cloud.gap_pulses.size(), 2U);
    EXPECT_NEAR(cloud.gap_pulses[1].time, 2, 1e-9);
    expect_near(cloud.gap_pulses[1].direction, {0, 0, 1});
    feed_gap(cloud, 1, {{0xFFFFF, 0xFFF}}, 0xFFFFFFFF, 0, 0xFFFFFFFF, 0);
    EXPECT_EQ(cloud.gap_pulses.size(), 2U + 4095U);
}

TEST(pointcloud_channels, each_echo_has_its_own_beam_and_they_come_out_at_once) {
    fed_pointcloud cloud;
    cloud.units(0.001F, 3600);
    feed_fan(cloud);
    feed_channels(cloud, 5000);
    EXPECT_THAT(cloud.calls,
                ElementsAre("on_check_parameters", "apply_meta", "on_shot", "on_echo_ready",
                            "on_echo_ready", "on_echo_ready", "on_shot_end"));
    EXPECT_THAT(cloud.positions,
                ElementsAre(echo_position::interior, echo_position::interior, echo_position::last));
    vector3 origin;
    vector3 direction;
    mirrorwheel wheel(&origin, &direction);
    wheel.laser_origin = {0.25, 0, 0};
    wheel.mirror_axis_direction = {1, 0, 0};
    wheel.line_angle_0 = 10;
    wheel.facets = {{{0, 0, 1}, 0.5}, {{0, 0, 1}, 0.125}};
    wheel.line_circle_count = 3600;
    wheel.frame_circle_count = 3600;
    for (std::size_t i = 0; i < 3; ++i) {
        const target& t = cloud.reported.at(i);
        // Laser of column 1: 1 in row 0, 3 in row 1; turned about x, then about y.
        const double laser = i == 1 ? 3 : 1;
        const double a = 0.125 * laser;
        const double b = -0.0625 * laser;
        wheel.laser_direction = {std::cos(a) * std::sin(b), -std::sin(a),
                                 std::cos(a) * std::cos(b)};
        wheel.initialise();
        wheel.set_counts(0x200001, 0, 0);
        EXPECT_NEAR(t.echo_range, 1 + 0.5 * static_cast<double>(i), 1e-6);
        for (std::size_t k = 0; k < 3; ++k) {
            EXPECT_NEAR(t.vertex[k], t.echo_range * direction[k] + origin[k], 1e-5);
        }
        EXPECT_FLOAT_EQ(t.amplitude, 2 + 0.01F * static_cast<float>(i));
        EXPECT_EQ(t.deviation, static_cast<float>(i + 3));
        EXPECT_EQ(t.reflectance, 0.0F);
        EXPECT_EQ(t.time, cloud.shots[0].time);
        EXPECT_NEAR(t.time_internal, 0.0005, 1e-9);
        EXPECT_EQ(t.facet, wheel.facet);
        EXPECT_EQ(t.mta_zone, 0);
        EXPECT_EQ(t.is_rising, 0);
        EXPECT_EQ(t.lineend, 0);
    }
    EXPECT_EQ(cloud.shots[0].line, 0x200001U) << "22 bits";
    EXPECT_EQ(cloud.shots[0].frame, 0U);
}

TEST(pointcloud_channels, another_scanner_than_a_fan_says_so) {
    fed_pointcloud cloud;
    const std::string complaint =
        "pointcloud::on_channeled_shot_echoes: the scanner is no mirrorwheel_fanbeam";
    EXPECT_EQ(failure_of([&] { feed_channels(cloud, 1); }), complaint) << "none at all";
    cloud.geometry();
    EXPECT_EQ(failure_of([&] { feed_channels(cloud, 1); }), complaint);
    EXPECT_THROW(feed_channels(cloud, 1), scanlib_exception);
    EXPECT_FALSE(cloud.measurement_started);
    EXPECT_THAT(cloud.calls, IsEmpty());
}

TEST(pointcloud_channels, the_fan_is_that_of_the_segment_to_come) {
    fed_pointcloud cloud;
    cloud.geometry();
    feed_fan(cloud);
    EXPECT_NE(failure_of([&] { feed_channels(cloud, 1); }), "no failure");
    cloud.feed<packets::line_start_segment_2_writer>();
    EXPECT_EQ(failure_of([&] { feed_channels(cloud, 1); }), "no failure");
    cloud.feed<packets::line_start_segment_4_writer>();
    EXPECT_EQ(failure_of([&] { feed_channels(cloud, 1); }), "no failure") << "3 modulo 2";
    EXPECT_EQ(cloud.reported.back().segment, 0U) << "which the packet leaves alone";
}

TEST(pointcloud_channels, no_correction_applies_and_no_shot_is_open_behind_it) {
    fed_pointcloud cloud;
    cloud.units(1.0F, 3600);
    feed_fan(cloud);
    cloud.feed<packets::notch_filter_writer>([](auto& w) {
        w.range_high(1e6F);
        w.amplitude(600.0F);
    });
    cloud.feed<packets::nrange_table_writer>(
        [](auto& w) {
            w.element(0, 100);
            w.element(1, 100);
        },
        2);
    cloud.feed<packets::atmosphere_3_writer>([](auto& w) { w.attenuation(10.0F); });
    feed_channels(cloud, 1);
    ASSERT_EQ(cloud.reported.size(), 3U);
    EXPECT_EQ(cloud.reported[0].echo_range, 1000.0);
    EXPECT_EQ(cloud.reported[0].reflectance, 0.0F);
    cloud.echo(5);
    EXPECT_EQ(cloud.log.count(loss::echo_without_shot), 1U);
}

TEST(pointcloud_channels, an_empty_packet_is_a_shot_without_echoes) {
    fed_pointcloud cloud;
    feed_fan(cloud);
    feed_channels(cloud, 1, 0);
    EXPECT_THAT(cloud.calls,
                ElementsAre("on_check_parameters", "apply_meta", "on_shot", "on_shot_end"));
}

TEST(pointcloud_channels, indices_beyond_the_fan_take_its_last_laser) {
    fed_pointcloud cloud;
    cloud.units(0.001F, 3600);
    feed_fan(cloud);
    cloud.feed<packets::channeled_shot_echoes_writer>(
        [](auto& w) {
            w.angle_0(1023);
            w.element(0).angle_1(15);
            w.element(0).range_counter(1000);
        },
        1);
    cloud.feed<packets::channeled_shot_echoes_writer>(
        [](auto& w) {
            w.angle_0(1);
            w.element(0).angle_1(1);
            w.element(0).range_counter(1000);
        },
        1);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(cloud.reported[0].vertex[i], cloud.reported[1].vertex[i]);
    }
}

TEST(pointcloud_channels, loss_of_the_lock_is_found_here_too) {
    fed_pointcloud cloud(true);
    feed_fan(cloud);
    cloud.pps(10000000, 1000);
    cloud.pps(20000000, 2000);
    feed_channels(cloud, 20000100);
    EXPECT_EQ(cloud.reported[0].is_pps_locked, 1);
    EXPECT_NEAR(cloud.reported[0].time, 2.00001, 1e-9);
    feed_channels(cloud, 60000000);
    EXPECT_EQ(std::count(cloud.calls.begin(), cloud.calls.end(), "on_sync_lost"), 1);
    EXPECT_EQ(cloud.reported.back().is_pps_locked, 0);
}

TEST(pointcloud_told_shot, has_the_time_and_the_beam_that_it_tells) {
    fed_pointcloud cloud;
    feed_all_units(cloud);
    cloud.feed<packets::line_start_segment_3_writer>();
    feed_told_shot(cloud, {640, {4194304, -8388608, 8388607}, {-8192, 16384, 1}});
    ASSERT_EQ(cloud.shots.size(), 1U);
    const auto& s = cloud.shots[0];
    EXPECT_EQ(s.time, 10.0);
    EXPECT_EQ(s.time_internal, 10.0);
    // 2^-22 m and 2^-14.
    EXPECT_EQ(s.origin, (vector3{1.0, -2.0, 8388607.0 / 4194304}));
    EXPECT_EQ(s.direction, (vector3{-0.5, 1.0, 1.0 / 16384}));
    EXPECT_EQ(s.facet, 0U);
    EXPECT_EQ(s.segment, 2U);
    cloud.echo(2000);
    cloud.frame_stop();
    const target& t = cloud.reported.at(0);
    EXPECT_NEAR(t.vertex[0], 1.0 - 1.0, 1e-6);
    EXPECT_NEAR(t.vertex[1], -2.0 + 2.0, 1e-6);
    EXPECT_EQ(t.time, 10.0);
    EXPECT_EQ(t.segment, 2U);
}

TEST(pointcloud_told_shot, is_discarded_when_it_is_not_valid_and_starts_no_measurement) {
    fed_pointcloud cloud;
    feed_all_units(cloud);
    for (const std::uint8_t validity : {std::uint8_t{1}, std::uint8_t{255}}) {
        feed_told_shot(cloud, {1, {}, {}}, validity);
    }
    EXPECT_THAT(cloud.calls, IsEmpty());
    EXPECT_FALSE(cloud.measurement_started);
    cloud.shot(1);
    cloud.echo(1);
    cloud.calls.clear();
    feed_told_shot(cloud, {1, {}, {}}, 1);
    EXPECT_THAT(cloud.calls, IsEmpty()) << "it does not close the shot before it either";
    feed_told_shot(cloud, {1, {}, {}});
    EXPECT_THAT(cloud.calls, ElementsAre("on_echo_ready", "on_shot_end", "on_shot"));
}

TEST(pointcloud_told_shot, enters_the_history_with_its_time_in_ticks) {
    fed_pointcloud cloud;
    feed_all_units(cloud);
    cloud.feed<packets::atmosphere_2_writer>([](auto& w) { w.group_velocity(2048.0F); });
    cloud.feed<packets::mta_settings_writer>([](auto& w) {
        w.mta_zones(2);
        w.unambiguous_range(1.0F);
    });
    feed_told_shot(cloud, {640, {4194304, 0, 0}, {16384, 0, 0}});
    feed_told_shot(cloud, {672, {0, 4194304, 0}, {0, 16384, 0}});
    EXPECT_EQ(cloud.history[0].ticks, 10752U) << "10.5 s of 1/1024 s";
    EXPECT_EQ(cloud.history[1].ticks, 10240U);
    cloud.echo(3000);
    cloud.frame_stop();
    const target& t = cloud.reported.at(0);
    // Half a second later at 2048 m/s: 512 m further, along the beam of the shot before.
    EXPECT_NEAR(t.echo_range, 515, 1e-6);
    EXPECT_NEAR(t.vertex[0], 516, 1e-4);
    EXPECT_NEAR(t.vertex[1], 0, 1e-6);
    EXPECT_EQ(t.time, 10.0);
}

TEST(pointcloud_told_shot, without_its_units_stands_nowhere) {
    fed_pointcloud cloud;
    feed_told_shot(cloud, {640, {1, 2, 3}, {4, 5, 6}});
    cloud.echo(1000);
    cloud.frame_stop();
    EXPECT_TRUE(std::isnan(cloud.reported.at(0).time));
    EXPECT_TRUE(std::isnan(cloud.reported.at(0).vertex[0]));
}
