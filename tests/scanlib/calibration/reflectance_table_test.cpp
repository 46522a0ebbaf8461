#include "scanlib/reflectance_table.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using scanlib::reflectance_table;

constexpr float nan32 = std::numeric_limits<float>::quiet_NaN();
constexpr float inf32 = std::numeric_limits<float>::infinity();

TEST(reflectance_table, linear_table_is_reproduced_between_its_entries) {
    reflectance_table table{0.25F, {}};
    for (int i = 0; i <= 40; ++i) {
        table.entries.push_back(3.0F - 0.5F * 0.25F * static_cast<float>(i));
    }
    for (double range = 0; range < 10; range += 1.0 / 32) {
        EXPECT_FLOAT_EQ(table.corrected(-20.0F, range), static_cast<float>(-17.0 - 0.5 * range))
            << range;
    }
}

TEST(reflectance_table, range_before_the_shot_counts_by_its_distance) {
    const reflectance_table table{1.0F, {0.0F, 2.0F, 6.0F}};
    EXPECT_EQ(table.corrected(0.0F, -1.5), table.corrected(0.0F, 1.5));
    EXPECT_EQ(table.corrected(0.0F, -1.5), 4.0F);
}

TEST(reflectance_table, beyond_the_table_grows_by_6_02_decibels_per_doubling) {
    const reflectance_table table{5.0F, {1.0F, -2.0F, 4.0F}};
    EXPECT_FLOAT_EQ(table.corrected(0.0F, 10.0), 4.0F);
    for (double range = 10; range < 1e5; range *= 2) {
        const float once = table.corrected(0.0F, range);
        const float twice = table.corrected(0.0F, 2 * range);
        EXPECT_NEAR(twice - once, 6.0206, 1e-4) << range;
    }
}

TEST(reflectance_table, beyond_the_table_power_falls_with_the_square_of_the_distance) {
    const reflectance_table table{10.0F, {0.0F, 0.0F}};
    for (const double range : {10.0, 17.0, 250.0, 9999.0}) {
        const double gain = std::pow(10.0, table.corrected(0.0F, range) / 10.0);
        EXPECT_NEAR(gain, range * range / 100.0, 1e-5 * gain) << range;
    }
}

TEST(reflectance_table, empty_table_changes_nothing) {
    EXPECT_TRUE(reflectance_table{}.empty());
    EXPECT_EQ(reflectance_table{}.corrected(-12.5F, 100.0), -12.5F);
}

TEST(reflectance_table, one_entry_has_no_end_to_extrapolate_from) {
    const reflectance_table table{1.0F, {2.0F}};
    EXPECT_EQ(table.corrected(0.0F, 5.0), inf32);
    EXPECT_TRUE(std::isnan(table.corrected(0.0F, 0.0)));
}

TEST(reflectance_table, one_entry_with_a_negative_step_stays_inside) {
    const reflectance_table table{-1.0F, {2.0F}};
    EXPECT_EQ(table.corrected(1.0F, 5.0), 3.0F);
}

TEST(reflectance_table, negative_step_extrapolates_from_the_first_interval) {
    const reflectance_table table{-1.0F, {2.0F, 3.0F}};
    EXPECT_FLOAT_EQ(table.corrected(0.0F, 0.5), 2.5F);
}

TEST(reflectance_table, values_without_a_number_pass_through) {
    const reflectance_table table{1.0F, {2.0F, 3.0F}};
    EXPECT_TRUE(std::isnan(table.corrected(nan32, 0.5)));
    EXPECT_TRUE(std::isnan(table.corrected(0.0F, nan32)));
    EXPECT_EQ(table.corrected(0.0F, inf32), inf32);
    EXPECT_TRUE(std::isnan((reflectance_table{nan32, {2.0F, 3.0F}}.corrected(0.0F, 0.5))));
    EXPECT_TRUE(std::isnan((reflectance_table{1.0F, {nan32, 3.0F}}.corrected(0.0F, 0.5))));
}

TEST(reflectance_table, step_of_zero_or_without_end_does_not_fault) {
    EXPECT_EQ((reflectance_table{0.0F, {2.0F, 3.0F}}.corrected(0.0F, 1.0)), inf32);
    EXPECT_EQ((reflectance_table{inf32, {2.0F, 3.0F}}.corrected(0.0F, 1.0)), 2.0F);
}

} // namespace
