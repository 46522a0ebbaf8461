#include "recording_pointcloud.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <random>
#include <sstream>

using namespace scanlib;
using namespace scanlib::testing;

namespace {

const float odd_floats[] = {std::numeric_limits<float>::quiet_NaN(),
                            std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity(),
                            0.0F,
                            -1.0F,
                            3.4e38F,
                            1e-45F};

/// Whole life of a measurement after the parameters are set; asks for all results.
std::size_t measure(fed_pointcloud& cloud) {
    cloud.pps(1000, 1000);
    cloud.pps(10001000, 2000);
    cloud.shot(10002000, 0xFFFFFFFF, 0xFFFFFFFF);
    cloud.echo(std::numeric_limits<std::int32_t>::min(), 65535, -32768, 0xFFFF, -32768);
    cloud.echo(std::numeric_limits<std::int32_t>::max(), 65535, 32767);
    cloud.shot_hr(~std::uint64_t{0}, 0x800000, 0x80000000);
    cloud.echo(0);
    cloud.feed<packets::laser_echo_sw_writer>([](auto& w) { w.range_counter(-1); });
    cloud.shot_rad(5, 65535);
    cloud.line_stop();
    std::ostringstream out;
    cloud.get_meta(out, true);
    return cloud.reported.size() + (out.str().empty() ? 0 : 1);
}

} // namespace

TEST(pointcloud_hostile, odd_floats_in_units_do_not_fault) {
    for (const float range : odd_floats) {
        for (const float time : odd_floats) {
            fed_pointcloud cloud(false);
            cloud.feed<packets::units_4_writer>([&](auto& w) {
                w.range_unit(range);
                w.systime_unit(time);
                w.systime_hr_unit(range);
                w.ampl_refl_unit(time);
                w.systime_hr_bits(std::bit_cast<std::uint32_t>(time));
                w.utc_unit(range);
            });
            cloud.feed<packets::reftab_table_writer>([](auto& w) { w.element(1, 5); }, 3);
            EXPECT_EQ(measure(cloud), 6U);
        }
    }
}

TEST(pointcloud_hostile, odd_floats_in_atmosphere_and_rates_do_not_fault) {
    for (const float x : odd_floats) {
        fed_pointcloud cloud(false);
        cloud.feed<packets::atmosphere_4_writer>([&](auto& w) {
            w.temperature(x);
            w.group_velocity(x);
            w.attenuation(x);
            w.wavelength(x);
        });
        cloud.feed<packets::range_finder_debug_laser_writer>(
            [&](auto& w) { w.pulse_repetition_rate(x); });
        EXPECT_EQ(measure(cloud), 6U);
    }
}

TEST(pointcloud_hostile, odd_floats_in_geometry_do_not_fault) {
    for (const float x : odd_floats) {
        for (std::size_t field = 0; field < 16; ++field) {
            fed_pointcloud cloud(false);
            cloud.units(0.001F, field % 2 == 0 ? 1 : 3600);
            cloud.feed<packets::device_geometry_writer>(
                [&](auto& w) {
                    w.laser_direction(2, 1.0F);
                    w.mirror_axis_direction(0, 1.0F);
                    w.element(0).normal(2, 1.0F);
                    w.line_angle_0(std::numeric_limits<std::int32_t>::min());
                    const std::size_t i = field % 3;
                    if (field < 3) {
                        w.laser_origin(i, x);
                    } else if (field < 6) {
                        w.laser_direction(i, x);
                    } else if (field < 9) {
                        w.mirror_axis_origin(i, x);
                    } else if (field < 12) {
                        w.mirror_axis_direction(i, x);
                    } else if (field < 15) {
                        w.element(0).normal(i, x);
                    } else {
                        w.element(0).dist(x);
                    }
                },
                1);
            EXPECT_EQ(measure(cloud), 6U);
        }
    }
}

TEST(pointcloud_hostile, reflectance_table_of_every_small_size_does_not_fault) {
    for (std::size_t n = 0; n < 5; ++n) {
        for (const std::uint16_t step :
             {std::uint16_t{0}, std::uint16_t{1}, std::uint16_t{65535}}) {
            fed_pointcloud cloud(false);
            cloud.units();
            cloud.feed<packets::reftab_table_writer>([&](auto& w) { w.step_counter(step); }, n);
            EXPECT_EQ(measure(cloud), 6U);
        }
    }
}

TEST(pointcloud_hostile, random_payloads_of_all_kinds_in_use_do_not_fault) {
    const std::uint32_t kinds[] = {
        1U << 16,      2U << 16 | 4, 4U << 16,  105U << 16,    12U << 16 | 1, 70U << 16 | 1,
        10U << 16 | 2, 20U << 16,    67U << 16, 50011U << 16,  13U << 16,     122U << 16,
        97U << 16,     42U << 16,    94U << 16, 11U << 16 | 1, 28U << 16,     99U << 16,
        164U << 16,    17U << 16,    15U << 16, 31U << 16,     32U << 16,     69U << 16,
        27U << 16 | 4, 34U << 16,    7U << 16,  38U << 16 | 2, 111U << 16};
    std::mt19937 random(7);
    std::uint64_t shots = 0;
    for (int round = 0; round < 40; ++round) {
        fed_pointcloud cloud(round % 2 == 0);
        for (int i = 0; i < 500; ++i) {
            std::vector<std::uint32_t> words(2 + random() % 60);
            for (std::uint32_t& w : words) {
                w = random() % 4 == 0 ? std::bit_cast<std::uint32_t>(odd_floats[random() % 7])
                                      : static_cast<std::uint32_t>(random());
            }
            words[0] = 0xFFFFFFFF;
            words[1] = kinds[random() % std::size(kinds)];
            try {
                cloud.dispatch(words.data(), words.data() + words.size());
            } catch (const std::exception&) {
                // Short sequences and wheels without facets are refused.
                continue;
            }
        }
        shots += cloud.shots.size();
    }
    EXPECT_GT(shots, 0U);
}
