#include "recording_pointcloud.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>

using namespace scanlib;
using namespace scanlib::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

struct triggered_scanner : fed_pointcloud {
    triggered_scanner() { units(0.001F, 3600); }

    /// Ranges in m and amplitudes in dB.
    void see(std::initializer_list<std::pair<double, double>> echoes) {
        shot(next_ += 100);
        for (const auto& [range, amplitude] : echoes) {
            echo(static_cast<std::int32_t>(std::lround(range * 1000)),
                 static_cast<std::uint16_t>(std::lround(amplitude * 100)));
        }
    }
    /// One row a 10 dB from 0 dB on; only that of 50 dB has thresholds: behind it 20 dB, which fall
    /// by 10 dB/m from 0.5 m on; ahead of it 30 dB, which fall by 20 dB/m from 0.25 m on.
    void rows() {
        feed<packets::dyntrig_writer>(
            [](auto& w) {
                w.offset(0.0F);
                w.scale(10.0F);
                w.element(5).thra1(20.0F);
                w.element(5).del1(0.5F);
                w.element(5).dec1(10.0F);
                w.element(5).thra2(30.0F);
                w.element(5).del2(0.25F);
                w.element(5).dec2(20.0F);
            },
            6);
    }
    template<class Writer>
    void numbers(std::uint8_t pairs, std::initializer_list<float> values) {
        feed<Writer>(
            [&](auto& w) {
                w.pairs(pairs);
                std::size_t i = 0;
                for (const float v : values) {
                    w.element(i++, v);
                }
            },
            values.size());
    }
    /// Which of the targets reported last have no place.
    std::vector<bool> hidden() const {
        std::vector<bool> result;
        for (const target& t : reported) {
            const bool none = std::isnan(t.echo_range);
            EXPECT_EQ(std::isnan(t.vertex[0]), none);
            EXPECT_EQ(std::isnan(t.vertex[1]), none);
            EXPECT_EQ(std::isnan(t.vertex[2]), none);
            result.push_back(none);
        }
        return result;
    }

  private:
    std::uint32_t next_ = 0;
};

/// Keys 0 and 60 dB; distances 0, 1 and 2 m; thresholds 0, 0, 0 at 0 dB and 60, 30, 0 at 60 dB.
const std::initializer_list<float> falling = {0, 0, 0, 1, 0, 2, 0, 60, 0, 60, 1, 30, 2, 0};

} // namespace

TEST(pointcloud_trigger,
     empty_table_hides_nothing_but_holds_the_targets_back_until_the_shot_closes) {
    triggered_scanner scanner;
    scanner.feed<packets::dyntrig_writer>([](auto&) {}, 0);
    EXPECT_TRUE(scanner.dyntrig.present());
    scanner.see({{5, 50}, {5.1, 1}, {5.2, 1}});
    EXPECT_THAT(scanner.reported, IsEmpty());
    scanner.calls.clear();
    scanner.line_stop();
    EXPECT_THAT(scanner.positions,
                ElementsAre(echo_position::first, echo_position::interior, echo_position::last));
    EXPECT_THAT(scanner.calls,
                ElementsAre("on_echo_ready", "on_echo_ready", "on_echo_ready", "on_shot_end"));
    EXPECT_THAT(scanner.hidden(), ElementsAre(false, false, false));
    EXPECT_FLOAT_EQ(static_cast<float>(scanner.reported[1].echo_range), 5.1F);
    EXPECT_EQ(scanner.reported[1].lineend, 0);
    EXPECT_EQ(scanner.reported[2].lineend, 1);
    scanner.see({{7, 10}});
    scanner.frame_stop();
    EXPECT_EQ(scanner.positions.back(), echo_position::single);
}

TEST(pointcloud_trigger, rows_hide_weak_echoes_on_both_sides_of_a_strong_one) {
    triggered_scanner scanner;
    scanner.rows();
    // Ahead of 10 m the threshold is 30 - 20 * (distance - 0.25) dB, at most 30; behind it
    // 20 - 10 * (distance - 0.5), at most 20.
    scanner.see({{9, 14},      // 1 m ahead: 15 dB
                 {9.5, 26},    // 0.5 m ahead: 25 dB
                 {9.9, 29},    // at most 30 dB
                 {10, 50},     // itself
                 {10.1, 21},   // at most 20 dB
                 {10.4, 19},   // 20 dB
                 {11, 14},     // 15 dB
                 {11.5, 11}}); // 10 dB
    scanner.frame_stop();
    EXPECT_THAT(scanner.hidden(), ElementsAre(true, false, true, false, false, true, true, false));
    EXPECT_EQ(scanner.positions.size(), 8U) << "the hidden keep their place in the order";
    EXPECT_EQ(scanner.positions.front(), echo_position::first);
    EXPECT_EQ(scanner.positions.back(), echo_position::last);
    EXPECT_FLOAT_EQ(scanner.reported[0].amplitude, 14.0F) << "and all but their place";
}

TEST(pointcloud_trigger, row_is_the_nearest_one_by_amplitude) {
    for (const double amplitude : {44.0, 46.0, 54.0, 600.0}) {
        triggered_scanner scanner;
        scanner.rows();
        scanner.see({{10, amplitude}, {10.1, 5}});
        scanner.frame_stop();
        EXPECT_THAT(scanner.hidden(), ElementsAre(false, amplitude > 45)) << amplitude;
    }
}

TEST(pointcloud_trigger, grids_interpolate_between_amplitudes_and_between_distances) {
    triggered_scanner scanner;
    scanner.numbers<packets::dyntrig_pre_writer>(3, falling);
    scanner.numbers<packets::dyntrig_post_writer>(3, falling);
    EXPECT_TRUE(scanner.dyntrig.table_form());
    // At 40 dB: two thirds of 60 - 30 * distance, up to 2 m.
    for (const double distance : {0.2, 0.6, 1.0, 1.4, 1.9}) {
        const double threshold = 2.0 / 3 * (60 - 30 * distance);
        for (const bool weaker : {false, true}) {
            const double amplitude = threshold + (weaker ? -0.1 : 0.1);
            scanner.reported.clear();
            scanner.see({{10 - distance, amplitude}, {10, 40}});
            scanner.frame_stop();
            scanner.see({{10, 40}, {10 + distance, amplitude}});
            scanner.frame_stop();
            EXPECT_THAT(scanner.hidden(), ElementsAre(weaker, false, false, weaker)) << distance;
        }
    }
    scanner.reported.clear();
    scanner.see({{7.9, 0}, {10, 40}, {12.1, 0}});
    scanner.frame_stop();
    EXPECT_THAT(scanner.hidden(), ElementsAre(false, false, false));
}

TEST(pointcloud_trigger, pre_grid_works_ahead_of_an_echo_and_post_grid_behind_it) {
    for (const bool pre : {false, true}) {
        triggered_scanner scanner;
        if (pre) {
            scanner.numbers<packets::dyntrig_pre_writer>(3, falling);
        } else {
            scanner.numbers<packets::dyntrig_post_writer>(3, falling);
        }
        scanner.see({{9.5, 1}, {10, 40}, {10.5, 1}});
        scanner.frame_stop();
        EXPECT_THAT(scanner.hidden(), ElementsAre(pre, false, !pre));
    }
}

TEST(pointcloud_trigger, target_outside_the_keys_hides_nothing) {
    triggered_scanner scanner;
    scanner.numbers<packets::dyntrig_post_writer>(3, falling);
    scanner.see({{10, 60}, {10.5, 1}});
    scanner.frame_stop();
    EXPECT_THAT(scanner.hidden(), ElementsAre(false, false));
}

TEST(pointcloud_trigger, second_form_wins_where_both_are_there) {
    triggered_scanner scanner;
    scanner.rows();
    scanner.numbers<packets::dyntrig_post_writer>(3, falling);
    // Row form: 20 dB behind, grid: 25 - 12.5 dB.
    scanner.see({{10, 50}, {11.5, 11}, {10.4, 19}});
    scanner.frame_stop();
    // Grid at 50 dB: five sixths of 15 dB at 1.5 m and of 48 dB at 0.4 m.
    EXPECT_THAT(scanner.hidden(), ElementsAre(false, true, true));
}

TEST(pointcloud_trigger, grids_of_wrong_shape_say_so_with_the_name_of_their_packet) {
    triggered_scanner scanner;
    EXPECT_EQ(failure_of([&] {
                  scanner.numbers<packets::dyntrig_pre_writer>(2, {1, 2, 3, 4, 5, 6});
              }),
              "pointcloud::on_dyntrig_pre: dynamic_trigger: inconsistent table dimensions");
    EXPECT_EQ(failure_of([&] {
                  scanner.numbers<packets::dyntrig_post_writer>(2, {1, 2, 3, 4, 5, 6});
              }),
              "pointcloud::on_dyntrig_post: dynamic_trigger: inconsistent table dimensions");
    EXPECT_EQ(failure_of([&] {
                  scanner.numbers<packets::dyntrig_pre_writer>(2, {1, 2, 3, 4, 5});
              }),
              "pointcloud::on_dyntrig_pre: dynamic_trigger: table too small");
    EXPECT_EQ(failure_of([&] {
                  scanner.numbers<packets::dyntrig_post_writer>(1, {1, 2, 3, 4, 5, 6});
              }),
              "pointcloud::on_dyntrig_post: dynamic_trigger: table too small");
    EXPECT_FALSE(scanner.dyntrig.present());
}

TEST(pointcloud_trigger, no_pseudo_target_while_trigger_data_is_there) {
    triggered_scanner scanner;
    scanner.rows();
    scanner.shot_rad(1, 77);
    scanner.frame_stop();
    EXPECT_THAT(scanner.reported, IsEmpty());
}

TEST(pointcloud_trigger, alternative_zones_are_rebuilt_in_step) {
    triggered_scanner scanner;
    scanner.rows();
    const std::uint16_t zones[] = {1, 2};
    scanner.feed<packets::mta_settings_writer>([](auto& w) { w.unambiguous_range(1500.0F); });
    scanner.set_mta_ambiguity(zones, 2, 0, 1400);
    for (int n = 0; n < 3; ++n) {
        scanner.shot_hr((std::uint64_t{1} << 45) + 52428800 * static_cast<unsigned>(n));
        for (int e = 0; e < 3; ++e) {
            scanner.echo(10000 * (n + 1) + 1000 * e, 1000);
        }
    }
    scanner.frame_stop();
    ASSERT_EQ(scanner.reported.size(), 9U);
    ASSERT_EQ(scanner.reported_elsewhere.size(), 18U);
    for (std::size_t i = 3; i < 9; ++i) {
        const double range = scanner.reported[i].echo_range;
        EXPECT_EQ(scanner.reported_elsewhere[2 * i].echo_range, range);
        EXPECT_NEAR(scanner.reported_elsewhere[2 * i + 1].echo_range, range + 1500, 1e-6);
    }
}
