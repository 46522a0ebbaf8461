#include "scanlib/mirrorwheel.hpp"
#include "scanlib/scanlib_exception.hpp"
#include "scanlib/scanmech/optics.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <stdexcept>

using namespace scanlib;

using optics::expect_near;
using optics::length;
using optics::pi;
using optics::random_direction;

namespace {

/// A wheel of three facets with 3600 counts a turn and a beam along -z onto it.
struct three_facets {
    vector3 origin{};
    vector3 direction{};
    mirrorwheel wheel{&origin, &direction};

    explicit three_facets(std::int32_t line_angle_0 = 0) {
        wheel.line_circle_count = 3600;
        wheel.frame_circle_count = 3600;
        wheel.line_angle_0 = line_angle_0;
        wheel.laser_origin = {0.01, -0.02, 0.1};
        wheel.laser_direction = {0, 0, 1};
        wheel.mirror_axis_direction = {1, 0, 0};
        wheel.facets.clear();
        for (int i = 0; i < 3; ++i) {
            const double tilt = 0.002 * i;
            wheel.facets.push_back({{std::sin(tilt), 0, std::cos(tilt)}, -0.03 - 0.001 * i});
        }
        wheel.initialise();
    }
};

} // namespace

TEST(half_angle, agrees_with_the_library_to_the_last_places) {
    double worst = 0;
    for (int i = -20000; i <= 80000; ++i) {
        const double a = i * (2 * pi / 50000) / 1.37;
        const auto [s, c] = half_angle(a);
        worst = std::max({worst, std::fabs(s - std::sin(a)), std::fabs(c - std::cos(a))});
    }
    EXPECT_LT(worst, 1.5e-15);
}

TEST(half_angle, is_exact_at_zero) {
    const auto [s, c] = half_angle(0);
    EXPECT_EQ(s, 0);
    EXPECT_EQ(c, 1);
}

TEST(half_angle, takes_the_supplement_between_the_right_angles) {
    for (const double a : {pi / 2, pi, 4.0, 3 * pi / 2}) {
        const double t = std::tan((pi - a) / 2);
        const auto [s, c] = half_angle(a);
        EXPECT_NEAR(s, 2 * t / (1 + t * t), 3e-16);
        EXPECT_NEAR(c, (t * t - 1) / (1 + t * t), 3e-16);
    }
}

TEST(scanmech, zeroes_the_beam_at_construction) {
    vector3 origin{1, 2, 3};
    vector3 direction{4, 5, 6};
    const scanmech mech(&origin, &direction);
    EXPECT_EQ(origin, (vector3{0, 0, 0}));
    EXPECT_EQ(direction, (vector3{0, 0, 0}));
    EXPECT_EQ(mech.kind(), 0U);
    EXPECT_EQ(mech.facet_count(), 0U);
}

TEST(scanmech, plain_model_points_along_polar_angle_and_azimuth) {
    vector3 origin{};
    vector3 direction{};
    scanmech mech(&origin, &direction);
    mech.line_circle_count = 360;
    mech.frame_circle_count = 720;
    mech.initialise();
    mech.set_counts(30, 120, 4);
    EXPECT_EQ(mech.facet, 4U);
    EXPECT_DOUBLE_EQ(mech.line_angle, pi / 6);
    EXPECT_DOUBLE_EQ(mech.frame_angle, pi / 3);
    expect_near(direction, {0.5 * 0.5, 0.5 * std::sqrt(0.75), std::sqrt(0.75)}, 1e-15);
    vector3 point{};
    mech.position(point, 10);
    expect_near(point, 10 * direction, 1e-15);
}

TEST(scanmech, zero_circle_counts_give_angle_zero) {
    vector3 origin{};
    vector3 direction{};
    scanmech mech(&origin, &direction);
    mech.line_circle_count = 0;
    mech.frame_circle_count = 0;
    mech.initialise();
    mech.set_counts(30, 120, 0);
    EXPECT_EQ(direction, (vector3{0, 0, 1}));
}

TEST(scanmech, create_makes_the_kinds_that_have_a_number_of_their_own) {
    vector3 origin{};
    vector3 direction{};
    for (const std::uint32_t kind : {1U, 2U, 3U, 4U, 5U, 7U, 8U, 9U, 10U}) {
        const auto mech = scanmech::create(kind, &origin, &direction);
        EXPECT_EQ(mech->kind(), kind);
        const bool wheel = kind != 2 && kind != 8;
        EXPECT_EQ(mech->facet_count(), wheel ? 1U : 0U);
    }
}

TEST(scanmech, create_refuses_the_other_kinds) {
    vector3 origin{};
    vector3 direction{};
    for (const std::uint32_t kind : {0U, 6U, 11U, 12U, 13U, 14U, 15U, 16U, 0xFFFFFFFFU}) {
        try {
            scanmech::create(kind, &origin, &direction);
            ADD_FAILURE() << kind;
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "scanmech::create: unknown kind");
        }
    }
}

TEST(mirrorwheel, new_object_has_one_facet_and_works) {
    vector3 origin{};
    vector3 direction{};
    mirrorwheel wheel(&origin, &direction);
    EXPECT_EQ(wheel.facet_count(), 1U);
    // The mirror (1, 0, 0) turned by 45 degrees about y throws the beam from +z to +x.
    wheel.set_angles(0, pi / 4, 0);
    expect_near(direction, {1, 0, 0}, 1e-15);
}

TEST(mirrorwheel, crossing_a_facet_boundary_changes_the_facet_and_resets_the_angle) {
    three_facets m;
    m.wheel.set_counts(1199, 0, 9);
    EXPECT_EQ(m.wheel.facet, 0U);
    EXPECT_DOUBLE_EQ(m.wheel.line_angle, 1199 * (2 * pi / 3600));
    m.wheel.set_counts(1200, 0, 9);
    EXPECT_EQ(m.wheel.facet, 1U);
    EXPECT_EQ(m.wheel.line_angle, 0);
    m.wheel.set_counts(2401, 0, 9);
    EXPECT_EQ(m.wheel.facet, 2U);
    m.wheel.set_counts(3600, 0, 9);
    EXPECT_EQ(m.wheel.facet, 0U);
}

TEST(mirrorwheel, line_angle_0_moves_the_zero_of_every_facet_equally) {
    three_facets plain;
    three_facets moved(37);
    for (const std::uint32_t line : {5U, 1205U, 2405U}) {
        plain.wheel.set_counts(line, 0, 0);
        moved.wheel.set_counts(line + 37, 0, 0);
        EXPECT_EQ(plain.wheel.facet, moved.wheel.facet);
        EXPECT_NEAR(plain.wheel.line_angle, moved.wheel.line_angle, 1e-15);
        expect_near(plain.direction, moved.direction, 1e-15);
    }
}

TEST(mirrorwheel,
     counts_with_the_highest_bit_are_unsigned_for_the_facet_and_negative_for_the_angle) {
    three_facets m;
    const std::uint32_t line = 0xFFFFFFF0;
    m.wheel.set_counts(line, 0, 0);
    EXPECT_EQ(m.wheel.facet, line / 1200 % 3);
    EXPECT_DOUBLE_EQ(m.wheel.line_angle, -16 * (2 * pi / 3600));
}

TEST(mirrorwheel, angle_of_reflection_is_the_angle_of_incidence_on_the_turned_facet) {
    std::mt19937 random(4);
    std::uniform_real_distribution<double> angle(0, 2 * pi);
    for (int round = 0; round < 200; ++round) {
        vector3 origin{};
        vector3 direction{};
        mirrorwheel wheel(&origin, &direction);
        wheel.laser_direction = random_direction(random);
        wheel.laser_origin = 0.1 * random_direction(random);
        wheel.mirror_axis_direction = random_direction(random);
        wheel.mirror_axis_origin = 0.2 * random_direction(random);
        wheel.facets = {{random_direction(random), 0.05}};
        wheel.initialise();
        const double a = angle(random);
        wheel.set_angles(0, a, 0);

        const vector3 normal =
            optics::rotated_by(wheel.facets[0].normal, wheel.mirror_axis_direction, a);
        EXPECT_NEAR(length(direction), 1, 1e-14);
        // Same angle on the other side, and all three in one plane.
        EXPECT_NEAR(dot(direction, normal), -dot(wheel.laser_direction, normal), 1e-13);
        EXPECT_NEAR(dot(cross(wheel.laser_direction, normal), direction), 0, 1e-13);

        // The ray from the laser and the ray from the virtual origin meet on the mirror after the
        // same way.
        const double way = (0.05 - dot(wheel.laser_origin - wheel.mirror_axis_origin, normal)) /
                           dot(wheel.laser_direction, normal);
        if (std::fabs(way) < 10) {
            expect_near(origin + way * direction, wheel.laser_origin + way * wheel.laser_direction,
                        1e-12);
        }
    }
}

TEST(mirrorwheel, frame_angle_turns_beam_and_origin_about_z) {
    three_facets m;
    m.wheel.set_angles(1, 0.3, 0);
    const vector3 direction = m.direction;
    const vector3 origin = m.origin;
    for (const double b : {0.1, 1.0, 2.0, 4.5, 6.0}) {
        m.wheel.set_angles(1, 0.3, b);
        expect_near(m.direction, optics::rotated_by(direction, {0, 0, 1}, b), 1e-14);
        expect_near(m.origin, optics::rotated_by(origin, {0, 0, 1}, b), 1e-14);
    }
}

TEST(mirrorwheel, frame_zero_leaves_the_reflected_beam_untouched) {
    three_facets m;
    m.wheel.set_angles(2, 0.3, 0);
    const double a = 0.3;
    const vector3 normal = optics::rotated_by(m.wheel.facets[2].normal, {1, 0, 0}, a);
    const vector3 reflected =
        m.wheel.laser_direction - 2 * dot(m.wheel.laser_direction, normal) * normal;
    expect_near(m.direction, reflected, 1e-15);
}

TEST(mirrorwheel, unchanged_frame_angle_gives_the_same_bits) {
    three_facets kept;
    for (std::uint32_t line = 0; line < 50; ++line) {
        three_facets fresh;
        kept.wheel.set_counts(line, 333, 0);
        fresh.wheel.set_counts(line, 333, 0);
        EXPECT_EQ(kept.direction, fresh.direction);
        EXPECT_EQ(kept.origin, fresh.origin);
    }
}

TEST(mirrorwheel, copy_writes_to_the_same_beam) {
    three_facets m;
    mirrorwheel copy(m.wheel);
    m.direction = {};
    copy.set_counts(7, 0, 0);
    EXPECT_NEAR(length(m.direction), 1, 1e-14);
}

TEST(mirrorwheel, without_facets_says_so) {
    three_facets m;
    m.wheel.facets.clear();
    try {
        m.wheel.initialise();
        ADD_FAILURE();
    } catch (const scanlib_exception& e) {
        EXPECT_NE(std::string(e.what()).find("no facets"), std::string::npos);
    }
}

TEST(mirrorwheel, fewer_counts_than_facets_count_as_none) {
    three_facets m;
    m.wheel.line_circle_count = 2;
    m.wheel.initialise();
    m.wheel.set_counts(0x80000001, 0, 0);
    EXPECT_EQ(m.wheel.facet, 0U);
    EXPECT_EQ(m.wheel.line_angle, 0);
}

TEST(mirrorwheel, facet_beyond_the_table_is_the_last) {
    three_facets m;
    m.wheel.set_angles(2, 0.2, 0);
    const vector3 last = m.direction;
    m.wheel.set_angles(77, 0.2, 0);
    EXPECT_EQ(m.direction, last);
}

TEST(mirrorwheel, hostile_parameters_do_not_fault) {
    const double odd[] = {std::numeric_limits<double>::quiet_NaN(),
                          std::numeric_limits<double>::infinity(), 1e300};
    for (const double x : odd) {
        three_facets m;
        m.wheel.laser_direction = {x, -x, x};
        m.wheel.mirror_axis_direction = {x, x, x};
        m.wheel.facets[0] = {{x, 0, 0}, x};
        m.wheel.line_angle_0 = std::numeric_limits<std::int32_t>::min();
        m.wheel.line_circle_count = 0xFFFFFFFF;
        m.wheel.initialise();
        m.wheel.set_counts(0x80000000, 0xFFFFFFFF, 0);
        EXPECT_TRUE(std::isnan(m.direction[0]));
    }
}

TEST(mirrorwheel, json_names_the_class_and_its_parameters_in_order) {
    three_facets m;
    m.wheel.facets.resize(1);
    json_writer out;
    m.wheel.write(out);
    EXPECT_EQ(out.text(),
              "{\"kind\":\"mirrorwheel\",\"range_unit\":1,\"line_circle_count\":3600,"
              "\"frame_circle_count\":3600,\"laser_origin\":[0.01,-0.02,0.10000000000000001],"
              "\"laser_direction\":[0,0,1],\"mirror_axis_origin\":[0,0,0],"
              "\"mirror_axis_direction\":[1,0,0],\"line_angle_0\":0,"
              "\"facets\":[{\"normal\":[0,0,1],\"dist\":-0.029999999999999999}]}");
}
