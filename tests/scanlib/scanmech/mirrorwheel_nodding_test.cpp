#include "scanlib/mirrorwheel_nodding.hpp"

#include "scanlib/scanmech/optics.hpp"

using namespace optics;

TEST(mirrorwheel_nodding, points_are_those_of_light_reflected_at_wheel_and_nodding_mirror) {
    std::mt19937 random(41);
    std::uniform_real_distribution<double> angle(0, 6);
    for (int round = 0; round < 200; ++round) {
        bench<mirrorwheel_nodding> b;
        fill_wheel(b.mech, 3, random);
        b.mech.nodding_axis_origin = 0.2 * random_direction(random);
        b.mech.nodding_axis_direction = random_direction(random);
        b.mech.nodding_facet = {random_direction(random), 0.02};
        b.mech.initialise();
        const double line = angle(random);
        const double frame = angle(random);
        const vector3 g =
            rotated_by(b.mech.nodding_facet.normal, b.mech.nodding_axis_direction, frame);
        ray light = behind_wheel(b.mech, 1, line);
        light.reflect(b.mech.nodding_axis_origin + 0.02 * g, g);
        if (std::fabs(light.path) > 10) {
            continue;
        }
        b.mech.set_angles(1, line, frame);
        expect_points(b.mech, light, 1e-9);
        EXPECT_NEAR(length(b.direction), 1, 1e-13);
    }
}

TEST(mirrorwheel_nodding, counts_choose_facet_and_angle_as_in_the_plain_wheel) {
    std::mt19937 random(42);
    bench<mirrorwheel> plain;
    fill_wheel(plain.mech, 3, random);
    plain.mech.line_angle_0 = 11;
    plain.mech.initialise();
    mirrorwheel_nodding nodding(plain.mech);
    nodding.initialise();
    for (const std::uint32_t line : {0U, 1199U, 1200U, 3599U, 3600U, 0xFFFFFFF0U}) {
        plain.mech.set_counts(line, 5, 0);
        nodding.set_counts(line, 5, 0);
        EXPECT_EQ(nodding.facet, plain.mech.facet);
        EXPECT_EQ(nodding.line_angle, plain.mech.line_angle);
        EXPECT_EQ(nodding.frame_angle, plain.mech.frame_angle);
    }
}
