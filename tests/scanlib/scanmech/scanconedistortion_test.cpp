#include "scanlib/mirrorwheel_facetsurfacedistortion.hpp"
#include "scanlib/wedge_scanconedistortion.hpp"

#include "scanlib/scanmech/optics.hpp"

#include <limits>

using namespace optics;

namespace {

constexpr double entry_angle = 2 * pi / 1024;

/// What a table over the turn does to a beam, by matrices.
vector3 bent(const vector3& beam, const vector3& axis, const vector3& beam_0, double angle,
             double s, double t) {
    const vector3 t_axis = unit(cross(axis, beam_0));
    const vector3 s_axis = cross(beam_0, t_axis);
    return rotated_by(rotated_by(beam, rotated_by(t_axis, axis, angle), t),
                      rotated_by(s_axis, axis, angle), s);
}

template<class Model>
vector3& axis_of(Model& mech) {
    if constexpr (requires { mech.cone_axis_direction; }) {
        return mech.cone_axis_direction;
    } else {
        return mech.rotation_axis_for_s_t_axes;
    }
}

/// The wheels with a table over the turn.
template<class Model>
struct distorted : bench<Model> {
    std::mt19937 random{61};
    vector3 axis = random_direction(random);
    vector3 beam_0 = random_direction(random);

    explicit distorted(std::size_t facets) {
        fill_wheel(this->mech, facets, random);
        axis_of(this->mech) = axis;
        this->mech.beam_direction_0 = beam_0;
        this->mech.nodes.assign(16, {0.01, -0.02});
        this->mech.initialise();
    }

    /// The plain wheel's beam.
    vector3 straight(double line) { return behind_wheel(this->mech, 0, line).direction; }
};

template<class Model>
class turn_distortion : public testing::Test {};
using wheels = testing::Types<mirrorwheel_scanconedistortion, mirrorwheel_facetsurfacedistortion,
                              mirrorwheel_facetsurfacedistortion_D>;
TYPED_TEST_SUITE(turn_distortion, wheels);

/// The direction after `set_angles` with two or more places of the table around.
template<class Bench>
vector3 aimed(Bench& b, double line) {
    b.mech.set_angles(0, line, 0);
    return b.direction;
}

} // namespace

TYPED_TEST(turn_distortion, equal_nodes_turn_the_beam_about_axes_that_turn_along) {
    distorted<TypeParam> m(1);
    for (int k = 0; k < 1024; k += 31) {
        const double line = k * entry_angle;
        expect_near(aimed(m, line), bent(m.straight(line), m.axis, m.beam_0, line, 0.01, -0.02),
                    1e-12);
    }
}

TYPED_TEST(turn_distortion, between_two_entries_the_rotation_is_interpolated) {
    distorted<TypeParam> m(1);
    for (const double line : {0.3 * entry_angle, 77.7 * entry_angle, 1023.5 * entry_angle}) {
        // The axes move by a 1024th of a turn from entry to entry.
        expect_near(aimed(m, line), bent(m.straight(line), m.axis, m.beam_0, line, 0.01, -0.02),
                    1e-6);
        EXPECT_NEAR(length(m.direction), 1, 1e-13);
    }
}

TYPED_TEST(turn_distortion, nodes_stand_at_their_part_of_the_turn) {
    // Nodes in an arithmetic progression: a spline goes through them there.
    distorted<TypeParam> m(1);
    for (int i = 0; i < 16; ++i) {
        m.mech.nodes[static_cast<std::size_t>(i)] = {0.001 * i, -0.002 * i};
    }
    m.mech.initialise();
    for (int node = 2; node < 13; ++node) {
        const double line = node * (2 * pi / 16);
        expect_near(aimed(m, line),
                    bent(m.straight(line), m.axis, m.beam_0, line, 0.001 * node, -0.002 * node),
                    1e-12);
    }
}

TYPED_TEST(turn_distortion, fewer_than_four_nodes_fail_and_four_do) {
    distorted<TypeParam> m(1);
    m.mech.nodes.resize(3);
    const std::string text = m.mech.kind() == kind_mirrorwheel_scanconedistortion
                                 ? "scanconedistortion table too small"
                                 : "facetsurfacedistortion table too small";
    try {
        m.mech.initialise();
        ADD_FAILURE();
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(e.what(), text);
    }
    m.mech.nodes.resize(4);
    EXPECT_NO_THROW(m.mech.initialise());
}

TYPED_TEST(turn_distortion, negative_angles_up_to_one_entry_continue_the_first_interval) {
    distorted<TypeParam> m(1);
    for (const double u : {-0.25, -0.999}) {
        const double line = u * entry_angle;
        expect_near(aimed(m, line), bent(m.straight(line), m.axis, m.beam_0, line, 0.01, -0.02),
                    1e-5);
        EXPECT_GT(length(m.direction - m.straight(line)), 1e-3);
    }
    for (const double u : {-1.001, -2.0, -512.0}) {
        expect_near(aimed(m, u * entry_angle), m.straight(u * entry_angle), 1e-13);
    }
}

TYPED_TEST(turn_distortion, angles_beyond_the_table_leave_the_beam) {
    distorted<TypeParam> m(1);
    for (const double u : {1024.0001, 5000.0, 1e6}) {
        expect_near(aimed(m, u * entry_angle), m.straight(u * entry_angle), 1e-11);
    }
    m.mech.set_angles(0, 1e300, 0);
    EXPECT_NEAR(length(m.direction), 1, 1e-13);
    for (const double odd :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
        m.mech.set_angles(0, odd, 0);
        EXPECT_TRUE(std::isnan(m.direction[0]));
    }
}

TYPED_TEST(turn_distortion, with_several_facets_set_angles_leaves_the_beam) {
    distorted<TypeParam> m(3);
    expect_near(aimed(m, 0.4), m.straight(0.4), 1e-13);
}

TYPED_TEST(turn_distortion, with_several_facets_set_counts_enters_with_the_whole_turn) {
    distorted<TypeParam> m(3);
    m.mech.line_circle_count = 3072; // three counts an entry
    m.mech.initialise();
    m.mech.set_counts(1500, 0, 0); // facet 1, 476 counts into it
    const double whole = 500 * entry_angle;
    EXPECT_DOUBLE_EQ(m.mech.line_angle, whole);
    const vector3 straight = behind_wheel(m.mech, 1, (1500 - 1024) * (2 * pi / 3072)).direction;
    expect_near(m.direction, bent(straight, m.axis, m.beam_0, whole, 0.01, -0.02), 1e-12);
}

TYPED_TEST(turn_distortion, with_one_facet_set_counts_keeps_the_angle_in_the_facet) {
    distorted<TypeParam> m(1);
    m.mech.line_angle_0 = 100;
    m.mech.initialise();
    m.mech.set_counts(700, 0, 0);
    EXPECT_DOUBLE_EQ(m.mech.line_angle, 600 * (2 * pi / 3600));
}

TYPED_TEST(turn_distortion, is_made_from_a_wheel_and_writes_to_its_beam) {
    std::mt19937 random(62);
    bench<mirrorwheel> plain;
    fill_wheel(plain.mech, 5, random);
    TypeParam m(plain.mech);
    m.nodes.resize(4);
    m.beam_direction_0 = random_direction(random);
    m.initialise();
    EXPECT_EQ(m.facet_count(), 5U);
    m.set_counts(3, 4, 0);
    EXPECT_NEAR(length(plain.direction), 1, 1e-13);
}

TEST(mirrorwheel_facetsurfacedistortion, without_beam_direction_0_it_is_the_beam_of_the_wheel) {
    distorted<mirrorwheel_facetsurfacedistortion> m(3);
    m.mech.beam_direction_0 = {0, 0, 0};
    m.mech.initialise();
    m.mech.set_counts(500, 0, 0);
    const vector3 implied = m.direction;
    m.mech.beam_direction_0 = behind_wheel(m.mech, 0, 0).direction;
    m.mech.initialise();
    m.mech.set_counts(500, 0, 0);
    expect_near(m.direction, implied, 1e-14);
}

TEST(mirrorwheel_facetsurfacedistortion, facet_distance_has_no_effect) {
    distorted<mirrorwheel_facetsurfacedistortion> m(3);
    m.mech.set_counts(500, 0, 0);
    const vector3 before = m.direction;
    m.mech.facet_distance = 0.07;
    m.mech.initialise();
    m.mech.set_counts(500, 0, 0);
    EXPECT_EQ(m.direction, before);
}

TEST(wedge_scanconedistortion, looks_up_in_set_angles_with_the_line_angle) {
    bench<wedge_scanconedistortion> b;
    std::mt19937 random(63);
    b.mech.line_circle_count = 1024;
    b.mech.facet1_direction = unit({0.1, 0.05, -1});
    b.mech.facet2_direction = unit({0.05, 0, 1});
    b.mech.dist = -0.01;
    b.mech.refraction_index = 1.5;
    b.mech.cone_axis_direction = random_direction(random);
    b.mech.beam_direction_0 = random_direction(random);
    b.mech.nodes.assign(7, {0.01, -0.02});
    b.mech.initialise();
    for (std::uint32_t line = 0; line < 1024; line += 17) {
        b.mech.set_angles(0, line * entry_angle, 0);
        const vector3 distorted_beam = b.direction;
        wedge straight(b.mech);
        straight.set_angles(0, line * entry_angle, 0);
        const vector3 straight_beam = b.direction;
        expect_near(distorted_beam,
                    bent(straight_beam, b.mech.cone_axis_direction, b.mech.beam_direction_0,
                         line * entry_angle, 0.01, -0.02),
                    1e-12);
        b.mech.set_counts(line, 5, 2);
        expect_near(b.direction, distorted_beam, 1e-14);
        EXPECT_EQ(b.mech.facet, 2U);
    }
}

TEST(wedge_scanconedistortion, fewer_than_four_nodes_fail) {
    bench<wedge_scanconedistortion> b;
    b.mech.nodes.resize(3);
    try {
        b.mech.initialise();
        ADD_FAILURE();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "scanconedistortion table too small");
    }
    b.mech.nodes.resize(4);
    EXPECT_NO_THROW(b.mech.initialise());
}

TEST(distortion_table, has_an_entry_for_each_1024th_of_the_turn_and_the_closing_one) {
    distortion_table table;
    table.build_turn(std::vector<distortion_node>(4), {0, 1, 0}, {0, 0, 1}, 3, "too small");
    EXPECT_EQ(table.size(), 1025U);
}

TEST(distortion_table, every_tooth_is_as_good_as_the_first) {
    // With four teeth, a quarter of a turn on the same values count again, about axes that are a
    // quarter on: there a turned vector meets what the vector meets in the first quarter.
    std::mt19937 random(64);
    const vector3 axis = random_direction(random);
    const vector3 beam_0 = random_direction(random);
    std::vector<distortion_node> nodes;
    std::uniform_real_distribution<double> small(-0.02, 0.02);
    for (int i = 0; i < 48; ++i) {
        nodes.push_back({small(random), small(random)});
    }
    distortion_table table;
    table.build_turn(nodes, axis, beam_0, 4, "too small");
    for (int k = 0; k < 256; ++k) {
        const vector3 v = random_direction(random);
        vector3 first = v;
        table.turn_at(k, first);
        for (int tooth = 1; tooth < 4; ++tooth) {
            vector3 later = rotated_by(v, axis, tooth * pi / 2);
            table.turn_at(k + 256 * tooth, later);
            expect_near(rotated_by(later, axis, -tooth * pi / 2), first, 1e-12);
        }
    }
}

TEST(distortion_table, hostile_nodes_and_axes_do_not_fault) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (const double x : {nan, inf, -inf, 0.0, 1e300}) {
        distortion_table table;
        table.build_turn(std::vector<distortion_node>(5, {x, -x}), {x, 0, x}, {x, x, 1}, 4000000000,
                         "too small");
        vector3 v{1, 2, 3};
        for (const double place : {nan, inf, -inf, -1.0, -0.5, 0.0, 1023.9, 1024.0, 1e300}) {
            table.turn_at(place, v);
        }
        EXPECT_EQ(table.size(), 1025U);
    }
}
