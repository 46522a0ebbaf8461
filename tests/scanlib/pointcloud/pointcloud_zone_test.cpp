#include "recording_pointcloud.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

using namespace scanlib;
using namespace scanlib::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr double light = 3e8;               ///< m/s, the group velocity of a stream that tells none
constexpr double tick = 1e-07 / 524288;     ///< s
constexpr std::uint64_t period = 52428800;  ///< ticks between shots: 10 us, 1500 m of range
constexpr std::uint64_t start = 1ULL << 45; ///< of the first shot
constexpr double metres_of_a_tick = light / 2 * tick;
constexpr double unambiguous = 1500;

/// A scanner that fires every 10 us, somewhat unevenly, and sees a target in each shot.
struct zone_scanner : fed_pointcloud {
    explicit zone_scanner(bool external_time = false) : fed_pointcloud(external_time) {
        units(0.001F, 3600);
        geometry();
    }

    void settings(std::uint8_t zones, float low, float high, float range = unambiguous) {
        feed<packets::mta_settings_1_writer>([&](auto& w) {
            w.mta_zones(zones);
            w.gate_low(low);
            w.gate_high(high);
            w.unambiguous_range(range);
        });
    }

    /// Ticks of shot n.
    static std::uint64_t fired(std::size_t n) { return start + period * n + n % 3 * 400000; }

    void fire(std::size_t n) { shot_hr(fired(n), static_cast<std::uint32_t>(37 * n), 5); }

    /// The echo of a target at `range` from shot `of`, as seen while shot `at` is the newest.
    void see(double range, std::size_t of, std::size_t at) {
        const double late = static_cast<double>(fired(at) - fired(of)) * metres_of_a_tick;
        echo(static_cast<std::int32_t>(std::lround((range - late) / 0.001)));
    }

    /// All float fields of a target that tell a place.
    static void expect_at(const target& t, double range, const recording_pointcloud::shot& own) {
        EXPECT_NEAR(t.echo_range, range, 0.001);
        EXPECT_EQ(t.time, own.time);
        EXPECT_EQ(t.time_internal, own.time_internal);
        EXPECT_EQ(t.facet, own.facet);
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_FLOAT_EQ(t.vertex[i],
                            static_cast<float>(t.echo_range * own.direction[i] + own.origin[i]));
        }
    }
};

} // namespace

TEST(pointcloud_zones, targets_in_zones_1_to_5_land_at_their_true_range_and_their_own_shots_time) {
    for (std::size_t zone = 0; zone < 5; ++zone) {
        const double range = unambiguous * static_cast<double>(zone) + 700;
        zone_scanner scanner;
        scanner.settings(0, static_cast<float>(range - 100), static_cast<float>(range + 100));
        for (std::size_t n = 0; n < 12; ++n) {
            scanner.fire(n);
            if (n >= zone) {
                scanner.see(range + 0.25 * static_cast<double>(n - zone), n - zone, n);
            }
        }
        scanner.frame_stop();
        ASSERT_EQ(scanner.reported.size(), 12 - zone);
        for (std::size_t n = 0; n < scanner.reported.size(); ++n) {
            const target& t = scanner.reported[n];
            EXPECT_EQ(t.mta_zone, zone);
            zone_scanner::expect_at(t, range + 0.25 * static_cast<double>(n), scanner.shots[n]);
        }
    }
}

TEST(pointcloud_zones, several_echoes_of_one_shot_find_each_its_own_shot) {
    zone_scanner scanner;
    scanner.settings(0, 1000, 2499);
    for (std::size_t n = 0; n < 6; ++n) {
        scanner.fire(n);
    }
    // All are told while shot 5 is the newest.
    scanner.see(1100, 5, 5);
    scanner.see(1495, 4, 5);
    scanner.see(2450, 3, 5);
    scanner.frame_stop();
    ASSERT_EQ(scanner.reported.size(), 3U);
    zone_scanner::expect_at(scanner.reported[0], 1100, scanner.shots[5]);
    zone_scanner::expect_at(scanner.reported[1], 1495, scanner.shots[4]);
    zone_scanner::expect_at(scanner.reported[2], 2450, scanner.shots[3]);
    EXPECT_EQ(scanner.reported[2].mta_zone, 2);
    EXPECT_THAT(scanner.positions,
                ElementsAre(echo_position::first, echo_position::interior, echo_position::last));
}

TEST(pointcloud_zones, gates_are_honoured_on_both_sides_and_an_echo_without_a_zone_is_counted) {
    zone_scanner scanner;
    scanner.settings(0, 100, 200);
    scanner.fire(0);
    scanner.echo(250000);
    scanner.echo(50000);
    scanner.echo(99990);
    scanner.echo(200010);
    EXPECT_EQ(scanner.log.count(loss::echo_without_zone), 4U);
    scanner.echo(150000);
    scanner.frame_stop();
    ASSERT_THAT(scanner.positions, ElementsAre(echo_position::single));
    EXPECT_NEAR(scanner.reported[0].echo_range, 150, 1e-3);
}

TEST(pointcloud_zones, gates_belong_to_the_zone) {
    zone_scanner scanner;
    scanner.units(0.5F, 3600);
    scanner.settings(0, 100, 200);
    scanner.fire(0);
    scanner.echo(200);
    scanner.echo(400);
    scanner.frame_stop();
    ASSERT_EQ(scanner.reported.size(), 2U);
    EXPECT_EQ(scanner.reported[0].echo_range, 100.0);
    EXPECT_EQ(scanner.reported[1].echo_range, 200.0);
}

TEST(pointcloud_zones, a_dropped_echo_leaves_the_one_before_it_waiting) {
    zone_scanner scanner;
    scanner.settings(0, 100, 200);
    scanner.fire(0);
    scanner.echo(150000);
    scanner.echo(900000);
    EXPECT_THAT(scanner.reported, IsEmpty());
    scanner.frame_stop();
    EXPECT_THAT(scanner.positions, ElementsAre(echo_position::single));
}

TEST(pointcloud_zones, fixed_zone_places_an_echo_before_the_newest_shot_one_zone_further) {
    zone_scanner scanner;
    scanner.settings(2, 0, 0);
    for (std::size_t n = 0; n < 4; ++n) {
        scanner.fire(n);
    }
    scanner.see(1800, 2, 3);
    scanner.see(2900, 1, 3);
    scanner.frame_stop();
    ASSERT_EQ(scanner.reported.size(), 2U);
    zone_scanner::expect_at(scanner.reported[0], 1800, scanner.shots[2]);
    EXPECT_EQ(scanner.reported[0].mta_zone, 1);
    zone_scanner::expect_at(scanner.reported[1], 2900, scanner.shots[1]);
    EXPECT_EQ(scanner.reported[1].mta_zone, 2);
}

TEST(pointcloud_zones, fixed_zone_without_a_shot_gives_a_point_of_NaN) {
    zone_scanner scanner;
    scanner.settings(3, 0, 0);
    scanner.fire(0);
    scanner.echo(700000);
    scanner.frame_stop();
    ASSERT_EQ(scanner.reported.size(), 1U);
    const target& t = scanner.reported[0];
    EXPECT_EQ(t.mta_zone, 2);
    EXPECT_TRUE(std::isnan(t.echo_range));
    EXPECT_TRUE(std::isnan(t.time));
    EXPECT_TRUE(std::isnan(t.vertex[0]) && std::isnan(t.vertex[1]) && std::isnan(t.vertex[2]));
    EXPECT_FLOAT_EQ(t.amplitude, 10.0F);
}

TEST(pointcloud_zones, line_stop_clears_the_history_and_a_far_echo_finds_no_shot_behind_it) {
    zone_scanner scanner;
    scanner.settings(2, 0, 0);
    for (std::size_t n = 0; n < 3; ++n) {
        scanner.fire(n);
    }
    scanner.line_stop();
    scanner.fire(3);
    scanner.see(1800, 2, 3);
    scanner.frame_stop();
    ASSERT_EQ(scanner.reported.size(), 1U);
    EXPECT_TRUE(std::isnan(scanner.reported[0].echo_range));

    // Frame and measurement stops keep it.
    scanner.fire(4);
    scanner.frame_stop();
    scanner.meas_stop();
    scanner.fire(5);
    scanner.see(1800, 4, 5);
    scanner.frame_stop();
    zone_scanner::expect_at(scanner.reported[1], 1800, scanner.shots[4]);
}

TEST(pointcloud_zones, search_takes_a_cleared_entry_for_a_shot_at_tick_0) {
    zone_scanner scanner;
    const double far = static_cast<double>(start) * metres_of_a_tick;
    scanner.settings(0, 3000, static_cast<float>(far + 10000), 1e9F);
    scanner.fire(0);
    scanner.echo(1000);
    scanner.frame_stop();
    ASSERT_EQ(scanner.reported.size(), 1U);
    EXPECT_NEAR(scanner.reported[0].echo_range, 1 + far, 1);
    EXPECT_EQ(scanner.reported[0].mta_zone, 1);
    EXPECT_TRUE(std::isnan(scanner.reported[0].time));
}

TEST(pointcloud_zones, a_smaller_history_forgets_its_oldest_shots_for_good) {
    zone_scanner scanner;
    scanner.settings(5, 0, 0);
    for (std::size_t n = 0; n < 6; ++n) {
        scanner.fire(n);
    }
    scanner.see(6500, 1, 5);
    scanner.settings(2, 0, 0);
    scanner.settings(5, 0, 0);
    scanner.see(6500, 1, 5);
    scanner.settings(3, 0, 0);
    scanner.see(3200, 3, 5);
    scanner.frame_stop();
    ASSERT_EQ(scanner.reported.size(), 3U);
    zone_scanner::expect_at(scanner.reported[0], 6500, scanner.shots[1]);
    EXPECT_TRUE(std::isnan(scanner.reported[1].echo_range));
    zone_scanner::expect_at(scanner.reported[2], 3200, scanner.shots[3]);
}

TEST(pointcloud_zones, zones_to_search_follow_from_the_gate_and_the_unambiguous_range) {
    zone_scanner scanner;
    scanner.settings(0, -1, 2900, 1500);
    EXPECT_EQ(scanner.history.size(), 3U) << "2900 m lie in the second zone; one entry more";
    EXPECT_EQ(scanner.unambiguous_range, 1500.0);
    scanner.settings(0, -1, 3000, 1500);
    EXPECT_EQ(scanner.history.size(), 4U);
    scanner.settings(7, -1, 3000, 1500);
    EXPECT_EQ(scanner.history.size(), 8U);
}

TEST(pointcloud_zones, the_newest_shot_stands_again_when_the_shot_ends) {
    zone_scanner scanner;
    scanner.settings(2, 0, 0);
    scanner.fire(0);
    scanner.fire(1);
    scanner.see(1800, 0, 1);
    scanner.fire(2);
    ASSERT_EQ(scanner.ended.size(), 2U);
    EXPECT_EQ(scanner.ended[1].time, scanner.shots[1].time);
    EXPECT_EQ(scanner.ended[1].direction, scanner.shots[1].direction);
}

TEST(pointcloud_zones, a_shot_held_back_ends_as_its_last_echo_left_it) {
    zone_scanner scanner(true);
    scanner.settings(2, 0, 0);
    scanner.fire(0);
    scanner.fire(1);
    scanner.see(1800, 0, 1);
    scanner.fire(2);
    ASSERT_EQ(scanner.ended.size(), 2U);
    EXPECT_EQ(scanner.ended[1].time_internal, scanner.shots[0].time_internal);
    EXPECT_EQ(scanner.ended[1].direction, scanner.shots[0].direction);
}

TEST(pointcloud_zones, shots_of_the_short_counter_are_not_remembered) {
    zone_scanner scanner;
    scanner.settings(1, 0, 0);
    scanner.shot(1000, 10);
    scanner.echo(1000);
    scanner.frame_stop();
    EXPECT_TRUE(std::isnan(scanner.reported[0].echo_range));
}

TEST(pointcloud_zones, without_settings_all_echoes_are_of_the_newest_shot) {
    zone_scanner scanner;
    scanner.fire(0);
    scanner.fire(1);
    scanner.echo(5000000);
    scanner.frame_stop();
    EXPECT_EQ(scanner.reported[0].mta_zone, 0);
    EXPECT_NEAR(scanner.reported[0].echo_range, 5000, 1e-3);
    EXPECT_EQ(scanner.reported[0].time, scanner.shots[1].time);
}

namespace {

/// Counts which rungs of the settings' ladder are reached.
struct ladder_scanner : zone_scanner {
    int second = 0;
    int first = 0;
    void on_mta_settings_2(packets::mta_settings_2& /*p*/) override { ++second; }
    void on_mta_settings_1(packets::mta_settings_1& p) override {
        ++first;
        zone_scanner::on_mta_settings_1(p);
    }
    void told(std::uint8_t mode) {
        feed<packets::mta_settings_3_writer>([&](auto& w) {
            w.mode(mode);
            w.mta_zones(4);
            w.gate_low(1.0F);
            w.gate_high(2.0F);
            w.unambiguous_range(300.0F);
        });
    }
};

} // namespace

TEST(pointcloud_zones, settings_3_of_mode_2_stop_the_ladder) {
    for (const std::uint8_t mode : {std::uint8_t{2}, std::uint8_t{255}}) {
        ladder_scanner scanner;
        scanner.told(mode);
        EXPECT_TRUE(scanner.mta_enabled);
        EXPECT_EQ(scanner.mta_zones, 4);
        EXPECT_EQ(scanner.gate_low, 1.0F);
        EXPECT_EQ(scanner.gate_high, 2.0F);
        EXPECT_EQ(scanner.unambiguous_range, 300.0);
        EXPECT_EQ(scanner.second, 0);
        EXPECT_EQ(scanner.first, 0);
    }
}

TEST(pointcloud_zones, settings_3_of_mode_0_or_1_leave_it_to_the_lower_versions) {
    for (const std::uint8_t mode : {std::uint8_t{0}, std::uint8_t{1}}) {
        ladder_scanner scanner;
        scanner.told(mode);
        EXPECT_EQ(scanner.second, 1);
        EXPECT_EQ(scanner.first, 1);
        EXPECT_EQ(scanner.mta_zones, 4);
        EXPECT_TRUE(scanner.mta_enabled);
    }
}

TEST(pointcloud_zones, settings_of_the_older_kind_work_alike) {
    zone_scanner scanner;
    scanner.feed<packets::mta_settings_writer>([](auto& w) {
        w.mta_zones(2);
        w.gate_low(3.0F);
        w.gate_high(4.0F);
        w.unambiguous_range(250.0F);
    });
    EXPECT_TRUE(scanner.mta_enabled);
    EXPECT_EQ(scanner.mta_zones, 2);
    EXPECT_EQ(scanner.gate_low, 3.0F);
    EXPECT_EQ(scanner.gate_high, 4.0F);
    EXPECT_EQ(scanner.unambiguous_range, 250.0);
    EXPECT_EQ(scanner.history.size(), 3U);
}

TEST(pointcloud_zones, ambiguity_told_from_outside_holds_against_the_streams_settings) {
    zone_scanner scanner;
    scanner.set_mta_ambiguity(nullptr, 0, 2000, 2500);
    EXPECT_FALSE(scanner.mta_enabled);
    scanner.settings(1, 0, 1000, 1500);
    EXPECT_TRUE(scanner.mta_enabled);
    EXPECT_EQ(scanner.mta_zones, 0) << "searched";
    EXPECT_EQ(scanner.gate_low, 2000.0F);
    EXPECT_EQ(scanner.gate_high, 2500.0F);
    EXPECT_EQ(scanner.unambiguous_range, 1500.0) << "which the stream alone knows";
    scanner.fire(0);
    scanner.fire(1);
    scanner.see(2200, 0, 1);
    scanner.frame_stop();
    zone_scanner::expect_at(scanner.reported[0], 2200, scanner.shots[0]);
}

TEST(pointcloud_zones, ambiguity_places_each_echo_in_every_alternative_zone_too) {
    zone_scanner scanner;
    const std::uint16_t zones[] = {1, 2, 4};
    scanner.settings(1, 0, 0);
    scanner.set_mta_ambiguity(zones, 3, 1400, 2000);
    for (std::size_t n = 0; n < 5; ++n) {
        scanner.fire(n);
    }
    const auto range_from = [&](double range, std::size_t of) {
        return range + static_cast<double>(zone_scanner::fired(4) - zone_scanner::fired(of)) *
                           metres_of_a_tick;
    };
    scanner.echo(200000);
    scanner.echo(-10000);
    scanner.frame_stop();
    ASSERT_EQ(scanner.reported.size(), 2U);
    ASSERT_EQ(scanner.reported_elsewhere.size(), 6U);
    const auto* elsewhere = scanner.reported_elsewhere.data();
    zone_scanner::expect_at(elsewhere[0], 200, scanner.shots[4]);
    zone_scanner::expect_at(elsewhere[1], range_from(200, 3), scanner.shots[3]);
    // The history has room for two zones and one entry more: beyond, it is the last entry.
    zone_scanner::expect_at(elsewhere[2], range_from(200, 2), scanner.shots[2]);
    zone_scanner::expect_at(scanner.reported[0], range_from(200, 3), scanner.shots[3]);
    // An echo before the newest shot is one zone further.
    zone_scanner::expect_at(elsewhere[3], range_from(-10, 3), scanner.shots[3]);
    zone_scanner::expect_at(elsewhere[4], range_from(-10, 2), scanner.shots[2]);
    EXPECT_EQ(elsewhere[4].mta_zone, 2);
    zone_scanner::expect_at(scanner.reported[1], range_from(-10, 3), scanner.shots[3]);
}

TEST(pointcloud_zones,
     near_range_fraction_is_that_of_the_range_with_its_zone_and_without_elsewhere) {
    zone_scanner scanner;
    scanner.units(1.0F, 3600);
    scanner.feed<packets::nrange_table_writer>(
        [](auto& w) {
            w.element(1, 100);
            w.element(2, 300);
        },
        4);
    const std::uint16_t zones[] = {2};
    scanner.settings(1, 0, 0);
    scanner.set_mta_ambiguity(zones, 1, 2000, 3000);
    scanner.shot_hr(start);
    scanner.shot_hr(start + period);
    scanner.echo(1000);
    scanner.frame_stop();
    // 2500 m lie between the entries at 2048 m (100 m) and 4096 m (300 m).
    const double within = (2500.0 - 2048.0) / 2048.0;
    EXPECT_NEAR(scanner.reported[0].echo_range, 2500 + 100 + within * 200, 1e-3);
    const double before = 1000.0 / 2048.0;
    EXPECT_NEAR(scanner.reported_elsewhere[0].echo_range, 2500 + 100 + before * 200, 1e-3);
}
