#include "scanlib/near_range_table.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <limits>
#include <random>
#include <vector>

namespace {

using scanlib::near_range_table;

constexpr double nan64 = std::numeric_limits<double>::quiet_NaN();
constexpr double inf64 = std::numeric_limits<double>::infinity();

TEST(near_range_table, linear_table_is_reproduced_between_its_entries) {
    near_range_table table{0.5F, {}};
    for (int i = 0; i < 9; ++i) {
        table.entries.push_back(0.25F - 0.125F * static_cast<float>(i));
    }
    for (double range = 1.0 / 64; range < 4.0; range += 1.0 / 64) {
        EXPECT_DOUBLE_EQ(table.corrected(range), range + 0.25 - 0.25 * range) << range;
    }
}

TEST(near_range_table, entry_itself_holds_at_its_place) {
    const near_range_table table{2.0F, {0.0F, 1.0F, -3.0F, 7.0F}};
    EXPECT_EQ(table.corrected(2.0), 3.0);
    EXPECT_EQ(table.corrected(4.0), 1.0);
}

TEST(near_range_table, range_of_zero_or_below_is_not_corrected) {
    const near_range_table table{1.0F, {5.0F, 5.0F}};
    EXPECT_EQ(table.corrected(0.0), 0.0);
    EXPECT_EQ(table.corrected(-0.5), -0.5);
}

TEST(near_range_table, range_at_or_beyond_the_end_is_not_corrected) {
    const near_range_table table{1.0F, {5.0F, 5.0F, 5.0F}};
    EXPECT_EQ(table.corrected(std::nextafter(2.0, 0.0)), std::nextafter(2.0, 0.0) + 5.0);
    EXPECT_EQ(table.corrected(2.0), 2.0);
    EXPECT_EQ(table.corrected(1e9), 1e9);
}

TEST(near_range_table, empty_and_one_entry_tables_change_nothing) {
    EXPECT_TRUE(near_range_table{}.empty());
    EXPECT_EQ(near_range_table{}.corrected(1.0), 1.0);
    EXPECT_EQ((near_range_table{1.0F, {5.0F}}.corrected(0.5)), 0.5);
}

TEST(near_range_table, fraction_of_an_alternative_zone_comes_from_the_range_before_it) {
    // Interval of 5.0 m: between entries 2 and 3. A quarter of a step comes from 0.5 m.
    const near_range_table table{2.0F, {0.0F, 0.0F, 8.0F, 16.0F}};
    EXPECT_DOUBLE_EQ(table.corrected(5.0, 0.5), 5.0 + 10.0);
    EXPECT_DOUBLE_EQ(table.corrected(5.0), 5.0 + 12.0);
    // The remainder of a range before the shot is negative, and so is the fraction.
    EXPECT_DOUBLE_EQ(table.corrected(5.0, -0.5), 5.0 + 6.0);
}

TEST(near_range_table, fraction_is_taken_of_the_range_in_32_bits) {
    const near_range_table table{1.0F, {0.0F, 0.0F, 0.0F, 100.0F}};
    const double range = 2.00000001; // as a 32-bit float, exactly 2
    EXPECT_EQ(table.corrected(range), range);
}

TEST(near_range_table, fraction_is_that_of_the_standard_remainder_for_any_range) {
    std::mt19937 random(8);
    std::uniform_real_distribution<float> digits(1.0F, 2.0F);
    std::uniform_int_distribution<int> power(-30, 60);
    for (int i = 0; i < 20000; ++i) {
        const float step = std::ldexp(digits(random), power(random) / 4);
        const float whole = std::round(std::ldexp(digits(random), power(random)));
        const float value = i % 2 == 0 ? std::ldexp(digits(random), power(random)) : whole * step;
        for (const float fraction_range : {value, -value, std::nextafter(value, 0.0F)}) {
            // In the first interval of a table from 0 to 1, the fraction is what is added.
            const near_range_table table{step, {0.0F, 1.0F}};
            const double half = 0.5 * step;
            EXPECT_EQ(table.corrected(half, fraction_range),
                      half + std::fmod(fraction_range, step) / step)
                << fraction_range << " by " << step;
        }
    }
}

TEST(near_range_table, ranges_without_a_number_pass_through) {
    const near_range_table table{1.0F, {5.0F, 5.0F}};
    EXPECT_TRUE(std::isnan(table.corrected(nan64)));
    EXPECT_EQ(table.corrected(inf64), inf64);
    EXPECT_EQ(table.corrected(-inf64), -inf64);
    EXPECT_TRUE(std::isnan(table.corrected(0.5, nan64)));
    EXPECT_TRUE(std::isnan(table.corrected(0.5, inf64)));
}

TEST(near_range_table, odd_steps_never_leave_the_table) {
    for (const float step : {0.0F, -1.0F, static_cast<float>(nan64), static_cast<float>(inf64),
                             1e-45F, 1e-38F, 3e38F}) {
        const near_range_table table{step, {1.0F, 1.0F, 1.0F}};
        for (const double range : {1e-320, 1e-45, 2.5e-45, 1e-38, 1.0, 3e38, 1e308}) {
            const double out = table.corrected(range, 0.0);
            EXPECT_TRUE(out == range || out == range + 1) << step << ' ' << range;
        }
    }
}

TEST(near_range_table, greatest_range_below_the_end_is_in_the_last_interval) {
    for (int i = 1; i < 2000; ++i) {
        for (const std::size_t entries : std::initializer_list<std::size_t>{2, 4, 12, 64}) {
            const float step = 0.001F * static_cast<float>(i);
            near_range_table table{step, std::vector<float>(entries, 5.0F)};
            table.entries.back() = 7.0F;
            const double range = std::nextafter(static_cast<double>(entries - 1) * step, 0.0);
            // The fraction, in 32 bits, may have wrapped to 0 already.
            const double added = table.corrected(range) - range;
            EXPECT_TRUE(std::fabs(added - 5.0) < 1e-3 || std::fabs(added - 7.0) < 1e-3) << step;
        }
    }
}

} // namespace
