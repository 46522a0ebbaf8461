#include "scanlib/mirrorwheel_fanbeam.hpp"

#include "scanlib/scanmech/optics.hpp"

using namespace optics;

namespace {

/// A fan of three columns and two rows.
struct fan : bench<mirrorwheel_fanbeam> {
    vector3 base;

    fan() {
        std::mt19937 random(71);
        fill_wheel(mech, 3, random);
        base = mech.laser_direction;
        mech.num_angles_0 = 3;
        mech.num_angles_1 = 2;
        mech.rotation_axis_0 = random_direction(random);
        mech.rotation_axis_1 = random_direction(random);
        for (int j = 0; j < 2; ++j) {
            for (int i = 0; i < 3; ++i) {
                mech.rotation_angles.push_back({0.01 * (i + 1), -0.03 * (j + 1)});
            }
        }
        mech.initialise();
        mech.set_counts(700, 900, 0);
    }

    /// The beam of a laser by following its light.
    ray light(const vector3& laser) const {
        mirrorwheel m(mech);
        m.laser_direction = laser;
        return turned_about_z_axis(behind_wheel(m, mech.facet, mech.line_angle), mech.frame_angle);
    }

    vector3 laser(std::uint32_t i, std::uint32_t j) const {
        const vector3 first = rotated_by(base, mech.rotation_axis_0, 0.01 * (i + 1));
        return rotated_by(first, mech.rotation_axis_1, -0.03 * (j + 1));
    }
};

} // namespace

TEST(mirrorwheel_fanbeam, shots_have_the_base_beam) {
    const fan f;
    expect_points(f.mech, f.light(f.base), 1e-11);
}

TEST(mirrorwheel_fanbeam, selected_beams_are_rotated_about_the_first_axis_and_then_the_second) {
    fan f;
    for (std::uint32_t j = 0; j < 2; ++j) {
        for (std::uint32_t i = 0; i < 3; ++i) {
            f.mech.select_beam(i, j);
            expect_near(f.mech.laser_direction, f.laser(i, j), 1e-14);
            expect_points(f.mech, f.light(f.laser(i, j)), 1e-11);
        }
    }
}

TEST(mirrorwheel_fanbeam, the_next_shot_has_the_base_beam_again) {
    fan f;
    f.mech.select_beam(1, 1);
    f.mech.set_counts(800, 900, 0);
    EXPECT_EQ(f.mech.laser_direction, f.base);
    expect_points(f.mech, f.light(f.base), 1e-11);
}

TEST(mirrorwheel_fanbeam, beams_beyond_the_grid_are_the_last) {
    fan f;
    f.mech.select_beam(2, 1);
    const vector3 last = f.direction;
    f.mech.num_angles_0 = 0xFFFFFFFF;
    f.mech.select_beam(0xFFFFFFFF, 0xFFFFFFFF);
    EXPECT_EQ(f.direction, last);
}

TEST(mirrorwheel_fanbeam, without_angles_there_is_the_base_beam_only) {
    fan f;
    f.mech.rotation_angles.clear();
    f.mech.initialise();
    f.mech.set_counts(700, 900, 0);
    const vector3 beam = f.direction;
    f.mech.select_beam(1, 1);
    EXPECT_EQ(f.direction, beam);
}

TEST(mirrorwheel_fanbeam, json_tells_the_base_direction_while_a_beam_is_selected) {
    fan f;
    const std::string before = json_of(f.mech);
    f.mech.select_beam(1, 1);
    EXPECT_EQ(json_of(f.mech), before);
}

TEST(mirrorwheel_fanbeam, reading_members_while_a_beam_is_selected_keeps_the_base_direction) {
    fan f;
    f.mech.select_beam(1, 1);
    f.mech.read_members(tree_of("{\"num_angles_1\":2}"));
    f.mech.initialise();
    EXPECT_EQ(f.mech.laser_direction, f.base);
}
