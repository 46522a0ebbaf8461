#include "scanlib/wedge.hpp"

#include "scanlib/scanmech/optics.hpp"

using namespace optics;

namespace {

/// A wedge of glass about its axis, the laser a little off it.
void fill(wedge& w, std::mt19937& random) {
    std::uniform_real_distribution<double> real(0, 1);
    w.line_circle_count = 3600;
    w.laser_direction = random_direction(random);
    w.wedge_axis_direction = direction_near(-1.0 * w.laser_direction, 0.2, random);
    w.wedge_axis_origin = random_direction(random);
    // The laser stands ahead of the wedge.
    w.laser_origin = w.wedge_axis_origin - (0.3 + real(random)) * w.laser_direction +
                     0.02 * random_direction(random);
    w.facet1_direction = direction_near(w.wedge_axis_direction, 0.2, random);
    w.facet2_direction = direction_near(-1.0 * w.wedge_axis_direction, 0.2, random);
    w.dist = 0.05 + 0.02 * real(random);
    w.refraction_index = 1.3 + 0.4 * real(random);
    w.initialise();
}

ray through(const wedge& w, double angle) {
    const vector3 n1 = rotated_by(w.facet1_direction, w.wedge_axis_direction, angle);
    const vector3 n2 = rotated_by(w.facet2_direction, w.wedge_axis_direction, angle);
    ray light{w.laser_origin, w.laser_direction};
    light.refract(w.wedge_axis_origin, n1, 1, w.refraction_index);
    light.refract(w.wedge_axis_origin - w.dist * w.wedge_axis_direction, n2, w.refraction_index, 1);
    return light;
}

} // namespace

TEST(wedge, points_are_those_of_light_refracted_at_both_surfaces) {
    std::mt19937 random(81);
    std::uniform_real_distribution<double> angle(0, 6);
    for (int round = 0; round < 300; ++round) {
        bench<wedge> b;
        fill(b.mech, random);
        const double line = angle(random);
        b.mech.set_angles(0, line, 1.2);
        const ray light = through(b.mech, line);
        EXPECT_NEAR(length(b.direction), 1, 1e-13);
        expect_near(b.direction, light.direction, 1e-11);
        expect_points(b.mech, light, 1e-9);
    }
}

TEST(wedge, index_of_air_leaves_the_laser_alone) {
    std::mt19937 random(82);
    bench<wedge> b;
    fill(b.mech, random);
    b.mech.refraction_index = 1;
    b.mech.initialise();
    b.mech.set_angles(0, 2.2, 0);
    expect_near(b.direction, b.mech.laser_direction, 1e-14);
    expect_near(b.origin, b.mech.laser_origin, 1e-13);
}

TEST(wedge, frame_count_plays_no_part_and_the_facet_is_the_segment) {
    std::mt19937 random(83);
    bench<wedge> b;
    fill(b.mech, random);
    b.mech.set_counts(900, 0, 3);
    const vector3 direction = b.direction;
    EXPECT_DOUBLE_EQ(b.mech.line_angle, pi / 2);
    EXPECT_EQ(b.mech.facet, 3U);
    b.mech.set_counts(900, 12345, 3);
    EXPECT_EQ(b.direction, direction);
    EXPECT_EQ(b.mech.frame_angle, 0);
    EXPECT_EQ(b.mech.facet_count(), 0U);
}

TEST(wedge, total_reflection_inside_gives_nan) {
    bench<wedge> b;
    b.mech.wedge_axis_direction = {0, 0, -1};
    b.mech.facet1_direction = {0, 0, -1};
    b.mech.facet2_direction = {std::sin(1.0), 0, std::cos(1.0)}; // 57 degrees in glass
    b.mech.dist = 0.01;
    b.mech.refraction_index = 1.5;
    b.mech.initialise();
    b.mech.set_counts(0, 0, 0);
    EXPECT_TRUE(std::isnan(b.direction[0]));
    EXPECT_TRUE(std::isnan(b.origin[2]));
}

TEST(wedge, facet_beside_the_laser_does_not_fault) {
    bench<wedge> b;
    b.mech.facet1_direction = {1, 0, 0}; // the laser runs within the surface
    b.mech.initialise();
    b.mech.set_counts(0xFFFFFFFF, 0, 0);
    EXPECT_TRUE(std::isnan(b.origin[0]));
}
