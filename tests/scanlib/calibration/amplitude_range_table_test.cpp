#include "scanlib/amplitude_range_table.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <limits>

namespace {

using scanlib::amplitude_range_table;

constexpr float nan32 = std::numeric_limits<float>::quiet_NaN();
constexpr float inf32 = std::numeric_limits<float>::infinity();

/// Entries of 1 dB; an amplitude count is 0.01 dB, so that an entry spans 100 counts.
amplitude_range_table example() {
    return {1.0F, {10, 20, -30, 40}};
}

TEST(amplitude_range_table, adds_the_entry_of_the_amplitude_without_interpolation) {
    const auto table = example();
    EXPECT_EQ(table.corrected(1000, 1, 0.01), 1010);
    EXPECT_EQ(table.corrected(1000, 99, 0.01), 1010);
    EXPECT_EQ(table.corrected(1000, 150, 0.01), 1020);
    EXPECT_EQ(table.corrected(1000, 250, 0.01), 970);
}

TEST(amplitude_range_table, amplitude_zero_is_not_corrected) {
    EXPECT_EQ(example().corrected(1000, 0, 0.01), 1000);
}

TEST(amplitude_range_table, amplitude_at_or_above_the_last_entry_is_not_corrected) {
    const auto table = example();
    // In powers of two, so that the place of the last entry is exact.
    EXPECT_EQ(table.corrected(1000, 191, 1.0 / 64), 970);
    EXPECT_EQ(table.corrected(1000, 192, 1.0 / 64), 1000);
    EXPECT_EQ(table.corrected(1000, 65535, 0.01), 1000);
}

TEST(amplitude_range_table, empty_and_one_entry_tables_change_nothing) {
    EXPECT_TRUE(amplitude_range_table{}.empty());
    EXPECT_EQ(amplitude_range_table{}.corrected(-7, 100, 0.01), -7);
    EXPECT_EQ((amplitude_range_table{1.0F, {50}}.corrected(-7, 100, 0.01)), -7);
}

TEST(amplitude_range_table, largest_counters_do_not_overflow) {
    const amplitude_range_table table{1.0F, {32767, 0}};
    EXPECT_EQ(table.corrected(std::numeric_limits<std::int32_t>::max(), 5, 0.01),
              2147483647.0 + 32767.0);
    const amplitude_range_table below{1.0F, {-32768, 0}};
    EXPECT_EQ(below.corrected(std::numeric_limits<std::int32_t>::min(), 5, 0.01),
              -2147483648.0 - 32768.0);
}

TEST(amplitude_range_table, odd_steps_and_units_never_leave_the_table) {
    for (const float step : {0.0F, -1.0F, nan32, inf32, -inf32, 1e-45F, 3e38F}) {
        for (const double unit : {0.0, -0.01, 1e-300, 1e300, double{nan32}, double{inf32}}) {
            const amplitude_range_table table{step, {1, 2, 3}};
            for (const std::uint16_t amplitude :
                 std::initializer_list<std::uint16_t>{0, 1, 1000, 65535}) {
                const double added = table.corrected(0, amplitude, unit);
                EXPECT_TRUE(added >= 0 && added <= 3) << step << ' ' << unit << ' ' << amplitude;
            }
        }
    }
}

TEST(amplitude_range_table, agrees_with_a_walk_through_the_entries) {
    // Steps of 3 counts: an entry holds for its own three counts.
    const amplitude_range_table table{0.75F, {5, 6, 7, 8, 9}};
    for (std::uint16_t amplitude = 1; amplitude < 20; ++amplitude) {
        double expected = 0;
        for (int i = 0; i < 4; ++i) {
            if (amplitude >= 3 * i && amplitude < 3 * (i + 1)) {
                expected = 5 + i;
            }
        }
        EXPECT_EQ(table.corrected(0, amplitude, 0.25), expected) << amplitude;
    }
}

} // namespace
