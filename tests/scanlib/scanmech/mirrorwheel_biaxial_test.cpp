#include "scanlib/mirrorwheel_biaxial.hpp"

#include "scanlib/scanmech/optics.hpp"

#include <limits>

using namespace optics;

namespace {

struct biaxial : bench<mirrorwheel_biaxial> {
    /// Pairs on the grid of the table, whose step is 0.02: between its entries the table is exact.
    explicit biaxial(std::vector<biaxial_node> pairs = {{2, 0.02}, {10, 0.005}, {20, 0.001}}) {
        std::mt19937 random(31);
        fill_wheel(mech, 3, random);
        mech.aperture_direction = {0.6, 0, 0.8};
        mech.biaxial_shift = std::move(pairs);
        mech.initialise();
        mech.set_angles(1, 0.7, 1.1);
    }

    /// Shift of the point at a range, along the shift direction.
    double shift(double range) const {
        vector3 point{};
        mech.position(point, range);
        return dot(point - (range * direction + origin), mech.shift_direction());
    }
};

} // namespace

TEST(mirrorwheel_biaxial, shift_direction_is_the_mirrored_aperture_direction) {
    biaxial b;
    const vector3 n = rotated_by(b.mech.facets[1].normal, b.mech.mirror_axis_direction, 0.7);
    const vector3 mirrored = -1.0 * rotated_by(b.mech.aperture_direction, n, pi);
    expect_near(b.mech.shift_direction(), rotated_by(mirrored, {0, 0, 1}, 1.1), 1e-14);
}

TEST(mirrorwheel_biaxial, shift_is_linear_between_the_pairs) {
    const biaxial b;
    EXPECT_NEAR(b.shift(0.011), 0.02, 1e-13); // constant up to the first pair
    EXPECT_NEAR(b.shift(1.5), 0.02, 1e-13);
    for (const double range : {2.007, 2.013, 5.003, 7.777, 9.99}) {
        EXPECT_NEAR(b.shift(range), 0.02 + (range - 2) / 8 * (0.005 - 0.02), 1e-13) << range;
    }
    for (const double range : {10.001, 15.013, 19.97}) {
        EXPECT_NEAR(b.shift(range), 0.005 + (range - 10) / 10 * (0.001 - 0.005), 1e-13) << range;
    }
}

TEST(mirrorwheel_biaxial, beyond_the_last_pair_points_lie_on_the_plain_line) {
    const biaxial b;
    for (const double range :
         {-1.0, 0.0, 19.9900001, 20.0, 20.5, 1e9, std::numeric_limits<double>::infinity()}) {
        vector3 point{};
        b.mech.position(point, range);
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(point[i], (range * b.direction + b.origin)[i]) << range;
        }
    }
}

TEST(mirrorwheel_biaxial, without_pairs_there_is_no_shift) {
    const biaxial b(std::vector<biaxial_node>{});
    EXPECT_EQ(b.shift(1), 0);
}

TEST(mirrorwheel_biaxial, quotient_and_remainder_may_disagree_next_to_an_entry) {
    // Ranges a last place below i steps: the quotient rounds up to i, the remainder is a whole
    // step. The shift then is that of the next entry.
    const biaxial b;
    const double step = 20 / 1000.0;
    const auto entry = [&](double i) {
        const double range = i * step;
        return range <= 2 ? 0.02 : 0.02 + (range - 2) / 8 * (0.005 - 0.02);
    };
    int disagreeing = 0;
    for (int k = 101; k < 499; ++k) {
        for (const double range :
             {std::nextafter(k * step, 0), k * step, std::nextafter(k * step, 30)}) {
            const double i = std::floor(range / step);
            const double f = std::fmod(range, step) / step;
            disagreeing += std::fabs(i + f - range / step) > 0.5;
            EXPECT_NEAR(b.shift(range), (1 - f) * entry(i) + f * entry(i + 1), 1e-13);
        }
    }
    EXPECT_GT(disagreeing, 0);
}

TEST(mirrorwheel_biaxial, odd_pairs_do_not_fault) {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<std::vector<biaxial_node>> lists = {
        {{0, 1}},      {{-5, 1}},           {{nan, 1}},          {{inf, 1}},
        {{5e-324, 1}}, {{3, 1}, {3, 2}},    {{9, 1}, {3, 2}},    {{1, nan}, {2, inf}},
        {{1e308, 1}},  {{-inf, 1}, {1, 2}}, {{nan, nan}, {4, 1}}};
    for (const auto& pairs : lists) {
        const biaxial b(pairs);
        for (const double range : {-1.0, 5e-324, 1e-300, 0.5, 2.5, 1e308, inf, nan}) {
            vector3 point{};
            b.mech.position(point, range);
            if (range < 0) {
                EXPECT_EQ(point, range * b.direction + b.origin);
            }
        }
    }
}
