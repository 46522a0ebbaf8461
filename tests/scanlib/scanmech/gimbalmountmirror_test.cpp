#include "scanlib/gimbalmountmirror.hpp"

#include "scanlib/scanmech/optics.hpp"

using namespace optics;

TEST(gimbalmountmirror, points_are_those_of_light_reflected_at_the_turned_mirror) {
    std::mt19937 random(91);
    std::uniform_real_distribution<double> angle(0, 6);
    for (int round = 0; round < 200; ++round) {
        bench<gimbalmountmirror> b;
        gimbalmountmirror& m = b.mech;
        const double line = angle(random);
        const double frame = angle(random);
        m.laser_origin = 0.2 * random_direction(random);
        m.laser_direction = random_direction(random);
        m.line_mirror_axis_origin = 0.1 * random_direction(random);
        m.line_mirror_axis_direction = random_direction(random);
        m.frame_mirror_axis_origin = 0.1 * random_direction(random);
        m.facet_direction = random_direction(random);
        m.dist = 0.01;
        const vector3 n = rotated_by(m.facet_direction, m.line_mirror_axis_direction, line);
        // The frame axis perpendicular to the normal, where the model is a rotation.
        m.frame_mirror_axis_direction = unit(cross(n, random_direction(random)));
        m.initialise();

        const vector3 point = m.line_mirror_axis_origin + m.dist * n - m.frame_mirror_axis_origin;
        const vector3& axis = m.frame_mirror_axis_direction;
        ray light{m.laser_origin, m.laser_direction};
        light.reflect(m.frame_mirror_axis_origin + rotated_by(point, axis, frame),
                      rotated_by(n, axis, frame));
        if (std::fabs(light.path) > 10) {
            continue;
        }
        m.set_angles(0, line, frame);
        expect_points(m, light, 1e-9);
        EXPECT_NEAR(length(b.direction), 1, 1e-13);
    }
}

TEST(gimbalmountmirror, normal_along_the_frame_axis_counts_with_the_sum_of_the_terms) {
    // The normal and the frame axis are both z: the turned normal is (2 cos b + 1) z.
    bench<gimbalmountmirror> b;
    b.mech.facet_direction = {0, 0, 1};
    b.mech.initialise();
    b.mech.set_angles(0, 0, 0);
    expect_near(b.direction, {0, 0, -17}, 1e-14); // 1 - 2 * 3 * 3
    b.mech.set_angles(0, 0, pi / 2);
    expect_near(b.direction, {0, 0, -1}, 1e-14);
    b.mech.set_angles(0, 0, pi);
    expect_near(b.direction, {0, 0, -1}, 1e-14); // the turned normal is -z
}

TEST(gimbalmountmirror, counts_give_both_angles_and_facet_0) {
    bench<gimbalmountmirror> b;
    b.mech.line_circle_count = 400;
    b.mech.frame_circle_count = 800;
    b.mech.initialise();
    b.mech.set_counts(100, 100, 7);
    EXPECT_DOUBLE_EQ(b.mech.line_angle, pi / 2);
    EXPECT_DOUBLE_EQ(b.mech.frame_angle, pi / 4);
    EXPECT_EQ(b.mech.facet, 0U);
    EXPECT_EQ(b.mech.facet_count(), 0U);
}
