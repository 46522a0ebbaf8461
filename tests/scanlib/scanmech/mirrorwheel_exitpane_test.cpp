#include "scanlib/mirrorwheel_exitpane.hpp"

#include "scanlib/scanmech/optics.hpp"

using namespace optics;

namespace {

/// The beam of the wheel through a plate that stands a metre away.
ray through_pane(ray light, const mirrorwheel_exitpane& m) {
    const vector3& e = m.exit_pane_direction;
    const vector3 entry = light.at + light.direction;
    light.refract(entry, e, 1, m.exit_pane_index);
    light.refract(entry + m.exit_pane_thickness * e, e, m.exit_pane_index, 1);
    return light;
}

} // namespace

TEST(mirrorwheel_exitpane, points_are_those_of_light_refracted_at_both_surfaces) {
    std::mt19937 random(11);
    std::uniform_real_distribution<double> real(0, 1);
    for (int round = 0; round < 200; ++round) {
        bench<mirrorwheel_exitpane> b;
        fill_wheel(b.mech, 3, random);
        const double line = 6 * real(random);
        const double frame = 6 * real(random);
        const ray bare = behind_wheel(b.mech, 1, line);
        if (std::fabs(bare.path) > 10) {
            continue; // the laser grazes the mirror
        }
        b.mech.exit_pane_direction = direction_near(bare.direction, 1.2, random);
        b.mech.exit_pane_thickness = 0.02 * real(random);
        b.mech.exit_pane_index = 1 + real(random);
        b.mech.initialise();
        b.mech.set_angles(1, line, frame);
        const ray light = turned_about_z_axis(through_pane(bare, b.mech), frame);
        expect_near(b.direction, light.direction, 1e-11);
        expect_points(b.mech, light, 1e-9);
    }
}

TEST(mirrorwheel_exitpane, leaves_the_direction_to_the_wheel) {
    std::mt19937 random(12);
    bench<mirrorwheel> plain;
    fill_wheel(plain.mech, 3, random);
    plain.mech.initialise();
    plain.mech.set_counts(1234, 567, 0);
    const vector3 direction = plain.direction;
    mirrorwheel_exitpane paned(plain.mech);
    paned.exit_pane_thickness = 0.01;
    paned.exit_pane_index = 1.5;
    paned.initialise();
    paned.set_counts(1234, 567, 0);
    EXPECT_EQ(plain.direction, direction);
}

TEST(mirrorwheel_exitpane, index_of_air_changes_nothing) {
    std::mt19937 random(13);
    bench<mirrorwheel_exitpane> b;
    fill_wheel(b.mech, 3, random);
    b.mech.exit_pane_thickness = 0.01;
    b.mech.exit_pane_direction = direction_near(behind_wheel(b.mech, 0, 0.4).direction, 1, random);
    b.mech.exit_pane_index = 1;
    b.mech.initialise();
    b.mech.set_angles(0, 0.4, 0);
    expect_points(b.mech, behind_wheel(b.mech, 0, 0.4), 1e-12);
}

TEST(mirrorwheel_exitpane, no_refracted_ray_gives_nan) {
    std::mt19937 random(14);
    bench<mirrorwheel_exitpane> b;
    fill_wheel(b.mech, 1, random);
    const vector3 beam = behind_wheel(b.mech, 0, 0.4).direction;
    b.mech.exit_pane_direction = unit(cross(beam, {0.3, 0.2, 0.1}));
    b.mech.exit_pane_thickness = 0.01;
    b.mech.exit_pane_index = 0.5;
    b.mech.initialise();
    b.mech.set_angles(0, 0.4, 0);
    EXPECT_TRUE(std::isnan(b.origin[0]));
    EXPECT_NEAR(length(b.direction), 1, 1e-14);
}
