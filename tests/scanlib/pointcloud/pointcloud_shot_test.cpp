#include "recording_pointcloud.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace scanlib;
using namespace scanlib::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(pointcloud_shot,
     two_angle_packet_stores_frame_then_line_and_fires_and_a_lone_shot_reuses_them) {
    fed_pointcloud cloud;
    cloud.units();
    cloud.shot(100, 7, 9);
    cloud.feed<packets::laser_shot_writer>([](auto& w) { w.time_counter(200); });
    ASSERT_EQ(cloud.shots.size(), 2U);
    for (const auto& s : cloud.shots) {
        EXPECT_EQ(s.line, 7U);
        EXPECT_EQ(s.frame, 9U);
    }
    EXPECT_EQ(cloud.shots[0].direction, cloud.shots[1].direction);
    EXPECT_DOUBLE_EQ(cloud.shots[1].time, 200 * static_cast<double>(1e-07F));
}

TEST(pointcloud_shot, one_angle_packet_keeps_the_frame_count) {
    fed_pointcloud cloud;
    cloud.shot(100, 7, 9);
    cloud.feed<packets::laser_shot_1angle_writer>([](auto& w) { w.line_counter(8); });
    EXPECT_EQ(cloud.shots[1].line, 8U);
    EXPECT_EQ(cloud.shots[1].frame, 9U);
}

TEST(pointcloud_shot, high_resolution_shot_takes_24_line_bits_and_the_long_counter) {
    fed_pointcloud cloud;
    cloud.shot_hr(std::uint64_t{1} << 40, 0xABCDEF, 3);
    EXPECT_EQ(cloud.shots[0].line, 0xABCDEFU);
    EXPECT_EQ(cloud.shots[0].frame, 3U);
    EXPECT_DOUBLE_EQ(cloud.shots[0].time_internal, std::ldexp(1.9073486328125e-13, 40));
}

TEST(pointcloud_shot, six_angle_shot_clears_the_radiation) {
    fed_pointcloud cloud;
    cloud.shot_rad(1, 77);
    EXPECT_EQ(cloud.background_radiation, 77.0F);
    cloud.feed<packets::laser_shot_6angles_writer>([](auto& w) {
        w.line_counter(4);
        w.frame_counter(5);
    });
    EXPECT_TRUE(std::isnan(cloud.background_radiation));
    EXPECT_EQ(cloud.shots[1].line, 4U);
    EXPECT_EQ(cloud.shots[1].frame, 5U);
}

TEST(pointcloud_shot, measurement_starts_once_with_the_first_shot) {
    fed_pointcloud cloud;
    cloud.shot(1);
    cloud.shot(2);
    EXPECT_THAT(cloud.calls, ElementsAre("on_check_parameters", "apply_meta", "on_shot",
                                         "on_shot_end", "on_shot"));
}

TEST(pointcloud_shot, measurement_starts_once_with_meas_start) {
    fed_pointcloud cloud;
    cloud.feed<packets::meas_start_writer>();
    EXPECT_THAT(cloud.calls, ElementsAre("on_check_parameters", "apply_meta"));
    cloud.shot(1);
    cloud.feed<packets::meas_start_writer>();
    EXPECT_THAT(cloud.calls, ElementsAre("on_check_parameters", "apply_meta", "on_shot"));
}

TEST(pointcloud_shot, echo_without_an_open_shot_does_nothing_and_is_counted) {
    fed_pointcloud cloud;
    cloud.echo(1000);
    cloud.shot(1);
    cloud.line_stop();
    cloud.echo(1000);
    cloud.feed<packets::laser_echo_writer>([](auto& w) { w.range_counter(5); });
    cloud.shot(2);
    EXPECT_THAT(cloud.reported, IsEmpty());
    EXPECT_EQ(cloud.log.count(loss::echo_without_shot), 3U);
}

TEST(pointcloud_shot, echoes_are_delivered_one_behind_by_each_closing_packet) {
    for (const int closing : {0, 1, 2, 3}) {
        fed_pointcloud cloud;
        cloud.units();
        cloud.shot(1);
        cloud.echo(1000);
        EXPECT_EQ(cloud.reported.size(), 0U);
        cloud.echo(2000);
        EXPECT_EQ(cloud.reported.size(), 1U);
        cloud.echo(3000);
        EXPECT_EQ(cloud.reported.size(), 2U);
        switch (closing) {
        case 0:
            cloud.shot(2);
            break;
        case 1:
            cloud.line_stop();
            break;
        case 2:
            cloud.frame_stop();
            break;
        default:
            cloud.meas_stop();
        }
        EXPECT_THAT(cloud.positions, ElementsAre(echo_position::first, echo_position::interior,
                                                 echo_position::last));
        EXPECT_FLOAT_EQ(static_cast<float>(cloud.reported[2].echo_range), 3.0F);
    }
}

TEST(pointcloud_shot, lone_echo_is_single_and_comes_before_the_shot_ends) {
    fed_pointcloud cloud;
    cloud.shot(1);
    cloud.echo(1000);
    cloud.calls.clear();
    cloud.frame_stop();
    EXPECT_THAT(cloud.positions, ElementsAre(echo_position::single));
    EXPECT_THAT(cloud.calls, ElementsAre("on_echo_ready", "on_shot_end"));
}

TEST(pointcloud_shot, stop_packets_without_an_open_shot_end_no_shot) {
    fed_pointcloud cloud;
    cloud.line_stop();
    cloud.frame_stop();
    cloud.meas_stop();
    EXPECT_THAT(cloud.calls, IsEmpty());
}

TEST(pointcloud_shot, line_end_is_set_on_the_last_target_only_and_not_left_in_the_slot) {
    fed_pointcloud cloud;
    cloud.shot(1);
    cloud.echo(1000);
    cloud.echo(2000);
    cloud.line_stop();
    cloud.shot(2);
    cloud.line_stop();
    cloud.shot(3);
    cloud.echo(1000);
    cloud.echo(2000);
    cloud.frame_stop();
    ASSERT_EQ(cloud.reported.size(), 4U);
    EXPECT_EQ(cloud.reported[0].lineend, 0);
    EXPECT_EQ(cloud.reported[1].lineend, 1);
    EXPECT_EQ(cloud.reported[2].lineend, 0);
    EXPECT_EQ(cloud.reported[3].lineend, 0);
}

TEST(pointcloud_shot, shot_without_echo_and_without_radiation_delivers_nothing) {
    fed_pointcloud cloud;
    cloud.shot(1);
    cloud.shot(2);
    EXPECT_THAT(cloud.reported, IsEmpty());
}

TEST(pointcloud_shot, shot_without_echo_but_with_radiation_delivers_one_pseudo_target) {
    fed_pointcloud cloud;
    cloud.units(0.001F, 3600);
    cloud.shot(400);
    cloud.background_radiation = 321;
    cloud.shot(500);
    cloud.positions.clear();
    cloud.shot(600);
    ASSERT_THAT(cloud.positions, ElementsAre(echo_position::none));
    const target& t = cloud.reported[1];
    EXPECT_DOUBLE_EQ(t.echo_range, 0.35);
    EXPECT_FLOAT_EQ(t.amplitude, 0.01F);
    EXPECT_TRUE(std::isnan(t.reflectance));
    EXPECT_EQ(t.deviation, 0.0F);
    EXPECT_EQ(t.is_rising, 0);
    EXPECT_EQ(t.is_pseudo, 0);
    EXPECT_EQ(t.background_radiation, 321.0F);
    EXPECT_FLOAT_EQ(t.vertex[2], 0.35F);
    EXPECT_DOUBLE_EQ(t.time, 500 * static_cast<double>(1e-07F));
}

TEST(pointcloud_shot, newest_radiation_decides_about_the_shot_that_it_closes) {
    fed_pointcloud cloud;
    cloud.shot(1);
    cloud.shot_rad(2, 5);
    ASSERT_EQ(cloud.reported.size(), 1U);
    EXPECT_DOUBLE_EQ(cloud.reported[0].time, 1e-07);
    cloud.shot(3);
    cloud.shot(4);
    EXPECT_EQ(cloud.reported.size(), 3U) << "also for shots that carry none";
}

TEST(pointcloud_shot, closing_without_an_open_shot_delivers_a_pseudo_target_but_ends_no_shot) {
    fed_pointcloud cloud;
    cloud.shot_rad(1, 5);
    cloud.line_stop();
    cloud.calls.clear();
    cloud.frame_stop();
    EXPECT_THAT(cloud.calls, ElementsAre("on_echo_ready"));
}

TEST(pointcloud_shot, echo_fields_come_out_in_units) {
    fed_pointcloud cloud;
    cloud.units(0.25F, 4);
    cloud.shot(10, 1, 0);
    cloud.echo(-40, 1234, -567, 0x5, -8);
    cloud.shot(20);
    ASSERT_EQ(cloud.reported.size(), 1U);
    const target& t = cloud.reported[0];
    EXPECT_DOUBLE_EQ(t.echo_range, -10.0);
    EXPECT_FLOAT_EQ(t.amplitude, 12.34F);
    EXPECT_FLOAT_EQ(t.reflectance, -5.67F);
    EXPECT_EQ(t.deviation, -8.0F);
    EXPECT_EQ(t.is_rising, 1);
    EXPECT_EQ(t.is_pseudo, 1);
    EXPECT_EQ(t.is_pps_locked, 0);
    // A quarter of a turn: along x.
    EXPECT_FLOAT_EQ(t.vertex[0], -10.0F);
    EXPECT_NEAR(t.vertex[2], 0.0F, 1e-6);
}

TEST(pointcloud_shot, echo_1_reflectance_is_amplitude_plus_offset_in_16_bits) {
    fed_pointcloud cloud;
    cloud.shot(1);
    const auto echo_1 = [&](std::uint16_t amplitude, std::int16_t offset) {
        cloud.feed<packets::echo_1_writer>([&](auto& w) {
            w.amplitude(amplitude);
            w.reflectance_offset(offset);
        });
    };
    echo_1(1000, -300);
    echo_1(40000, 0);
    echo_1(65535, -1);
    cloud.shot(2);
    ASSERT_EQ(cloud.reported.size(), 3U);
    EXPECT_FLOAT_EQ(cloud.reported[0].reflectance, 7.0F);
    EXPECT_FLOAT_EQ(cloud.reported[1].reflectance, (40000 - 65536) * 0.01F);
    EXPECT_FLOAT_EQ(cloud.reported[2].reflectance, -0.02F);
    EXPECT_FLOAT_EQ(cloud.reported[1].amplitude, 400.0F);
}

TEST(pointcloud_shot, attenuation_raises_the_reflectance_with_the_range) {
    fed_pointcloud cloud;
    cloud.units(1.0F);
    cloud.attenuation = 0.001;
    cloud.shot(1);
    cloud.echo(-200, 0, 100);
    cloud.frame_stop();
    EXPECT_FLOAT_EQ(cloud.reported[0].reflectance, 1.0F + 0.2F * 8.68589F);
}

TEST(pointcloud_shot, quality_packet_feeds_the_laser_echo_behind_it) {
    fed_pointcloud cloud;
    cloud.units(0.001F);
    cloud.shot(1);
    cloud.feed<packets::laser_echo_qual_writer>([](auto& w) {
        w.range_counter(2000);
        w.amplitude(150);
        w.deviation(9);
        w.flags(0x4);
    });
    cloud.shot(2);
    cloud.feed<packets::laser_echo_writer>([](auto& w) { w.range_counter(3000); });
    cloud.frame_stop();
    ASSERT_EQ(cloud.reported.size(), 2U);
    const target& t = cloud.reported[0];
    EXPECT_NEAR(t.echo_range, 2.0, 1e-6);
    EXPECT_FLOAT_EQ(t.amplitude, 1.5F);
    EXPECT_TRUE(std::isnan(t.reflectance));
    EXPECT_EQ(t.deviation, 9.0F);
    EXPECT_EQ(t.is_rising, 0);
    EXPECT_EQ(t.is_pseudo, 1);
    // Closing a shot forgets the quality.
    EXPECT_EQ(cloud.reported[1].deviation, 0.0F);
    EXPECT_EQ(cloud.reported[1].is_pseudo, 0);
}

TEST(pointcloud_shot, software_echo_keeps_the_raw_amplitude_and_its_mark_stays_in_the_slot) {
    fed_pointcloud cloud;
    cloud.shot(1);
    cloud.feed<packets::laser_echo_sw_writer>([](auto& w) {
        w.range_counter(10);
        w.amplitude(150);
    });
    cloud.shot(2);
    cloud.echo(1);
    cloud.frame_stop();
    const target& t = cloud.reported[0];
    EXPECT_EQ(t.amplitude, 150.0F);
    EXPECT_EQ(t.reflectance, 0.0F);
    EXPECT_EQ(t.deviation, 0.0F);
    EXPECT_EQ(t.is_sw, 1);
    EXPECT_EQ(cloud.reported[1].is_sw, 1);
}

TEST(pointcloud_shot, segment_counts_from_the_shot_behind_its_line_start) {
    fed_pointcloud cloud;
    cloud.shot(1);
    cloud.feed<packets::line_start_segment_3_writer>();
    cloud.echo(5);
    cloud.shot(2);
    cloud.feed<packets::line_start_segment_5_writer>();
    cloud.shot(3);
    cloud.feed<packets::line_start_segment_1_writer>();
    cloud.feed<packets::line_start_segment_2_writer>();
    cloud.feed<packets::line_start_segment_4_writer>();
    cloud.shot(4);
    EXPECT_EQ(cloud.reported[0].segment, 0U);
    EXPECT_EQ(cloud.shots[1].segment, 2U);
    EXPECT_EQ(cloud.shots[2].segment, 4U);
    EXPECT_EQ(cloud.shots[3].segment, 3U);
    EXPECT_EQ(cloud.shots[2].facet, 4U) << "the plain model takes the segment for a facet";
}

TEST(pointcloud_shot, geometry_gives_the_beam_and_the_points) {
    fed_pointcloud cloud;
    cloud.units(0.001F, 3600);
    cloud.geometry();
    EXPECT_EQ(cloud.facet_count, 2U);
    // The second facet, turned by an eighth: the beam along z leaves along -y.
    cloud.shot(1, 1800 + 10 + 450, 0);
    cloud.echo(3000);
    cloud.frame_stop();
    ASSERT_EQ(cloud.shots.size(), 1U);
    EXPECT_EQ(cloud.shots[0].facet, 1U);
    EXPECT_NEAR(cloud.shots[0].direction[1], 1.0, 1e-12);
    const target& t = cloud.reported[0];
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_FLOAT_EQ(t.vertex[i], static_cast<float>(t.echo_range * cloud.shots[0].direction[i] +
                                                        cloud.shots[0].origin[i]));
    }
    EXPECT_EQ(t.facet, 1U);
}

TEST(pointcloud_shot, geometries_are_taken_by_segment_modulo_their_number) {
    fed_pointcloud cloud;
    cloud.units(0.001F, 3600);
    cloud.geometry();
    cloud.units(0.001F, 7200);
    cloud.geometry();
    cloud.feed<packets::line_start_segment_2_writer>();
    cloud.shot(1, 3600 + 10, 0);
    cloud.feed<packets::line_start_segment_3_writer>();
    cloud.shot(2, 3600 + 10, 0);
    EXPECT_EQ(cloud.shots[0].facet, 1U) << "3600 of 7200 counts are the second facet";
    EXPECT_EQ(cloud.shots[1].facet, 0U) << "3600 of 3600 counts are a full turn";
}

TEST(pointcloud_shot, header_forgets_the_geometries_and_takes_the_identity) {
    fed_pointcloud cloud;
    cloud.geometry();
    ASSERT_EQ(cloud.mechs.size(), 1U);
    cloud.feed<packets::header_writer>([](auto& w) {
        w.type_id("MODEL-9");
        w.build("exactly 16 bytes");
        w.serial("S123");
    });
    EXPECT_EQ(cloud.mechs.size(), 0U);
    EXPECT_EQ(cloud.type_id, "MODEL-9");
    EXPECT_EQ(cloud.build, "exactly 16 bytes");
    EXPECT_EQ(cloud.serial, "S123");
}

TEST(pointcloud_shot, header_device_forms_the_identity) {
    fed_pointcloud cloud;
    cloud.feed<packets::header_device_writer>([](auto& w) {
        w.minor(12);
        w.major(3);
        w.letter('B');
    });
    EXPECT_EQ(cloud.ident, "3.12-B");
}

TEST(pointcloud_shot, reset_forgets_all_but_keeps_room_for_ten_targets) {
    fed_pointcloud cloud;
    cloud.units(0.5F, 77, 1e-3F);
    cloud.geometry();
    cloud.shot_rad(10, 5);
    for (int i = 0; i < 30; ++i) {
        cloud.echo(i);
    }
    cloud.reset();
    EXPECT_EQ(cloud.range_unit, 1.0);
    EXPECT_EQ(cloud.mechs.size(), 0U);
    EXPECT_EQ(cloud.targets.size(), 0U);
    EXPECT_GE(cloud.targets.capacity(), 10U);
    EXPECT_TRUE(std::isnan(cloud.background_radiation));
    EXPECT_EQ(cloud.embedded_mech.line_circle_count, 4294967295U);
    cloud.calls.clear();
    cloud.frame_stop();
    EXPECT_THAT(cloud.calls, IsEmpty());
    cloud.shot(2);
    EXPECT_THAT(cloud.calls, ElementsAre("on_check_parameters", "apply_meta", "on_shot"));
}

TEST(pointcloud_shot, new_target_is_all_zeros_but_for_the_radiation) {
    const target t;
    EXPECT_TRUE(std::isnan(t.background_radiation));
    EXPECT_EQ(t.vertex[0] + t.vertex[1] + t.vertex[2], 0.0F);
    EXPECT_EQ(t.echo_range + t.time + t.time_internal, 0.0);
    EXPECT_EQ(t.amplitude + t.reflectance + t.deviation, 0.0F);
    EXPECT_EQ(t.mta_zone + t.is_sw + t.is_rising + t.is_pseudo + t.is_pps_locked + t.lineend, 0);
    EXPECT_EQ(t.facet + t.segment, 0U);
}

TEST(pointcloud_shot, refused_parameters_stop_the_measurement_from_starting) {
    class strict_cloud : public fed_pointcloud {
      protected:
        void on_check_parameters_before_measurement_starting() override {
            if (++asked == 1) {
                throw std::runtime_error("incomplete");
            }
        }

      public:
        int asked = 0;
    };
    strict_cloud cloud;
    EXPECT_THROW(cloud.shot(1), std::runtime_error);
    EXPECT_TRUE(cloud.shots.empty());
    cloud.shot(2);
    cloud.shot(3);
    EXPECT_EQ(cloud.asked, 2);
    EXPECT_EQ(cloud.shots.size(), 2U);
}
