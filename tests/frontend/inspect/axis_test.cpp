#include "axis.hpp"

#include <cmath>
#include <cstdlib>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using LoomPDF::Axis;
using LoomPDF::Bounds;
using LoomPDF::drawable;
using LoomPDF::make_axis;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double huge = std::numeric_limits<double>::max();
constexpr double digit_width = 6;

double width_of(const std::string& label) {
    return digit_width * static_cast<double>(label.size());
}

Axis axis(double min, double max, double length = 1000, bool whole = false) {
    return make_axis({min, max}, {length, 40, width_of, whole});
}

std::vector<std::string> labels(const Axis& a) {
    std::vector<std::string> result;
    for (const auto& tick : a.ticks) {
        result.push_back(tick.label);
    }
    return result;
}

TEST(Axis, AmplitudeRangeOfAWaveformHasRoundTicks) {
    EXPECT_THAT(labels(axis(0, 2600, 240)),
                testing::ElementsAre("0", "500", "1000", "1500", "2000", "2500"));
}

TEST(Axis, StepsAreOneTwoOrFiveTimesAPowerOfTen) {
    for (const double span : {0.37, 1.0, 1.3, 2.5, 3.9, 5.2, 8.8, 11.0, 640.0, 7.1e5}) {
        const Axis a = axis(0, span);
        ASSERT_GE(a.ticks.size(), 3U) << span;
        const double step = a.ticks[1].value - a.ticks[0].value;
        const double mantissa = step / std::pow(10, std::floor(std::log10(step) + 1e-9));
        EXPECT_TRUE(std::abs(mantissa - 1) < 1e-9 || std::abs(mantissa - 2) < 1e-9 ||
                    std::abs(mantissa - 5) < 1e-9)
            << span << " " << step;
    }
}

TEST(Axis, LabelsReadAsTheirValuesAndDoNotTouch) {
    const Bounds cases[] = {{0, 1},          {-3, 7},           {0, 2600},
                            {-1e-7, 1e-7},   {1e5, 1.00001e5},  {0, 4294967295},
                            {-5e20, 1e20},   {0.1, 0.30000001}, {345678.25, 345678.2502},
                            {-1e300, 1e300}, {0, 1e-280}};
    for (const Bounds& b : cases) {
        for (const double length : {60.0, 240.0, 1000.0}) {
            const Axis a = axis(b.min, b.max, length);
            const double scale = std::pow(10, a.exponent);
            const double tolerance = (b.max - b.min) * 1e-6;
            for (std::size_t i = 0; i < a.ticks.size(); ++i) {
                const auto& tick = a.ticks[i];
                EXPECT_GE(tick.value, b.min);
                EXPECT_LE(tick.value, b.max);
                EXPECT_NEAR(std::strtod(tick.label.c_str(), nullptr) * scale, tick.value, tolerance)
                    << tick.label;
                if (i > 0) {
                    const double points =
                        (tick.value - a.ticks[i - 1].value) / (b.max - b.min) * length;
                    EXPECT_GT(points, width_of(tick.label) / 2 + width_of(a.ticks[i - 1].label) / 2)
                        << tick.label;
                }
            }
        }
    }
}

TEST(Axis, ZeroHasNoSignAndNoExponent) {
    EXPECT_THAT(labels(axis(-1, 1, 100)), testing::ElementsAre("-1", "0", "1"));
}

TEST(Axis, CountsHaveNoTicksBetweenWholeNumbers) {
    const Axis a = axis(0, 3, 1000, true);
    EXPECT_THAT(labels(a), testing::ElementsAre("0", "1", "2", "3"));
    EXPECT_TRUE(a.minor.empty());
    EXPECT_GT(axis(0, 3).ticks.size(), 4U);
}

TEST(Axis, MinorTicksLieBetweenTheLabelledOnes) {
    const Axis a = axis(0, 2600, 240);
    EXPECT_THAT(a.minor, testing::Contains(100.0));
    EXPECT_THAT(a.minor, testing::Contains(2600.0));
    EXPECT_THAT(a.minor, testing::Not(testing::Contains(500.0)));
}

TEST(Axis, VeryLargeAndVerySmallNumbersShareAFactor) {
    const Axis large = axis(0, 3e9, 240);
    EXPECT_EQ(large.exponent, 9);
    EXPECT_EQ(large.ticks.back().label.substr(0, 1), "3");
    const Axis small = axis(0, 4e-6, 240);
    EXPECT_EQ(small.exponent, -6);
    EXPECT_EQ(small.ticks.back().label.substr(0, 1), "4");
}

TEST(DrawableBounds, WhatIsNoNumberIsZeroToOne) {
    for (const Bounds b : {Bounds{nan, 1}, Bounds{0, nan}, Bounds{nan, nan}}) {
        EXPECT_EQ(drawable(b).min, 0);
        EXPECT_EQ(drawable(b).max, 1);
    }
}

TEST(DrawableBounds, ReversedBoundsAreTurned) {
    EXPECT_EQ(drawable({5, 2}).min, 2);
    EXPECT_EQ(drawable({5, 2}).max, 5);
}

TEST(DrawableBounds, EqualBoundsGetRoomAroundTheirValue) {
    for (const double value : {0.0, 3.0, -7e8, 1e300, -1e-300}) {
        const Bounds b = drawable({value, value});
        EXPECT_LT(b.min, value);
        EXPECT_GT(b.max, value);
    }
}

TEST(DrawableBounds, InfiniteAndHugeOnesGiveAFiniteSpan) {
    for (const Bounds asked : {Bounds{-inf, inf}, Bounds{-huge, huge}, Bounds{0, inf},
                               Bounds{inf, inf}, Bounds{-inf, -inf}, Bounds{huge, huge}}) {
        const Bounds b = drawable(asked);
        EXPECT_TRUE(std::isfinite(b.max - b.min));
        EXPECT_GT(b.max - b.min, 0);
        EXPECT_LE(make_axis(b, {1000, 40, width_of, false}).ticks.size(), 26U);
    }
}

TEST(BoundsFinder, PassesOverWhatIsNoNumberOrInfinite) {
    LoomPDF::BoundsFinder finder;
    for (const double value : {nan, inf, -inf}) {
        finder.take(value);
    }
    EXPECT_FALSE(finder.found());
    for (const double value : {4.0, nan, -2.0, inf}) {
        finder.take(value);
    }
    EXPECT_EQ(finder.found()->min, -2);
    EXPECT_EQ(finder.found()->max, 4);
}

} // namespace
