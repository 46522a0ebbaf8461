#include "scanlib/quaternion.hpp"

#include "scanlib/scanmech/optics.hpp"

#include <rapidcheck.h>

#include <limits>

using namespace optics;

TEST(quaternion, rotation_agrees_with_the_matrix) {
    std::mt19937 random(101);
    std::uniform_real_distribution<double> angle(-7, 14);
    for (int round = 0; round < 500; ++round) {
        const vector3 axis = random_direction(random);
        const vector3 v = random_direction(random);
        const double a = angle(random);
        expect_near(rotated(rotation_about(axis, a), v), rotated_by(v, axis, a), 1e-14);
    }
}

TEST(quaternion, product_rotates_by_the_right_factor_first) {
    std::mt19937 random(102);
    const vector3 k1 = random_direction(random);
    const vector3 k2 = random_direction(random);
    const vector3 v = random_direction(random);
    expect_near(rotated(rotation_about(k1, 0.7) * rotation_about(k2, 2.1), v),
                rotated_by(rotated_by(v, k2, 2.1), k1, 0.7), 1e-14);
}

TEST(quaternion, axis_is_used_as_given) {
    const quaternion q = rotation_about({0, 0, 3}, pi);
    EXPECT_NEAR(q.z, 3, 1e-14);
    EXPECT_NEAR(q.w, 0, 1e-15);
}

TEST(quaternion, product_with_its_conjugate_around_a_vector_is_the_rotation) {
    // Also for a quaternion that is not of unit length.
    const quaternion q{0.5, -1.5, 2, 0.25};
    const vector3 v{1, -2, 3};
    const quaternion p = q * quaternion{0, v[0], v[1], v[2]} * quaternion{q.w, -q.x, -q.y, -q.z};
    EXPECT_NEAR(p.w, 0, 1e-14);
    expect_near(rotated(q, v), {p.x, p.y, p.z}, 1e-13);
}

TEST(quaternion, interpolation_keeps_the_length_of_the_vector) {
    std::mt19937 random(103);
    for (double f = -1; f < 1; f += 0.05) {
        const vector3 v = rotated_between(rotation_about(random_direction(random), 0.3),
                                          rotation_about(random_direction(random), 0.2), f,
                                          random_direction(random));
        EXPECT_NEAR(length(v), 1, 1e-14);
    }
}

TEST(quaternion, interpolation_between_turns_about_one_axis_meets_the_mean_half_way) {
    const vector3 axis = unit({1, 2, 3});
    expect_near(
        rotated_between(rotation_about(axis, 0.2), rotation_about(axis, 0.6), 0.5, {1, 0, 0}),
        rotated_by({1, 0, 0}, axis, 0.4), 1e-15);
}

TEST(half_angle, agrees_with_the_library_for_any_angle_of_a_few_turns) {
    EXPECT_TRUE(rc::check([](std::int32_t a, bool tiny) {
        const double angle = tiny ? a * 1e-9 : a * 1e-8;
        const auto [s, c] = half_angle(angle);
        RC_ASSERT(std::fabs(s - std::sin(angle)) < 4e-15);
        RC_ASSERT(std::fabs(c - std::cos(angle)) < 4e-15);
        RC_ASSERT(std::fabs(s * s + c * c - 1) < 1e-15);
    }));
}

TEST(half_angle, huge_angles_and_no_angles_do_not_fault) {
    for (const double angle : {1e9, -1e9, 1e300}) {
        const auto [s, c] = half_angle(angle);
        EXPECT_NEAR(s * s + c * c, 1, 1e-15);
    }
    EXPECT_TRUE(std::isnan(half_angle(std::numeric_limits<double>::quiet_NaN()).sine));
    EXPECT_TRUE(std::isnan(half_angle(std::numeric_limits<double>::infinity()).cosine));
}
