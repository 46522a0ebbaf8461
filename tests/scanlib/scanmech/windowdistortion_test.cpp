#include "scanlib/mirrorwheel_deflection_windowdistortion.hpp"
#include "scanlib/mirrorwheel_windowdistortion.hpp"

#include "scanlib/scanmech/optics.hpp"

#include <limits>

using namespace optics;

namespace {

/// Both models with a window; `beam` is the beam ahead of it.
template<class Model>
class windowdistortion : public testing::Test {
  protected:
    windowdistortion() {
        std::mt19937 random(51);
        fill_wheel(b.mech, 3, random);
        if constexpr (requires { b.mech.deflection_mirror_origin; }) {
            b.mech.deflection_mirror_direction = random_direction(random);
        }
        b.mech.initialise(); // a window without nodes
        aim();
        beam = b.direction;
        s = unit(beam + 0.5 * random_direction(random));
        t = unit(cross(s, random_direction(random)));
        b.mech.s_axis = s;
        b.mech.t_axis = t;
        b.mech.angle_sin_inc = 0.01;
        b.mech.nodes = {{0.001, 0.02}, {0.003, -0.01}, {-0.02, 0.03}, {0.01, 0.01}};
    }

    void aim() { b.mech.set_angles(1, 0.7, 0.9); }

    /// The bent beam, the window being so that the beam enters it at a place, counted in nodes.
    vector3 bent_at(double place) {
        b.mech.angle_sin_min = dot(beam, s) - place * b.mech.angle_sin_inc;
        b.mech.initialise();
        aim();
        return b.direction;
    }

    bench<Model> b;
    vector3 beam;
    vector3 s;
    vector3 t;
};

using models =
    testing::Types<mirrorwheel_windowdistortion, mirrorwheel_deflection_windowdistortion>;
TYPED_TEST_SUITE(windowdistortion, models);

} // namespace

TYPED_TEST(windowdistortion, new_object_has_the_described_window) {
    bench<TypeParam> fresh;
    EXPECT_EQ(fresh.mech.t_axis, (vector3{0, 1, 0}));
    EXPECT_EQ(fresh.mech.s_axis, (vector3{0, 0, 1}));
    EXPECT_EQ(fresh.mech.angle_sin_min, -0.5);
    EXPECT_EQ(fresh.mech.angle_sin_inc, 0.25);
    EXPECT_TRUE(fresh.mech.nodes.empty());
}

TYPED_TEST(windowdistortion, at_a_node_the_beam_turns_about_the_t_axis_and_then_about_the_s_axis) {
    for (std::size_t i = 1; i < 3; ++i) {
        const auto& node = this->b.mech.nodes[i];
        const vector3 expected = rotated_by(rotated_by(this->beam, this->t, node.t_rot_angle),
                                            this->s, node.s_rot_angle);
        expect_near(this->bent_at(static_cast<double>(i)), expected, 1e-13);
    }
}

TYPED_TEST(windowdistortion, half_way_between_two_nodes_the_beam_turns_by_the_mean) {
    this->b.mech.nodes = {{0, 0.01}, {0, 0.05}};
    expect_near(this->bent_at(0.5), rotated_by(this->beam, this->t, 0.03), 1e-14);
}

TYPED_TEST(windowdistortion, everywhere_in_the_window_the_beam_has_unit_length) {
    for (double place = 0.01; place < 3; place += 0.01) {
        EXPECT_NEAR(length(this->bent_at(place)), 1, 1e-14);
    }
}

TYPED_TEST(windowdistortion, below_the_first_node_the_direction_stays) {
    for (const double place : {-0.001, -0.5, -1.0, -7.0}) {
        EXPECT_EQ(this->bent_at(place), this->beam) << place;
    }
}

TYPED_TEST(windowdistortion, from_the_last_node_on_the_direction_stays) {
    EXPECT_NE(this->bent_at(2.999), this->beam);
    for (const double place : {3.0001, 4.0, 1e12}) {
        EXPECT_EQ(this->bent_at(place), this->beam) << place;
    }
}

TYPED_TEST(windowdistortion, less_than_two_nodes_leave_the_direction) {
    this->b.mech.nodes.resize(1);
    EXPECT_EQ(this->bent_at(0.5), this->beam);
    this->b.mech.nodes.clear();
    EXPECT_EQ(this->bent_at(0.5), this->beam);
}

TYPED_TEST(windowdistortion, spacing_that_is_no_spacing_leaves_the_direction) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double spacing : {0.0, nan, 5e-324, std::numeric_limits<double>::infinity()}) {
        this->b.mech.angle_sin_min = -2;
        this->b.mech.angle_sin_inc = spacing;
        this->b.mech.nodes.assign(2, {0, 0});
        this->b.mech.initialise();
        this->aim();
        expect_near(this->b.direction, this->beam, 1e-15);
    }
    this->b.mech.angle_sin_min = nan;
    this->b.mech.initialise();
    this->aim();
    EXPECT_EQ(this->b.direction, this->beam);
}

TYPED_TEST(windowdistortion, the_window_stands_behind_the_frame_rotation) {
    // The lookup takes the final beam: turning the frame moves it through the window.
    this->b.mech.s_axis = {1, 0, 0};
    this->b.mech.t_axis = {0, 0, 1};
    this->b.mech.angle_sin_min = 0;
    this->b.mech.angle_sin_inc = 2;
    this->b.mech.nodes.assign(2, {0, 0.1});
    this->b.mech.initialise();
    for (double frame = 0; frame < 6; frame += 0.1) {
        this->b.mech.nodes.assign(2, {0, 0});
        this->b.mech.initialise();
        this->b.mech.set_angles(0, 0.3, frame);
        const vector3 straight = this->b.direction;
        this->b.mech.nodes.assign(2, {0, 0.1});
        this->b.mech.initialise();
        this->b.mech.set_angles(0, 0.3, frame);
        const vector3 expected = straight[0] > 0 ? rotated_by(straight, {0, 0, 1}, 0.1) : straight;
        expect_near(this->b.direction, expected, 1e-14);
    }
}
