#include "simulator/scene.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>

namespace simulator {
namespace {

/// A direction anywhere, a little more often towards the horizon, where most of the scene is.
vector3 some_direction(random_source& random) {
    const double azimuth = random.between(0, 2 * std::numbers::pi);
    const double elevation = random.between(-1.2, 0.7);
    return {std::cos(elevation) * std::cos(azimuth), std::cos(elevation) * std::sin(azimuth),
            std::sin(elevation)};
}

vector3 some_origin(random_source& random) {
    return {random.between(-0.2, 0.2), random.between(-0.2, 0.2), random.between(-0.2, 0.2)};
}

TEST(Scene, EachHitLiesOnASurface) {
    for (const std::uint64_t seed : {1U, 2U, 3U}) {
        const scene s(seed);
        random_source random(seed);
        hit_list hits;
        std::size_t count = 0;
        for (int i = 0; i < 20000; ++i) {
            const vector3 origin = some_origin(random);
            const vector3 direction = some_direction(random);
            s.cast(origin, direction, 300, random, hits);
            for (const surface_hit& hit : hits) {
                ASSERT_LT(s.distance(origin + hit.range * direction), 1e-6)
                    << "seed " << seed << " range " << hit.range;
                ++count;
            }
        }
        EXPECT_GT(count, 8000U);
    }
}

TEST(Scene, HitsOfABeamComeInOrderAndWithinRange) {
    const scene s(1);
    random_source random(9);
    hit_list hits;
    std::size_t several = 0;
    for (int i = 0; i < 20000; ++i) {
        s.cast(some_origin(random), some_direction(random), 120, random, hits);
        double before = 0;
        for (const surface_hit& hit : hits) {
            ASSERT_GT(hit.range, before);
            ASSERT_LE(hit.range, 120);
            ASSERT_GE(hit.incidence, 0);
            ASSERT_LE(hit.incidence, 1);
            before = hit.range;
        }
        several += hits.size() > 1 ? 1 : 0;
    }
    EXPECT_GT(several, 100U);
}

TEST(Scene, HoldsEveryMaterial) {
    const scene s(1);
    random_source random(4);
    hit_list hits;
    std::array<std::size_t, 6> seen{};
    for (int i = 0; i < 200000; ++i) {
        s.cast({0, 0, 0}, some_direction(random), 300, random, hits);
        for (const surface_hit& hit : hits) {
            ++seen[static_cast<std::size_t>(hit.made_of)];
        }
    }
    EXPECT_GT(seen[static_cast<std::size_t>(material::soil)], 0U);
    EXPECT_GT(seen[static_cast<std::size_t>(material::wall)], 0U);
    EXPECT_GT(seen[static_cast<std::size_t>(material::bark)], 0U);
    EXPECT_GT(seen[static_cast<std::size_t>(material::leaf)], 0U);
    EXPECT_GT(seen[static_cast<std::size_t>(material::water)], 0U);
}

TEST(Scene, FollowsFromItsSeed) {
    const scene a(5);
    const scene b(5);
    const scene c(6);
    bool differs = false;
    random_source random(1);
    for (int i = 0; i < 1000; ++i) {
        const vector3 p{random.between(-100, 100), random.between(-100, 100),
                        random.between(-5, 10)};
        ASSERT_EQ(a.distance(p), b.distance(p));
        differs = differs || a.distance(p) != c.distance(p);
    }
    EXPECT_TRUE(differs);
}

TEST(Scene, APointInTheOpenIsFarFromEverySurface) {
    const scene s(1);
    EXPECT_GT(s.distance({0, 0, 0}), 1.0);
    EXPECT_GT(s.distance({0, 0, 300}), 100.0);
}

TEST(Terrain, FirstHitIsWhereAWalkAlongTheRayGoesUnderground) {
    random_source seed(8);
    const terrain ground(seed);
    random_source random(2);
    vector3 normal{};
    for (int i = 0; i < 500; ++i) {
        const vector3 direction = some_direction(random);
        const double hit = ground.first_hit({0, 0, 0}, direction, 300, normal);
        const double last = std::min(hit, 300.0) - 1e-6;
        for (double t = 0; t < last; t += 0.25) {
            ASSERT_GT(t * direction[2], ground.height(t * direction[0], t * direction[1]) - 1e-9);
        }
        if (hit < 300) {
            EXPECT_NEAR(dot(normal, normal), 1, 1e-12);
            EXPECT_GT(normal[2], 0);
        }
    }
}

TEST(Terrain, LiesAtTheStatedHeightUnderTheScanner) {
    random_source seed(3);
    const terrain ground(seed);
    EXPECT_NEAR(ground.height(0, 0), terrain::height_at_origin, 1e-9);
}

TEST(Building, IsHitOnTheNearSide) {
    const building b{{10, 0, 0}, {2, 3, 4}};
    vector3 normal{};
    EXPECT_DOUBLE_EQ(b.first_hit({0, 0, 0}, {1, 0, 0}, normal), 8);
    EXPECT_EQ(normal, (vector3{-1, 0, 0}));
    EXPECT_EQ(b.first_hit({0, 3.5, 0}, {1, 0, 0}, normal), beyond_everything);
    EXPECT_EQ(b.first_hit({0, 0, 0}, {-1, 0, 0}, normal), beyond_everything);
    EXPECT_DOUBLE_EQ(b.distance({10, 0, 6}), 2);
    EXPECT_DOUBLE_EQ(b.distance({10, 2.5, 0}), 0.5);
}

TEST(Tree, ABeamThroughTheMiddleCrossesEachLayerTwiceAndTheTrunkOnce) {
    const tree t{{10, 0, 0}, 2, 3, 0.2, -5};
    double entry = 0;
    double exit = 0;
    for (const double layer : tree::layers) {
        ASSERT_TRUE(t.crossings({0, 0, 0}, {1, 0, 0}, layer, entry, exit));
        EXPECT_NEAR(entry, 10 - 2 * layer, 1e-12);
        EXPECT_NEAR(exit, 10 + 2 * layer, 1e-12);
        EXPECT_NEAR(t.distance({entry, 0, 0}), 0, 1e-12);
    }
    EXPECT_FALSE(t.crossings({0, 0, 4}, {1, 0, 0}, 1.0, entry, exit));
    vector3 normal{};
    EXPECT_NEAR(t.trunk_hit({0, 0, -2}, {1, 0, 0}, normal), 9.8, 1e-12);
    EXPECT_EQ(t.trunk_hit({0, 0, -6}, {1, 0, 0}, normal), beyond_everything);
}

TEST(Scene, RefractedBeamsReachTheGroundBelowTheWaterAtTheToldDepth) {
    const scene s(1);
    random_source random(1);
    hit_list hits;
    int seen = 0;
    for (int n = 0; n < 200000; ++n) {
        const double azimuth = random.between(0, 6.2831853);
        const double down = random.between(0.02, 0.1);
        const double along = std::sqrt(1 - down * down);
        const vector3 direction{along * std::cos(azimuth), along * std::sin(azimuth), -down};
        s.cast({0, 0, 0}, direction, 300, random, hits);
        for (const surface_hit& hit : hits) {
            if (hit.made_of != material::water) {
                EXPECT_EQ(hit.depth, 0);
                continue;
            }
            ++seen;
            // Snell's law, by angles from the vertical.
            const double below = std::asin(along / 1.33);
            const vector3 refracted{std::sin(below) * std::cos(azimuth),
                                    std::sin(below) * std::sin(azimuth), -std::cos(below)};
            const vector3 bottom = hit.range * direction + (hit.depth / 1.33) * refracted;
            ASSERT_GT(hit.depth, 0);
            ASSERT_LT(s.distance(bottom), 0.01);
        }
    }
    EXPECT_GT(seen, 100);
}

} // namespace
} // namespace simulator
