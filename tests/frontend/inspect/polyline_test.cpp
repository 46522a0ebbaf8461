#include "polyline.hpp"

#include <algorithm>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using LoomPDF::Point;
using LoomPDF::Polyline;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();
constexpr LoomPDF::Box box{0, 0, 100, 50};

Polyline line_of(const std::vector<Point>& points) {
    Polyline line(box);
    for (const Point& p : points) {
        line.to(p);
    }
    line.end();
    return line;
}

/// Places of the pen, runs apart from each other.
std::vector<std::vector<Point>> runs_of(const Polyline& line) {
    std::vector<std::vector<Point>> runs;
    for (const auto& move : line.moves()) {
        if (!move.draws) {
            runs.emplace_back();
        }
        runs.back().push_back(move.to);
    }
    return runs;
}

TEST(Polyline, LineInsideIsKeptPointForPoint) {
    const std::vector<Point> points{{0, 10}, {1, 50}, {2, 0}, {100, 30}};
    EXPECT_THAT(runs_of(line_of(points)), ElementsAre(points));
}

TEST(Polyline, LineEndsWhereItLeavesTheBoxAndGoesOnWhereItEnters) {
    EXPECT_THAT(runs_of(line_of({{10, 25}, {20, -25}, {30, 25}})),
                ElementsAre(ElementsAre(Point{10, 25}, Point{15, 0}),
                            ElementsAre(Point{25, 0}, Point{30, 25})));
}

TEST(Polyline, SegmentThroughTheWholeBoxIsCutOnBothSides) {
    EXPECT_THAT(runs_of(line_of({{50, -50}, {50.5, 100}})), testing::SizeIs(1));
    EXPECT_THAT(runs_of(line_of({{-100, 10}, {300, 10}})),
                ElementsAre(ElementsAre(Point{0, 10}, Point{100, 10})));
}

TEST(Polyline, WhatLiesOutsideIsLeftOut) {
    EXPECT_THAT(runs_of(line_of({{-5, -5}, {50, -1}, {105, -5}, {105, 60}})), IsEmpty());
}

TEST(Polyline, ValuesThatAreNoNumberOrInfiniteMakeGaps) {
    for (const double bad : {nan, inf, -inf}) {
        EXPECT_THAT(runs_of(line_of({{1, 1}, {2, 2}, {3, bad}, {4, 4}, {5, 5}})),
                    ElementsAre(ElementsAre(Point{1, 1}, Point{2, 2}),
                                ElementsAre(Point{4, 4}, Point{5, 5})));
        EXPECT_THAT(runs_of(line_of({{1, 1}, {2, 2}, {bad, 3}})),
                    ElementsAre(ElementsAre(Point{1, 1}, Point{2, 2})));
    }
}

TEST(Polyline, PointsWithoutNeighboursAreTold) {
    const Polyline line = line_of({{1, 1}, {2, nan}, {3, 3}, {4, nan}, {5, 60}});
    EXPECT_THAT(line.moves(), IsEmpty());
    EXPECT_THAT(line.lonely(), ElementsAre(Point{1, 1}, Point{3, 3}));
}

TEST(Polyline, HugeCoordinatesAreDrawnAsFarAsTheyCanBe) {
    const auto runs = runs_of(line_of({{10, 25}, {20, 1e300}, {30, 25}, {40, -1e300}}));
    ASSERT_EQ(runs.size(), 2U);
    for (const auto& run : runs) {
        for (const Point& p : run) {
            EXPECT_TRUE(p.x >= 0 && p.x <= 100 && p.y >= 0 && p.y <= 50) << p.x << " " << p.y;
        }
    }
}

TEST(Polyline, MillionsOfPointsCostABoundedNumberAndKeepEveryPeak) {
    constexpr std::size_t count = 3000000;
    Polyline line(box);
    for (std::size_t i = 0; i < count; ++i) {
        const double y = i == 1234567 ? 50 : i == 2345678 ? 0 : 20 + static_cast<double>(i % 10);
        line.to({static_cast<double>(i) * 100 / count, y});
    }
    line.end();
    EXPECT_LE(line.moves().size(), 4U * 16 * 101);
    const auto has_height = [&](double y) {
        return std::any_of(line.moves().begin(), line.moves().end(),
                           [&](const auto& m) { return m.to.y == y; });
    };
    EXPECT_TRUE(has_height(50));
    EXPECT_TRUE(has_height(0));
    EXPECT_EQ(line.moves().front().to, (Point{0, 20}));
    EXPECT_EQ(line.moves().back().to, (Point{(count - 1) * 100.0 / count, 29}));
}

TEST(Polyline, NoPointsAreNoLine) {
    EXPECT_THAT(line_of({}).moves(), IsEmpty());
    EXPECT_THAT(line_of({}).lonely(), IsEmpty());
}

} // namespace
