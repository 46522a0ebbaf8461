#include "scanlib/mta_history.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <deque>
#include <limits>
#include <random>

namespace {

using scanlib::mta_history;
using scanlib::mta_shot;

constexpr double nan64 = std::numeric_limits<double>::quiet_NaN();
constexpr double inf64 = std::numeric_limits<double>::infinity();

/// Light goes a metre there and back in a tick.
constexpr double velocity = 2e8;
constexpr double unit = 1e-8;

mta_shot shot_at(std::uint64_t ticks) {
    mta_shot s;
    s.ticks = ticks;
    s.time = static_cast<double>(ticks);
    s.facet = static_cast<std::uint32_t>(ticks % 3);
    return s;
}

/// A history of `size` entries with these shots, the oldest first.
mta_history history_of(std::size_t size, const std::vector<std::uint64_t>& ticks) {
    mta_history h;
    h.resize(size);
    for (const auto t : ticks) {
        h.push(shot_at(t));
    }
    return h;
}

void expect_cleared(const mta_shot& s) {
    EXPECT_EQ(s.ticks, 0u);
    EXPECT_TRUE(std::isnan(s.time));
    EXPECT_TRUE(std::isnan(s.time_internal));
    EXPECT_TRUE(std::isnan(s.line_angle));
    EXPECT_TRUE(std::isnan(s.frame_angle));
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_TRUE(std::isnan(s.beam_origin[i]));
        EXPECT_TRUE(std::isnan(s.beam_direction[i]));
    }
}

TEST(mta_history, newest_shot_is_entry_0_and_the_oldest_drops_out) {
    const auto h = history_of(3, {1, 2, 3, 4, 5});
    EXPECT_EQ(h.size(), 3u);
    EXPECT_EQ(h[0].ticks, 5u);
    EXPECT_EQ(h[1].ticks, 4u);
    EXPECT_EQ(h[2].ticks, 3u);
    EXPECT_EQ(h[2].facet, 0u);
    EXPECT_EQ(h[1].time, 4.0);
}

TEST(mta_history, entry_beyond_the_size_is_the_last_one) {
    const auto h = history_of(3, {1, 2, 3, 4});
    EXPECT_EQ(h[3].ticks, 2u);
    EXPECT_EQ(h[1000000].ticks, 2u);
    expect_cleared(history_of(3, {1, 2})[7]);
    expect_cleared(mta_history{}[0]);
}

TEST(mta_history, entries_without_a_shot_have_ticks_0_and_nan) {
    const auto h = history_of(4, {7});
    EXPECT_EQ(h[0].ticks, 7u);
    expect_cleared(h[1]);
    expect_cleared(h[3]);
}

TEST(mta_history, clear_empties_all_entries_and_keeps_the_size) {
    auto h = history_of(3, {1, 2, 3});
    h.clear();
    EXPECT_EQ(h.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        expect_cleared(h[i]);
    }
    h.push(shot_at(9));
    EXPECT_EQ(h[0].ticks, 9u);
    expect_cleared(h[1]);
}

TEST(mta_history, larger_size_gets_cleared_entries_at_the_old_end) {
    auto h = history_of(2, {1, 2, 3});
    h.resize(4);
    EXPECT_EQ(h[0].ticks, 3u);
    EXPECT_EQ(h[1].ticks, 2u);
    expect_cleared(h[2]);
    expect_cleared(h[3]);
}

TEST(mta_history, smaller_size_drops_from_the_old_end) {
    auto h = history_of(4, {1, 2, 3, 4});
    h.resize(2);
    EXPECT_EQ(h[0].ticks, 4u);
    EXPECT_EQ(h[1].ticks, 3u);
    h.resize(4);
    EXPECT_EQ(h[1].ticks, 3u);
    expect_cleared(h[2]);
}

TEST(mta_history, size_zero_keeps_nothing) {
    auto h = history_of(0, {1, 2});
    EXPECT_EQ(h.size(), 0u);
    h.resize(2);
    expect_cleared(h[0]);
}

TEST(mta_history, size_is_bounded_by_the_width_of_a_zone) {
    mta_history h;
    h.resize(std::numeric_limits<std::size_t>::max());
    EXPECT_EQ(h.size(), 65536u);
    for (std::uint64_t i = 1; i <= 70000; ++i) {
        h.push(shot_at(i));
    }
    EXPECT_EQ(h[0].ticks, 70000u);
    EXPECT_EQ(h[65535].ticks, 70000u - 65535u);
}

TEST(mta_history, zone_count_is_the_told_one_or_reaches_the_upper_gate) {
    EXPECT_EQ(mta_history::zone_count(5, 1e9, 1), 5u);
    EXPECT_EQ(mta_history::zone_count(0, 999, 1000), 1u);
    EXPECT_EQ(mta_history::zone_count(0, 1000, 1000), 2u);
    EXPECT_EQ(mta_history::zone_count(0, -3500, 1000), 4u);
}

TEST(mta_history, zone_count_is_bounded_for_any_gate) {
    EXPECT_EQ(mta_history::zone_count(0, 1e30, 1), 65535u);
    EXPECT_EQ(mta_history::zone_count(0, 1, 0), 65535u);
    EXPECT_EQ(mta_history::zone_count(0, inf64, 1), 65535u);
    EXPECT_EQ(mta_history::zone_count(0, nan64, 1), 0u);
    EXPECT_EQ(mta_history::zone_count(0, 1, inf64), 1u);
    EXPECT_EQ(mta_history::zone_count(70000, 1, 1), 65535u);
}

TEST(mta_history, echoes_of_zones_1_to_5_land_at_their_true_range) {
    // A shot each 1000 ticks, that is a zone each 1000 m. Told is what is left of the true range.
    const auto h = history_of(6, {10000, 11000, 12000, 13000, 14000, 15000});
    for (int zone = 0; zone < 6; ++zone) {
        const double truth = 1000 * zone + 123.5;
        const auto found = h.search(123.5, truth - 400, truth + 400, velocity, unit);
        ASSERT_TRUE(found) << zone;
        EXPECT_EQ(found->zone, zone);
        EXPECT_NEAR(found->range, truth, 1e-9);
        EXPECT_EQ(h[found->zone].ticks, 15000u - 1000u * static_cast<unsigned>(zone));
    }
}

TEST(mta_history, first_zone_inside_the_gates_wins) {
    const auto h = history_of(6, {10000, 11000, 12000, 13000, 14000, 15000});
    EXPECT_EQ(h.search(100, 0, 1e9, velocity, unit).value().zone, 0);
    EXPECT_EQ(h.search(100, 101, 1e9, velocity, unit).value().zone, 1);
    EXPECT_EQ(h.search(-500, 0, 1e9, velocity, unit).value().zone, 1);
}

TEST(mta_history, both_gates_belong_to_the_zone) {
    const auto h = history_of(3, {1000, 2000, 3000});
    EXPECT_EQ(h.search(100, 100, 100, velocity, unit).value().zone, 0);
    const double one = 100 + 1000 * velocity * 0.5 * unit;
    EXPECT_EQ(h.search(100, one, one, velocity, unit).value().zone, 1);
}

TEST(mta_history, echo_outside_all_gates_has_no_zone) {
    const auto h = history_of(3, {1000, 2000, 3000});
    EXPECT_FALSE(h.search(100, 200, 900, velocity, unit));
    EXPECT_FALSE(h.search(100, 5000, 6000, velocity, unit));
    EXPECT_FALSE(h.search(100, -50, -20, velocity, unit));
    EXPECT_FALSE(h.search(100, 900, 50, velocity, unit)) << "gates the wrong way round";
}

TEST(mta_history, history_of_no_size_has_no_zone) {
    EXPECT_FALSE(mta_history{}.search(100, 0, 1000, velocity, unit));
}

TEST(mta_history, cleared_entries_are_searched_with_ticks_0) {
    const auto h = history_of(5, {4000, 5000});
    const auto found = h.search(100, 5050, 5150, velocity, unit);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->zone, 2);
    EXPECT_NEAR(found->range, 5100, 1e-9);
    expect_cleared(h[found->zone]);
}

TEST(mta_history, cleared_history_gives_the_range_itself) {
    auto h = history_of(3, {1000, 2000});
    h.clear();
    const auto found = h.search(100, 0, 200, velocity, unit);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->zone, 0);
    EXPECT_EQ(found->range, 100);
    EXPECT_FALSE(h.search(100, 1000, 2000, velocity, unit));
}

TEST(mta_history, numbers_that_are_none_find_no_zone) {
    const auto h = history_of(3, {1000, 2000, 3000});
    EXPECT_FALSE(h.search(nan64, 0, 1e9, velocity, unit));
    EXPECT_FALSE(h.search(100, nan64, 1e9, velocity, unit));
    EXPECT_FALSE(h.search(100, 0, nan64, velocity, unit));
    EXPECT_FALSE(h.search(100, 500, 1e9, nan64, unit));
    EXPECT_EQ(h.search(100, 0, inf64, nan64, unit).value().zone, 0) << "zone 0 needs no velocity";
    EXPECT_EQ(h.search(inf64, 0, inf64, velocity, unit).value().zone, 0);
    EXPECT_FALSE(h.search(-inf64, 0, 1, velocity, unit));
}

TEST(mta_history, counter_that_falls_gives_the_raw_difference_of_64_bits) {
    const auto h = history_of(2, {10, 9});
    // 9 - 10 is the largest 64-bit number: about 1.8e19 ticks.
    const auto found = h.search(0, 1e19, 2e19, velocity, unit);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->zone, 1);
    EXPECT_NEAR(found->range, 18446744073709551615.0, 1e4);
}

TEST(mta_history, far_zones_are_found_with_a_negative_velocity_too) {
    std::vector<std::uint64_t> ticks;
    for (std::uint64_t i = 1; i <= 40; ++i) {
        ticks.push_back(1000 * i);
    }
    const auto h = history_of(40, ticks);
    EXPECT_EQ(h.search(100, 30000, 30500, velocity, unit).value().zone, 30);
    EXPECT_EQ(h.search(100, -30000, -29500, -velocity, unit).value().zone, 30);
    EXPECT_EQ(h.search(100, -30000, -29500, velocity, -unit).value().zone, 30);
    EXPECT_FALSE(h.search(100, 30000, 30500, -velocity, unit));
}

TEST(mta_history, dropped_shots_are_not_found_any_more) {
    auto h = history_of(40, {});
    for (std::uint64_t i = 1; i <= 40; ++i) {
        h.push(shot_at(1000 * i));
    }
    h.resize(20);
    EXPECT_EQ(h.search(0, 19000, 19000, velocity, unit).value().zone, 19);
    EXPECT_FALSE(h.search(0, 20000, 20000, velocity, unit));
    h.clear();
    EXPECT_FALSE(h.search(0, 19000, 19000, velocity, unit));
}

/// The plain loop over a list of shots.
struct plain_history {
    std::deque<std::uint64_t> ticks;
    double range(double told, std::size_t z, double v, double u) const {
        const std::uint64_t between = ticks[0] - ticks[z];
        return z == 0 ? told : told + static_cast<double>(between) * v * 0.5 * u;
    }
    int search(double told, double low, double high, double v, double u) const {
        for (std::size_t z = 0; z < ticks.size(); ++z) {
            const double r = range(told, z, v, u);
            if (low <= r && r <= high) {
                return static_cast<int>(z);
            }
        }
        return -1;
    }
};

TEST(mta_history, agrees_with_a_plain_loop_over_any_course_of_the_counter) {
    std::mt19937 random(7);
    const auto number = [&](int low, int high) {
        return std::uniform_int_distribution<int>(low, high)(random);
    };
    int found_count = 0;
    int far_count = 0;
    for (int round = 0; round < 60; ++round) {
        mta_history h;
        plain_history plain;
        std::uint64_t ticks = 1000000;
        const int disorder = number(0, 2); // none, now and then, always
        for (int step = 0; step < 300; ++step) {
            const int what = number(0, 99);
            if (step == 0 || what == 0) {
                const auto size = static_cast<std::size_t>(number(0, 80));
                h.resize(size);
                plain.ticks.resize(size, 0);
            } else if (what == 1) {
                h.clear();
                std::fill(plain.ticks.begin(), plain.ticks.end(), 0);
            }
            ticks += static_cast<std::uint64_t>(number(0, 40));
            if (disorder == 2 || (disorder == 1 && number(0, 30) == 0)) {
                ticks -= static_cast<std::uint64_t>(number(0, 200));
            }
            h.push(shot_at(ticks));
            if (!plain.ticks.empty()) {
                plain.ticks.pop_back();
                plain.ticks.push_front(ticks);
            }
            const double told = number(-50, 50);
            const double low = number(-100, 1500);
            const double high = low + number(-5, 60);
            const double v = number(0, 20) == 0 ? -velocity : velocity;
            const int expected = plain.search(told, low, high, v, unit);
            const auto found = h.search(told, low, high, v, unit);
            ASSERT_EQ(found ? found->zone : -1, expected) << round << ' ' << step;
            if (found) {
                ++found_count;
                far_count += expected > 8;
                ASSERT_EQ(found->range,
                          plain.range(told, static_cast<std::size_t>(expected), v, unit));
            }
            for (std::size_t z = 0; z < plain.ticks.size(); ++z) {
                ASSERT_EQ(h[z].ticks, plain.ticks[z]);
            }
        }
    }
    EXPECT_GT(found_count, 1000);
    EXPECT_GT(far_count, 300);
}

TEST(mta_history, fixed_zone_counts_from_one_and_the_next_one_before_the_shot) {
    const auto h = history_of(4, {1000, 2000, 3000, 4000});
    const auto behind = h.locate(100, 2, velocity, unit);
    EXPECT_EQ(behind.zone, 1);
    EXPECT_NEAR(behind.range, 1100, 1e-9);
    const auto before = h.locate(-100, 2, velocity, unit);
    EXPECT_EQ(before.zone, 2);
    EXPECT_NEAR(before.range, 1900, 1e-9);
    EXPECT_EQ(h.locate(0, 1, velocity, unit).zone, 0);
    EXPECT_EQ(h.locate(100, 1, velocity, unit).range, 100);
}

TEST(mta_history, fixed_zone_without_a_shot_gives_nan) {
    const auto h = history_of(4, {1000, 2000});
    const auto at = h.locate(100, 3, velocity, unit);
    EXPECT_EQ(at.zone, 2);
    EXPECT_TRUE(std::isnan(at.range));
}

TEST(mta_history, fixed_zone_with_a_newer_counter_gives_nan) {
    const auto h = history_of(2, {3000, 2000});
    EXPECT_TRUE(std::isnan(h.locate(100, 2, velocity, unit).range));
    const auto same = history_of(2, {3000, 3000});
    EXPECT_EQ(same.locate(100, 2, velocity, unit).range, 100) << "an equal counter is not newer";
}

TEST(mta_history, fixed_zone_of_a_newest_shot_at_ticks_0_gives_nan) {
    const auto h = history_of(2, {5, 0});
    EXPECT_TRUE(std::isnan(h.locate(100, 1, velocity, unit).range));
}

TEST(mta_history, fixed_zone_beyond_the_history_is_its_last_one) {
    const auto h = history_of(3, {1000, 2000, 3000});
    const auto at = h.locate(100, 200, velocity, unit);
    EXPECT_EQ(at.zone, 2);
    EXPECT_NEAR(at.range, 2100, 1e-9);
    EXPECT_EQ(h.locate(100, 0xFFFFFFFF, velocity, unit).zone, 2);
}

TEST(mta_history, zone_number_0_is_the_newest_shot) {
    const auto h = history_of(3, {1000, 2000, 3000});
    EXPECT_EQ(h.locate(100, 0, velocity, unit).zone, 0);
    EXPECT_EQ(h.locate(100, 0, velocity, unit).range, 100);
    EXPECT_EQ(h.locate(-100, 0, velocity, unit).zone, 0);
}

TEST(mta_history, fixed_zone_in_a_history_of_no_size_is_nan) {
    const auto at = mta_history{}.locate(100, 3, velocity, unit);
    EXPECT_EQ(at.zone, 0);
    EXPECT_TRUE(std::isnan(at.range));
}

TEST(mta_history, fixed_zone_of_a_range_that_is_no_number_is_nan) {
    const auto h = history_of(3, {1000, 2000, 3000});
    const auto at = h.locate(nan64, 1, velocity, unit);
    EXPECT_EQ(at.zone, 1);
    EXPECT_TRUE(std::isnan(at.range));
}

} // namespace
