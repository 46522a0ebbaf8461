#include "recording_pointcloud.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

using namespace scanlib;
using namespace scanlib::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr std::uint32_t second = 10000000;

std::size_t count(const fed_pointcloud& cloud, const std::string& call) {
    return static_cast<std::size_t>(std::count(cloud.calls.begin(), cloud.calls.end(), call));
}

} // namespace

TEST(
    pointcloud_sync,
    nothing_is_delivered_before_the_first_synchronisation_and_the_first_shot_behind_it_is_swallowed) {
    fed_pointcloud cloud(true);
    cloud.shot(second);
    cloud.echo(1);
    cloud.echo(2);
    cloud.shot(second + 100);
    cloud.echo(3);
    EXPECT_THAT(cloud.reported, IsEmpty());
    EXPECT_TRUE(std::isnan(cloud.shots[0].time));
    EXPECT_EQ(cloud.log.count(loss::shot_held_back), 1U);
    EXPECT_EQ(cloud.log.count(loss::target_held_back), 2U);

    cloud.pps(second, 1000);
    cloud.pps(2 * second, 2000);
    cloud.shot(2 * second + 100);
    EXPECT_THAT(cloud.reported, IsEmpty()) << "the shot that was open at the synchronisation";
    EXPECT_EQ(cloud.log.count(loss::shot_held_back), 2U);
    EXPECT_EQ(cloud.log.count(loss::target_held_back), 3U);
    cloud.echo(4);
    cloud.shot(2 * second + 200);
    ASSERT_THAT(cloud.positions, ElementsAre(echo_position::single));
    EXPECT_NEAR(cloud.reported[0].time, 2.00001, 1e-9);
    EXPECT_EQ(cloud.reported[0].is_pps_locked, 1);
}

TEST(pointcloud_sync, shot_end_comes_also_for_a_shot_that_is_held_back) {
    fed_pointcloud cloud(true);
    cloud.shot(1);
    cloud.echo(1);
    cloud.shot(2);
    cloud.frame_stop();
    EXPECT_EQ(count(cloud, "on_shot_end"), 2U);
    EXPECT_EQ(count(cloud, "on_echo_ready"), 0U);
}

TEST(pointcloud_sync, pairs_ahead_of_the_first_shot_use_up_the_closing_that_is_not_delivered) {
    fed_pointcloud cloud(true);
    cloud.pps(second, 1000);
    cloud.pps(2 * second, 2000);
    cloud.shot(2 * second + 100);
    cloud.echo(1);
    cloud.shot(2 * second + 200);
    EXPECT_THAT(cloud.positions, ElementsAre(echo_position::single));
    EXPECT_EQ(cloud.log.count(loss::shot_held_back), 0U);
}

TEST(pointcloud_sync, no_pseudo_target_while_held_back) {
    fed_pointcloud cloud(true);
    cloud.shot_rad(1, 9);
    cloud.shot_rad(2, 9);
    EXPECT_THAT(cloud.reported, IsEmpty());
}

TEST(pointcloud_sync, internal_times_need_no_synchronisation_and_stay_internal_with_it) {
    fed_pointcloud cloud(false);
    cloud.pps(second, 70000);
    cloud.pps(2 * second, 71000);
    cloud.shot(2 * second + 500);
    cloud.echo(1);
    cloud.frame_stop();
    EXPECT_DOUBLE_EQ(cloud.reported[0].time, (2 * second + 500) * 1e-07);
    EXPECT_DOUBLE_EQ(cloud.reported[0].time_internal, cloud.reported[0].time);
}

TEST(pointcloud_sync, gain_and_loss_of_the_lock_are_reported_once) {
    fed_pointcloud cloud(true);
    cloud.pps(second, 1000);
    EXPECT_EQ(count(cloud, "on_sync_gained"), 0U);
    cloud.pps(2 * second, 2000);
    cloud.pps(3 * second, 3000);
    EXPECT_EQ(count(cloud, "on_sync_gained"), 1U);
    cloud.shot(4 * second);
    EXPECT_EQ(count(cloud, "on_sync_lost"), 0U);
    cloud.shot(5 * second);
    cloud.shot(6 * second);
    EXPECT_EQ(count(cloud, "on_sync_lost"), 1U);
    EXPECT_NEAR(cloud.shots.back().time, 6.0, 1e-9) << "the time goes on without the lock";
    cloud.pps(7 * second, 7000);
    cloud.pps(8 * second, 8000);
    EXPECT_EQ(count(cloud, "on_sync_gained"), 2U);
}

TEST(pointcloud_sync, high_resolution_pairs_lock_all_three_synchronisers) {
    fed_pointcloud cloud(true);
    const double unit = 1.9073486328125e-13;
    const auto pps_hr = [&](std::uint64_t s) {
        cloud.feed<packets::pps_sync_hr_writer>([&](auto& w) {
            w.system_counter_hr(static_cast<std::uint64_t>(static_cast<double>(s) / unit));
            w.pps_time_hr(s * 1000000);
        });
    };
    pps_hr(5);
    pps_hr(6);
    EXPECT_TRUE(cloud.shot_sync.locked());
    EXPECT_TRUE(cloud.housekeeping_sync.locked());
    EXPECT_TRUE(cloud.gap_sync.locked());
    cloud.shot_hr(static_cast<std::uint64_t>(6.25 / unit));
    EXPECT_NEAR(cloud.shots[0].time, 6.25, 1e-9);
}

TEST(pointcloud_sync, extended_pair_works_like_the_plain_one) {
    fed_pointcloud cloud(true);
    for (const std::uint32_t s : {1U, 2U}) {
        auto packet = packet_feeder::words_of<packets::pps_sync_ext_writer>([](auto&) {});
        packet[2] = s * second;
        packet[3] = s * 1000;
        cloud.dispatch(packet.data(), packet.data() + packet.size());
    }
    EXPECT_TRUE(cloud.shot_sync.locked());
}

TEST(pointcloud_sync, units_begin_the_synchronisation_anew) {
    fed_pointcloud cloud(true);
    cloud.pps(second, 1000);
    cloud.pps(2 * second, 2000);
    cloud.units();
    EXPECT_FALSE(cloud.shot_sync.valid());
}

TEST(pointcloud_sync, first_counter_sync_seeds_all_synchronisers_and_later_ones_only_housekeeping) {
    fed_pointcloud cloud;
    const auto counter_sync = [&](std::uint32_t ticks) {
        cloud.feed<packets::counter_sync_writer>([&](auto& w) { w.system_counter(ticks); });
    };
    // The shot counter turns over against the seed, so that the wrap shows who has seen it.
    counter_sync(0x3FFFFFF0);
    counter_sync(5);
    EXPECT_NEAR(cloud.housekeeping_time, (1073741824.0 + 5) * 1e-07, 1e-9);
    cloud.shot(6);
    EXPECT_NEAR(cloud.shots[0].time, (1073741824.0 + 6) * 1e-07, 1e-9);
    EXPECT_NEAR(cloud.gap_sync.convert(std::uint32_t{7}).internal, (1073741824.0 + 7) * 1e-07,
                1e-9);
    // Again after units.
    cloud.units();
    counter_sync(0x3FFFFFF0);
    cloud.shot(6);
    EXPECT_NEAR(cloud.shots[1].time, (1073741824.0 + 6) * 1e-07, 1e-5);
}

TEST(pointcloud_sync, pwm_sync_moves_housekeeping_time_and_seeds_nothing) {
    fed_pointcloud cloud;
    cloud.feed<packets::pwm_sync_writer>([&](auto& w) { w.system_counter(0x3FFFFFF0); });
    EXPECT_NEAR(cloud.housekeeping_time, 0x3FFFFFF0 * 1e-07, 1e-9);
    cloud.shot(6);
    EXPECT_NEAR(cloud.shots[0].time, 6 * 1e-07, 1e-12);
}

TEST(pointcloud_sync, two_angle_counter_sync_moves_housekeeping_time_on_the_long_counter) {
    fed_pointcloud cloud;
    cloud.feed<packets::counter_sync_2angles_hr_writer>(
        [&](auto& w) { w.system_counter_hr(std::uint64_t{1} << 45); });
    EXPECT_NEAR(cloud.housekeeping_time, std::ldexp(1.9073486328125e-13, 45), 1e-9);
}

TEST(pointcloud_sync, pulse_repetition_rate_goes_to_shots_and_gaps_but_not_to_housekeeping) {
    fed_pointcloud cloud;
    cloud.feed<packets::range_finder_debug_laser_writer>(
        [&](auto& w) { w.pulse_repetition_rate(300000.0F); });
    EXPECT_EQ(cloud.shot_sync.pulse_repetition_rate(), 300000.0);
    EXPECT_EQ(cloud.gap_sync.pulse_repetition_rate(), 300000.0);
    EXPECT_TRUE(std::isnan(cloud.housekeeping_sync.pulse_repetition_rate()));
    cloud.feed<packets::range_finder_settings_writer>(
        [&](auto& w) { w.pulse_repetition_rate(400000.0F); });
    EXPECT_EQ(cloud.shot_sync.pulse_repetition_rate(), 400000.0);
    cloud.feed<packets::range_finder_program_2_writer>(
        [&](auto& w) { w.pulse_repetition_rate(1e6); });
    EXPECT_EQ(cloud.shot_sync.pulse_repetition_rate(), 1e6);
    cloud.units();
    EXPECT_EQ(cloud.shot_sync.pulse_repetition_rate(), 1e6);
}
