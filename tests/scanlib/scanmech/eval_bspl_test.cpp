#include "scanlib/eval_bspl.hpp"

#include <gtest/gtest.h>

#include <rapidcheck.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

using scanlib::eval_bspl;

namespace {

constexpr double turn = 2 * std::numbers::pi;

/// Knot number i of the sequence that repeats for ever.
double knot(const std::vector<double>& knots, int i) {
    const int n = static_cast<int>(knots.size());
    const int lap = (i >= 0 ? i : i - n + 1) / n;
    return knots[static_cast<std::size_t>(i - lap * n)] + lap * turn;
}

/// Basis function of an order over the knots from number i on, by its definition.
double basis(const std::vector<double>& knots, int i, int order, double x) {
    if (order == 1) {
        return knot(knots, i) <= x && x < knot(knots, i + 1) ? 1 : 0;
    }
    const double low = knot(knots, i);
    const double high = knot(knots, i + order);
    return (x - low) / (knot(knots, i + order - 1) - low) * basis(knots, i, order - 1, x) +
           (high - x) / (high - knot(knots, i + 1)) * basis(knots, i + 1, order - 1, x);
}

/// The periodic spline whose values stand over the middle knots of their basis functions.
double spline(const std::vector<double>& knots, const std::vector<double>& values, double x) {
    const int n = static_cast<int>(knots.size());
    double sum = 0;
    for (int i = -3; i < n + 3; ++i) {
        sum += values[static_cast<std::size_t>((i + n) % n)] * basis(knots, i - 2, 4, x);
    }
    return sum;
}

std::vector<double> even_knots(std::size_t n) {
    std::vector<double> knots;
    for (std::size_t i = 0; i < n; ++i) {
        knots.push_back(static_cast<double>(i) * turn / static_cast<double>(n));
    }
    return knots;
}

std::vector<double> evaluated(const std::vector<double>& x, const std::vector<double>& knots,
                              const std::vector<double>& values) {
    std::vector<double> out(x.size());
    eval_bspl(out, x, knots, values);
    return out;
}

void expect_inconsistent(const std::vector<double>& x, const std::vector<double>& knots,
                         const std::vector<double>& values) {
    try {
        evaluated(x, knots, values);
        ADD_FAILURE();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "inconsistent data in eval_bspl");
    }
}

} // namespace

TEST(eval_bspl, is_the_sum_of_the_basis_functions_over_any_knots) {
    EXPECT_TRUE(rc::check([](std::uint32_t seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> real(0, 1);
        const std::size_t n = 4 + random() % 12;
        std::vector<double> knots{0};
        std::vector<double> values{real(random)};
        double sum = 0;
        for (std::size_t i = 0; i < n; ++i) {
            sum += 0.1 + real(random);
            knots.push_back(sum);
            values.push_back(real(random));
        }
        knots.pop_back();
        values.pop_back();
        for (double& k : knots) {
            k *= turn / sum;
        }
        std::vector<double> x;
        for (int i = 0; i < 50; ++i) {
            x.push_back(turn * real(random));
        }
        std::sort(x.begin(), x.end());
        const std::vector<double> out = evaluated(x, knots, values);
        for (std::size_t i = 0; i < x.size(); ++i) {
            RC_ASSERT(std::fabs(out[i] - spline(knots, values, x[i])) < 1e-11);
        }
    }));
}

TEST(eval_bspl, equal_values_give_that_value) {
    std::vector<double> x;
    for (int i = 0; i <= 1000; ++i) {
        x.push_back(i * turn / 1000);
    }
    for (const double y : evaluated(x, even_knots(5), std::vector<double>(5, 3.25))) {
        EXPECT_NEAR(y, 3.25, 1e-14);
    }
}

TEST(eval_bspl, reproduces_a_line_between_even_knots) {
    std::vector<double> values;
    const std::vector<double> knots = even_knots(20);
    for (const double k : knots) {
        values.push_back(2 * k - 1);
    }
    // Away from the seam, where the values fall back.
    const std::vector<double> x{0.7, 1.0, 2.345, 3.0, 5.0};
    const std::vector<double> out = evaluated(x, knots, values);
    for (std::size_t i = 0; i < x.size(); ++i) {
        EXPECT_NEAR(out[i], 2 * x[i] - 1, 1e-13);
    }
}

TEST(eval_bspl, over_even_knots_weighs_neighbours_by_one_four_one) {
    const std::vector<double> knots = even_knots(6);
    const std::vector<double> values{1, 5, -2, 0, 7, 3};
    const std::vector<double> out = evaluated(knots, knots, values);
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_NEAR(out[i], (values[(i + 5) % 6] + 4 * values[i] + values[(i + 1) % 6]) / 6, 1e-14);
    }
}

TEST(eval_bspl, the_end_of_the_period_is_its_beginning) {
    const std::vector<double> out = evaluated({0, turn}, even_knots(5), {1, 5, -2, 0, 7});
    EXPECT_NEAR(out[0], out[1], 1e-13);
    EXPECT_NEAR(evaluated({turn}, even_knots(5), {1, 5, -2, 0, 7})[0], out[0], 1e-13);
}

TEST(eval_bspl, where_x_falls_back_the_search_starts_afresh) {
    const std::vector<double> knots = even_knots(9);
    const std::vector<double> values{1, 5, -2, 0, 7, 3, 3, -1, 2};
    const std::vector<double> out = evaluated({0.1, 3.0, 6.0, 0.1, 3.0, 0.1}, knots, values);
    EXPECT_EQ(out[3], out[0]);
    EXPECT_EQ(out[4], out[1]);
    EXPECT_EQ(out[5], out[0]);
}

TEST(eval_bspl, x_may_skip_many_knots) {
    const std::vector<double> knots = even_knots(500);
    std::vector<double> values;
    for (const double k : knots) {
        values.push_back(std::sin(k));
    }
    const std::vector<double> out = evaluated({0.1, 3.0, 6.0}, knots, values);
    EXPECT_NEAR(out[1], std::sin(3.0), 1e-4);
    EXPECT_NEAR(out[2], std::sin(6.0), 1e-4);
}

TEST(eval_bspl, x_before_the_first_knot_fails) {
    expect_inconsistent({-0.001}, even_knots(5), std::vector<double>(5));
    expect_inconsistent({0.5, -0.001}, even_knots(5), std::vector<double>(5));
    expect_inconsistent({std::numeric_limits<double>::quiet_NaN()}, even_knots(5),
                        std::vector<double>(5));
}

TEST(eval_bspl, x_that_runs_off_the_continued_knots_fails) {
    expect_inconsistent({turn + 2 * turn / 5}, even_knots(5), std::vector<double>(5));
    expect_inconsistent({std::numeric_limits<double>::infinity()}, even_knots(5),
                        std::vector<double>(5));
}

TEST(eval_bspl, too_few_knots_and_lengths_that_differ_fail) {
    expect_inconsistent({0.1}, {0, 1}, {1, 2});
    expect_inconsistent({0.1}, even_knots(5), std::vector<double>(4));
}

TEST(eval_bspl, empty_x_returns_at_once) {
    EXPECT_TRUE(evaluated({}, {}, {}).empty());
}

TEST(eval_bspl, knots_that_coincide_do_not_fault) {
    const std::vector<double> out =
        evaluated({0.1, 1.0, 2.0, 6.0}, {0, 1, 1, 1, 1, 2}, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(out.size(), 4U);
    EXPECT_TRUE(std::isfinite(out[3]));
}
