#include "scanlib/calibration_tables.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace {

using scanlib::calibration_curve;
using scanlib::calibration_tables;
using pairs_type = calibration_curve::pairs_type;

constexpr double nan64 = std::numeric_limits<double>::quiet_NaN();
constexpr double inf64 = std::numeric_limits<double>::infinity();

/// By a walk through the pairs.
double walked(const pairs_type& pairs, double v) {
    double x_before = -inf64;
    double y_before = 0;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const auto [x, y] = pairs[i];
        if ((x_before < v && v <= x) || i + 1 == pairs.size()) {
            return y + (v - x) * (y_before - y) / (x_before - x);
        }
        x_before = x;
        y_before = y;
    }
    return nan64;
}

TEST(calibration_curve, straight_line_is_reproduced_and_goes_on_beyond_the_last_pair) {
    const calibration_curve curve({{0, 1}, {1, 3}, {4, 9}});
    for (double v = 0; v < 20; v += 0.125) {
        EXPECT_NEAR(curve(v), 1 + 2 * v, 1e-12) << v;
    }
}

TEST(calibration_curve, pairs_give_their_values) {
    const calibration_curve curve({{-1, 5}, {0, -2}, {3, 8}});
    EXPECT_EQ(curve(-1), 5);
    EXPECT_EQ(curve(0), -2);
    EXPECT_EQ(curve(3), 8);
}

TEST(calibration_curve, before_the_first_pair_its_value_stands) {
    const calibration_curve curve({{2, 5}, {3, 9}});
    EXPECT_EQ(curve(2), 5);
    EXPECT_EQ(curve(1.5), 5);
    EXPECT_EQ(curve(-1e300), 5);
}

TEST(calibration_curve, without_pairs_there_is_no_value) {
    EXPECT_TRUE(std::isnan(calibration_curve()(0)));
    EXPECT_TRUE(std::isnan(calibration_curve(pairs_type{})(inf64)));
}

TEST(calibration_curve, single_pair_stands_everywhere) {
    const calibration_curve curve({{2, 5}});
    EXPECT_EQ(curve(-100), 5);
    EXPECT_EQ(curve(2), 5);
    EXPECT_EQ(curve(100), 5);
}

TEST(calibration_curve, first_fitting_pair_of_an_unordered_curve_counts) {
    // 4 lies in (0, 10] and, further on, in (2, 6].
    const calibration_curve curve({{0, 0}, {10, 100}, {2, 7}, {6, 7}});
    EXPECT_DOUBLE_EQ(curve(4), 40);
}

TEST(calibration_curve, agrees_with_a_walk_through_unordered_pairs) {
    std::mt19937 random(3);
    std::uniform_int_distribution<int> count(1, 12);
    std::uniform_int_distribution<int> place(-20, 20);
    for (int round = 0; round < 3000; ++round) {
        pairs_type pairs(static_cast<std::size_t>(count(random)));
        double apart = 0; // so that no two places are equal
        for (auto& [x, y] : pairs) {
            x = place(random) + (apart += 0.001);
            y = place(random);
        }
        const calibration_curve curve(pairs);
        for (int i = 0; i < 20; ++i) {
            const double v = place(random) + 0.5;
            EXPECT_NEAR(curve(v), walked(pairs, v), 1e-6 * (1 + std::fabs(curve(v)))) << v;
        }
    }
}

TEST(calibration_curve, equal_last_places_do_not_divide_by_zero) {
    const calibration_curve curve({{0, 1}, {5, 2}, {5, 3}});
    EXPECT_EQ(curve(5), 2);
    EXPECT_EQ(curve(6), 3);
}

TEST(calibration_curve, places_without_a_number_give_none) {
    const calibration_curve curve({{nan64, 1}, {1, 2}, {3, 4}});
    EXPECT_TRUE(std::isnan(curve(nan64)));
    EXPECT_TRUE(std::isnan(curve(0)));
    EXPECT_EQ(curve(2), 3);
    EXPECT_TRUE(std::isnan(calibration_curve({{0, nan64}, {1, nan64}})(0.5)));
    EXPECT_TRUE(std::isnan(calibration_curve({{nan64, 1}, {nan64, 2}})(0.5)));
}

TEST(calibration_curve, infinite_places_do_not_fault) {
    const calibration_curve curve({{0, 1}, {inf64, 2}});
    EXPECT_EQ(curve(-inf64), 1);
    EXPECT_TRUE(std::isnan(curve(5)));
}

TEST(calibration_tables, curves_are_found_by_their_number) {
    calibration_tables tables;
    tables.set(20, {{0, 1}, {1, 2}});
    tables.set(65535, {{0, 9}});
    EXPECT_TRUE(tables.contains(20));
    EXPECT_TRUE(tables.contains(65535));
    EXPECT_FALSE(tables.contains(21));
    EXPECT_DOUBLE_EQ(tables.lookup(20, 0.5), 1.5);
    EXPECT_EQ(tables.lookup(65535, 0.5), 9);
    EXPECT_EQ(tables.size(), 2u);
}

TEST(calibration_tables, number_already_present_is_replaced) {
    calibration_tables tables;
    tables.set(7, {{0, 1}, {1, 2}});
    tables.set(7, {{0, 5}});
    EXPECT_EQ(tables.size(), 1u);
    EXPECT_EQ(tables.lookup(7, 0.5), 5);
    EXPECT_EQ(tables.curve(7).pairs(), (pairs_type{{0, 5}}));
}

TEST(calibration_tables, missing_and_empty_curves_have_no_value) {
    calibration_tables tables;
    tables.set(7, {});
    EXPECT_TRUE(tables.contains(7));
    EXPECT_TRUE(std::isnan(tables.lookup(7, 0)));
    EXPECT_TRUE(std::isnan(tables.lookup(8, 0)));
    EXPECT_TRUE(tables.curve(8).pairs().empty());
    tables.clear();
    EXPECT_FALSE(tables.contains(7));
}

} // namespace
