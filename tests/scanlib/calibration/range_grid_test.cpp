#include "scanlib/range_grid.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>

namespace {

using scanlib::range_grid;
using scanlib::range_grid_scaling;

constexpr double nan64 = std::numeric_limits<double>::quiet_NaN();
constexpr double inf64 = std::numeric_limits<double>::infinity();

template<class F>
range_grid grid_of(std::vector<double> rows, std::vector<double> columns, F f) {
    range_grid grid{std::move(rows), std::move(columns), {}};
    for (const double r : grid.rows) {
        for (const double c : grid.columns) {
            grid.values.push_back(f(r, c));
        }
    }
    return grid;
}

TEST(range_grid, bilinear_function_is_reproduced_inside) {
    const auto f = [](double r, double a) { return 2 - 3 * r + 0.5 * a + 0.25 * r * a; };
    const auto grid = grid_of({0, 1, 4, 10}, {-2, 3, 5}, f);
    std::mt19937 random(1);
    std::uniform_real_distribution<double> range(0, 10);
    std::uniform_real_distribution<double> amplitude(-2, 5);
    for (int i = 0; i < 1000; ++i) {
        const double r = range(random);
        const double a = amplitude(random);
        EXPECT_NEAR(grid.corrected(r, a), r + f(r, a), 1e-12) << r << ' ' << a;
    }
}

TEST(range_grid, nodes_give_their_values) {
    const auto grid = grid_of({0, 1, 4}, {0, 10}, [](double r, double a) { return r * r - a * a; });
    for (const double r : grid.rows) {
        for (const double a : grid.columns) {
            EXPECT_DOUBLE_EQ(grid.corrected(r, a), r + r * r - a * a);
        }
    }
}

TEST(range_grid, outside_on_one_axis_the_edge_interpolates_along_the_other) {
    const auto f = [](double r, double a) { return 3 * r + 7 * a; };
    const auto grid = grid_of({1, 2}, {10, 20}, f);
    EXPECT_DOUBLE_EQ(grid.corrected(0.5, 15), 0.5 + f(1, 15));
    EXPECT_DOUBLE_EQ(grid.corrected(9, 15), 9 + f(2, 15));
    EXPECT_DOUBLE_EQ(grid.corrected(1.5, 0), 1.5 + f(1.5, 10));
    EXPECT_DOUBLE_EQ(grid.corrected(1.5, 99), 1.5 + f(1.5, 20));
}

TEST(range_grid, outside_on_both_axes_the_corner_stands) {
    const auto f = [](double r, double a) { return 3 * r + 7 * a; };
    const auto grid = grid_of({1, 2}, {10, 20}, f);
    EXPECT_DOUBLE_EQ(grid.corrected(-5, -5), -5 + f(1, 10));
    EXPECT_DOUBLE_EQ(grid.corrected(-5, 50), -5 + f(1, 20));
    EXPECT_DOUBLE_EQ(grid.corrected(50, -5), 50 + f(2, 10));
    EXPECT_DOUBLE_EQ(grid.corrected(50, 50), 50 + f(2, 20));
}

TEST(range_grid, single_node_is_added_everywhere) {
    const range_grid grid{{5}, {5}, {0.125}};
    for (const double r : {-1.0, 5.0, 80.0}) {
        EXPECT_EQ(grid.corrected(r, r), r + 0.125);
    }
}

TEST(range_grid, without_values_the_range_stays) {
    EXPECT_TRUE(range_grid{}.empty());
    EXPECT_EQ(range_grid{}.corrected(12.5, 3), 12.5);
    const auto rows_only = range_grid::read(3, 0, {}, std::vector<std::uint16_t>{1, 2, 3});
    EXPECT_EQ(rows_only.corrected(12.5, 3), 12.5);
}

TEST(range_grid, reader_takes_rows_then_columns_then_values_row_by_row) {
    const std::vector<std::uint16_t> raw{1, 2, 10, 20, 30, 100, 101, 102, 103, 104, 65535};
    const auto grid = range_grid::read(2, 3, {0.5, 1, 2, -3, 0.25, -8}, raw);
    EXPECT_EQ(grid.rows, (std::vector<double>{1.5, 2}));
    EXPECT_EQ(grid.columns, (std::vector<double>{17, 37, 57}));
    EXPECT_EQ(grid.values, (std::vector<double>{17, 17.25, 17.5, 17.75, 18, 16375.75}));
    EXPECT_DOUBLE_EQ(grid.corrected(1.5, 57), 1.5 + 17.5);
    EXPECT_DOUBLE_EQ(grid.corrected(2, 17), 2 + 17.75);
}

TEST(range_grid, reader_ignores_numbers_that_only_fill_the_last_word) {
    const auto grid = range_grid::read(1, 1, {}, std::vector<std::uint16_t>{1, 2, 3, 0xABCD});
    EXPECT_EQ(grid.values, std::vector<double>{3});
}

TEST(range_grid, reader_refuses_counts_beyond_the_numbers_and_tells_them) {
    const std::vector<std::uint16_t> raw(8, 1);
    EXPECT_NO_THROW(range_grid::read(2, 2, {}, raw));
    try {
        range_grid::read(2, 3, {}, raw);
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "range grid: 8 numbers are too few for 2 x 3 nodes");
    }
    EXPECT_THROW(range_grid::read(9, 0, {}, raw), std::runtime_error);
    EXPECT_THROW(range_grid::read(0, 9, {}, raw), std::runtime_error);
    EXPECT_THROW(range_grid::read(65535, 65535, {}, raw), std::runtime_error);
    EXPECT_THROW(range_grid::read(1, 1, {}, {}), std::runtime_error);
}

TEST(range_grid, reader_withstands_counts_whose_product_overflows) {
    const std::vector<std::uint16_t> raw(8, 1);
    const std::size_t huge = std::numeric_limits<std::size_t>::max();
    EXPECT_THROW(range_grid::read(huge, 2, {}, raw), std::runtime_error);
    EXPECT_THROW(range_grid::read(2, huge, {}, raw), std::runtime_error);
    EXPECT_THROW(range_grid::read(huge / 2 + 1, 2, {}, raw), std::runtime_error);
}

TEST(range_grid, odd_axes_and_places_stay_inside_the_grid) {
    // Each value is in 1 to 2, and so is what lies between them wherever it is a number.
    const std::vector<double> odd{nan64, inf64, -inf64, 3, 3, -1, 0, 1e308, -1e308};
    std::mt19937 random(2);
    std::uniform_int_distribution<std::size_t> pick(0, odd.size() - 1);
    for (int i = 0; i < 2000; ++i) {
        const auto axis = [&] {
            return std::vector<double>{odd[pick(random)], odd[pick(random)], odd[pick(random)]};
        };
        const auto grid = grid_of(axis(), axis(), [](double, double) { return 1.5; });
        const double r = odd[pick(random)];
        const double out = grid.corrected(r, odd[pick(random)]);
        EXPECT_TRUE(std::isnan(out) || out == r || std::fabs(out - r - 1.5) < 1e-9) << out;
    }
}

TEST(range_grid, place_without_a_number_takes_the_edge) {
    const auto grid = grid_of({1, 2}, {10, 20}, [](double, double a) { return a; });
    EXPECT_TRUE(std::isnan(grid.corrected(nan64, 15)));
    EXPECT_DOUBLE_EQ(grid.corrected(1.5, nan64), 21.5);
    EXPECT_EQ(grid.corrected(inf64, 15), inf64);
}

TEST(range_grid, axis_with_equal_neighbours_does_not_divide_by_zero) {
    const range_grid grid{{1, 2, 2, 3}, {0}, {0, 10, 20, 30}};
    EXPECT_DOUBLE_EQ(grid.corrected(1.5, 0), 6.5);
    EXPECT_DOUBLE_EQ(grid.corrected(2, 0), 22);
    EXPECT_DOUBLE_EQ(grid.corrected(2.5, 0), 27.5);
}

} // namespace
