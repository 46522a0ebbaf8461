#include "scanlib/mirrorwheel_deflection.hpp"

#include "scanlib/scanmech/optics.hpp"

#include <limits>

using namespace optics;

namespace {

void fill(mirrorwheel_deflection& m, std::size_t facets, std::mt19937& random) {
    fill_wheel(m, facets, random);
    m.deflection_mirror_origin = 0.3 * random_direction(random);
    m.deflection_mirror_direction = random_direction(random);
    m.initialise();
}

} // namespace

TEST(mirrorwheel_deflection, points_are_those_of_light_reflected_twice) {
    std::mt19937 random(21);
    std::uniform_real_distribution<double> angle(0, 6);
    for (int round = 0; round < 200; ++round) {
        bench<mirrorwheel_deflection> b;
        fill(b.mech, 3, random);
        const double line = angle(random);
        const double frame = angle(random);
        ray light = behind_wheel(b.mech, 2, line);
        light.reflect(b.mech.deflection_mirror_origin, b.mech.deflection_mirror_direction);
        if (std::fabs(light.path) > 10) {
            continue;
        }
        b.mech.set_angles(2, line, frame);
        expect_points(b.mech, turned_about_z_axis(light, frame), 1e-9);
        EXPECT_NEAR(length(b.direction), 1, 1e-13);
    }
}

TEST(mirrorwheel_deflection, line_angle_is_that_of_the_whole_turn) {
    std::mt19937 random(22);
    bench<mirrorwheel_deflection> b;
    fill(b.mech, 3, random);
    b.mech.line_angle_0 = 77;
    b.mech.set_counts(1800, 900, 5);
    EXPECT_DOUBLE_EQ(b.mech.line_angle, pi);
    EXPECT_DOUBLE_EQ(b.mech.frame_angle, pi / 4);
}

TEST(mirrorwheel_deflection, the_facet_is_the_one_that_faces_the_second_mirror) {
    // Facets at 0, 120 and 240 degrees about x, counted from y to z. The second mirror stands where
    // its normal points away from, so the facet that looks there is due; each is for a third of a
    // turn.
    for (const double place : {0.3, 1.7, 3.0, 4.4, 5.9}) {
        bench<mirrorwheel_deflection> b;
        b.mech.line_circle_count = 3600;
        b.mech.mirror_axis_direction = {1, 0, 0};
        b.mech.facets.assign(3, mirror_facet{{0, 0, 1}, 0.03});
        b.mech.deflection_mirror_direction = {0, -std::sin(place), -std::cos(place)};
        b.mech.initialise();
        for (std::uint32_t line = 0; line < 3600; line += 7) {
            b.mech.set_counts(line, 0, 0);
            // Facet f is due while the mirror's place, less the wheel's angle, lies within a sixth
            // of a turn of f thirds.
            double off = place - b.mech.line_angle - b.mech.facet * (2 * pi / 3);
            off -= 2 * pi * std::round(off / (2 * pi));
            EXPECT_LE(std::fabs(off), pi / 3 + 1e-9) << place << ' ' << line;
        }
    }
}

TEST(mirrorwheel_deflection, facet_agrees_with_the_remainder_for_all_counts) {
    bench<mirrorwheel_deflection> b;
    b.mech.line_circle_count = 3600;
    b.mech.facets.assign(4, mirror_facet{});
    b.mech.deflection_mirror_direction = {0, 0.6, -0.8};
    b.mech.initialise();
    const double phase = std::atan2(-0.6, 0.8) + pi / 4 + 4 * pi;
    for (std::uint32_t line = 0; line < 20000; ++line) {
        b.mech.set_counts(line, 0, 0);
        const double x = std::fmod(phase - b.mech.line_angle, 2 * pi) * (4 / (2 * pi));
        EXPECT_EQ(b.mech.facet, x < 0 ? 0 : static_cast<std::uint32_t>(x)) << line;
    }
}

TEST(mirrorwheel_deflection, counts_far_beyond_the_circle_take_the_first_facet) {
    std::mt19937 random(23);
    bench<mirrorwheel_deflection> b;
    fill(b.mech, 3, random);
    b.mech.set_counts(0xFFFFFFFF, 0xFFFFFFFF, 0);
    EXPECT_EQ(b.mech.facet, 0U); // the remainder is negative
    EXPECT_NEAR(length(b.direction), 1, 1e-13);
}

TEST(mirrorwheel_deflection, mirror_without_direction_does_not_fault) {
    std::mt19937 random(24);
    bench<mirrorwheel_deflection> b;
    fill(b.mech, 3, random);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    b.mech.deflection_mirror_direction = {nan, nan, nan};
    b.mech.initialise();
    b.mech.set_counts(100, 0, 0);
    EXPECT_EQ(b.mech.facet, 0U);
    EXPECT_TRUE(std::isnan(b.direction[0]));
}

TEST(mirrorwheel_deflection, is_made_from_a_wheel) {
    std::mt19937 random(25);
    bench<mirrorwheel> plain;
    fill_wheel(plain.mech, 5, random);
    mirrorwheel_deflection m(plain.mech);
    m.initialise();
    EXPECT_EQ(m.facet_count(), 5U);
    m.set_counts(3, 4, 0);
    EXPECT_NEAR(length(plain.direction), 1, 1e-13);
}
