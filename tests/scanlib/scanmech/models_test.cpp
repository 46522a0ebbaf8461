/// What holds for every model.

#include "scanlib/scanmech/models.hpp"

#include <rapidcheck.h>

#include <array>
#include <limits>

using namespace optics;

namespace {

template<class Model>
class every_model : public testing::Test {};
TYPED_TEST_SUITE(every_model, all_models);

} // namespace

TYPED_TEST(every_model, beam_has_unit_length_where_there_is_one) {
    EXPECT_TRUE(rc::check([](std::uint32_t seed, std::uint32_t line, std::uint32_t frame) {
        std::mt19937 random(seed);
        bench<TypeParam> b;
        fill_sanely(b.mech, random);
        b.mech.set_counts(line % 3600, frame % 7200, 0);
        const double squared = dot(b.direction, b.direction);
        RC_ASSERT(std::isnan(squared) || std::fabs(squared - 1) < 1e-9);
        if (b.mech.kind() != kind_wedge && b.mech.kind() != kind_wedge_scanconedistortion) {
            RC_ASSERT(!std::isnan(squared)); // a wedge may reflect totally
        }
    }));
}

TYPED_TEST(every_model, copy_writes_to_the_same_beam) {
    std::mt19937 random(111);
    bench<TypeParam> b;
    fill_sanely(b.mech, random);
    b.mech.set_counts(123, 456, 0);
    const vector3 direction = b.direction;
    TypeParam copy(b.mech);
    b.direction = {7, 7, 7};
    copy.set_counts(123, 456, 0);
    if (!std::isnan(direction[0])) {
        EXPECT_EQ(b.direction, direction);
    } else {
        EXPECT_NE(b.direction, (vector3{7, 7, 7}));
    }
}

TYPED_TEST(every_model, works_without_initialise_too) {
    bench<TypeParam> b;
    b.mech.set_counts(0xFFFFFFFF, 12345, 7);
    b.mech.set_angles(99, 1, 2);
    vector3 point{};
    b.mech.position(point, 3);
    EXPECT_FALSE(std::isinf(point[0]));
}

TYPED_TEST(every_model, zero_circle_counts_give_angle_zero) {
    std::mt19937 random(112);
    bench<TypeParam> b;
    fill_sanely(b.mech, random);
    b.mech.line_circle_count = 0;
    b.mech.frame_circle_count = 0;
    if constexpr (std::is_base_of_v<mirrorwheel, TypeParam>) {
        b.mech.line_angle_0 = 0;
    }
    b.mech.initialise();
    b.mech.set_counts(12345, 54321, 0);
    EXPECT_EQ(b.mech.line_angle, 0);
    EXPECT_EQ(b.mech.frame_angle, 0);
}

TYPED_TEST(every_model, hostile_parameters_and_counts_do_not_fault) {
    constexpr double inf = std::numeric_limits<double>::infinity();
    const std::array<double, 9> odd{
        0, 1, -1, 1e300, -1e300, 5e-324, 1 / 3.0, inf, std::numeric_limits<double>::quiet_NaN()};
    EXPECT_TRUE(rc::check([&](std::uint32_t seed) {
        std::mt19937 random(seed);
        const auto number = [&] { return odd[random() % odd.size()]; };
        bench<TypeParam> b;
        fill_all(b.mech, 4 + random() % 4, number, [&] {
            return vector3{number(), number(), number()};
        });
        b.mech.line_circle_count = random() % 2 ? 0 : 0xFFFFFFFF >> random() % 32;
        b.mech.frame_circle_count = random() % 2 ? 1 : 0;
        if constexpr (std::is_base_of_v<mirrorwheel, TypeParam>) {
            b.mech.line_angle_0 = std::numeric_limits<std::int32_t>::min();
            b.mech.facets.resize(1 + random() % 3);
        }
        b.mech.initialise();
        for (int i = 0; i < 4; ++i) {
            b.mech.set_counts(0xFFFFFFFF >> random() % 32, 0xFFFFFFFF, 0xFFFFFFFF);
            b.mech.set_angles(0xFFFFFFFF, number(), number());
            vector3 point{};
            b.mech.position(point, number());
            if constexpr (std::is_same_v<mirrorwheel_fanbeam, TypeParam>) {
                b.mech.select_beam(0xFFFFFFFF >> random() % 32, 0xFFFFFFFF);
            }
        }
        RC_ASSERT(!json_of(b.mech).empty());
    }));
}
