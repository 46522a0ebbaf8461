#include "recording_pointcloud.hpp"
#include "scanlib/mirrorwheel.hpp"
#include "scanlib/scanlib_exception.hpp"

#include <gtest/gtest.h>

using namespace scanlib;
using namespace scanlib::testing;

namespace {

/// Reflectance of an echo at a range, with a raw reflectance of 0.
float reflectance_at(fed_pointcloud& cloud, std::int32_t range_counter) {
    cloud.shot(1);
    cloud.echo(range_counter, 1000, 0);
    cloud.frame_stop();
    return cloud.reported.back().reflectance;
}

/// Entries 0, -1, -3 dB at 0, 16 and 32 m, in units of 1 m.
void feed_table(fed_pointcloud& cloud) {
    cloud.units(1.0F);
    cloud.feed<packets::reftab_table_writer>(
        [](auto& w) {
            w.step_counter(1);
            w.element(0, 0);
            w.element(1, 100);
            w.element(2, 300);
        },
        3);
    cloud.reftab_table.step = 16;
}

} // namespace

TEST(pointcloud_calibration, units_ladder_fills_all_units) {
    fed_pointcloud cloud;
    cloud.feed<packets::units_4_writer>([](auto& w) {
        w.range_unit(0.5F);
        w.line_circle_count(0);
        w.frame_circle_count(1234);
        w.systime_unit(2e-07F);
        w.ampl_refl_unit(0.25F);
        w.systime_hr_unit(1e-12F);
        w.systime_hr_bits(48);
        w.utc_unit(1e-06F);
    });
    EXPECT_EQ(cloud.range_unit, 0.5);
    EXPECT_EQ(cloud.embedded_mech.range_unit, 0.5);
    EXPECT_EQ(cloud.embedded_mech.line_circle_count, 1U) << "0 counts as 1";
    EXPECT_EQ(cloud.embedded_mech.frame_circle_count, 1234U);
    EXPECT_EQ(cloud.systime_unit, static_cast<double>(2e-07F));
    EXPECT_EQ(cloud.ampl_unit, 0.25);
    EXPECT_EQ(cloud.refl_unit, 0.25);
    EXPECT_EQ(cloud.systime_hr_unit, static_cast<double>(1e-12F));
    EXPECT_EQ(cloud.systime_hr_bits, 48U);
    EXPECT_EQ(cloud.utc_unit, static_cast<double>(1e-06F));
    EXPECT_EQ(cloud.origin_unit, 2.384185791015625e-07);
    EXPECT_EQ(cloud.direction_unit, 6.103515625e-05);
    // The synchronisers run with them.
    EXPECT_DOUBLE_EQ(cloud.shot_sync.convert(std::uint32_t{1000}).internal,
                     1000 * static_cast<double>(2e-07F));
}

TEST(pointcloud_calibration, plain_units_leave_the_later_units_alone) {
    fed_pointcloud cloud;
    cloud.units(0.5F);
    EXPECT_EQ(cloud.ampl_unit, 0.01);
    EXPECT_EQ(cloud.systime_hr_bits, 49U);
    EXPECT_TRUE(std::isnan(cloud.utc_unit));
    EXPECT_TRUE(std::isnan(cloud.origin_unit));
}

TEST(pointcloud_calibration, range_offset_is_added_behind_the_unit) {
    fed_pointcloud cloud;
    cloud.units(0.5F);
    cloud.delta_rg = 0.125;
    cloud.shot(1);
    cloud.echo(10);
    cloud.feed<packets::laser_echo_writer>([](auto& w) { w.range_counter(10); });
    cloud.frame_stop();
    EXPECT_EQ(cloud.reported[0].echo_range, 5.125);
    EXPECT_EQ(cloud.reported[1].echo_range, 5.125);
}

TEST(pointcloud_calibration, atmosphere_ladder_takes_each_field_at_its_version) {
    const auto fill = [](auto& w) {
        w.temperature(20.5F);
        w.pressure(990.0F);
        w.rel_humidity(50.0F);
        w.rng_scale(1.0F);
        w.pressure_sl(1013.0F);
        w.group_velocity(299700000.0F);
    };
    fed_pointcloud cloud;
    cloud.feed<packets::atmosphere_2_writer>(fill);
    EXPECT_EQ(cloud.temperature, 20.5);
    EXPECT_EQ(cloud.pressure, 990.0);
    EXPECT_EQ(cloud.rel_humidity, 50.0);
    EXPECT_EQ(cloud.rng_scale, 1.0);
    EXPECT_EQ(cloud.pressure_sl, 1013.0);
    EXPECT_EQ(cloud.group_velocity, static_cast<double>(299700000.0F));
    EXPECT_EQ(cloud.attenuation, 0.0);
    EXPECT_TRUE(std::isnan(cloud.wavelength));
    cloud.feed<packets::atmosphere_4_writer>([&](auto& w) {
        fill(w);
        w.attenuation(0.5F);
        w.wavelength(1550.0F);
    });
    EXPECT_DOUBLE_EQ(cloud.attenuation, 0.0005);
    EXPECT_DOUBLE_EQ(cloud.wavelength, 1.55e-06);
}

TEST(pointcloud_calibration, earliest_atmosphere_sets_nothing) {
    fed_pointcloud cloud;
    cloud.feed<packets::atmosphere_1_writer>([](auto& w) { w.temperature(1.0F); });
    EXPECT_TRUE(std::isnan(cloud.temperature));
}

TEST(pointcloud_calibration,
     reflectance_table_takes_its_step_from_the_first_field_and_all_elements_as_entries) {
    fed_pointcloud cloud;
    cloud.units(0.001F);
    cloud.feed<packets::reftab_table_writer>(
        [](auto& w) {
            w.step_counter(4000);
            w.element(0, -250);
            w.element(1, 100);
            w.element(2, 7);
        },
        3);
    EXPECT_FLOAT_EQ(cloud.reftab_table.step, 16777216 * 0.001F / 4000);
    ASSERT_EQ(cloud.reftab_table.entries.size(), 3U);
    EXPECT_FLOAT_EQ(cloud.reftab_table.entries[0], 2.5F);
    EXPECT_FLOAT_EQ(cloud.reftab_table.entries[1], -1.0F);
    EXPECT_FLOAT_EQ(cloud.reftab_table.entries[2], -0.07F);
}

TEST(pointcloud_calibration, reflectance_table_interpolates_on_the_absolute_range) {
    fed_pointcloud cloud;
    feed_table(cloud);
    EXPECT_FLOAT_EQ(reflectance_at(cloud, 0), 0.0F);
    EXPECT_FLOAT_EQ(reflectance_at(cloud, 8), -0.5F);
    EXPECT_FLOAT_EQ(reflectance_at(cloud, -8), -0.5F);
    EXPECT_FLOAT_EQ(reflectance_at(cloud, 16), -1.0F);
    EXPECT_FLOAT_EQ(reflectance_at(cloud, 20), -1.5F);
}

TEST(pointcloud_calibration,
     reflectance_beyond_the_table_grows_by_6_02_dB_for_each_doubling_of_the_range) {
    fed_pointcloud cloud;
    feed_table(cloud);
    EXPECT_FLOAT_EQ(reflectance_at(cloud, 32), -3.0F);
    EXPECT_NEAR(reflectance_at(cloud, 64), -3.0 + 6.0206, 1e-4);
    EXPECT_NEAR(reflectance_at(cloud, 128), -3.0 + 2 * 6.0206, 1e-4);
}

TEST(pointcloud_calibration, laser_echoes_pass_the_reflectance_table_by) {
    fed_pointcloud cloud;
    feed_table(cloud);
    cloud.shot(1);
    cloud.feed<packets::laser_echo_writer>([](auto& w) { w.range_counter(64); });
    cloud.frame_stop();
    EXPECT_TRUE(std::isnan(cloud.reported[0].reflectance));
}

TEST(pointcloud_calibration, device_geometry_builds_a_mirror_wheel_in_the_present_units) {
    fed_pointcloud cloud;
    cloud.units(0.5F, 1000);
    cloud.geometry();
    ASSERT_EQ(cloud.mechs.size(), 1U);
    const auto& wheel = dynamic_cast<const mirrorwheel&>(*cloud.mechs[0]);
    EXPECT_EQ(wheel.laser_direction, (vector3{0, 0, 1}));
    EXPECT_EQ(wheel.laser_origin, (vector3{0.25, 0, 0}));
    EXPECT_EQ(wheel.mirror_axis_direction, (vector3{1, 0, 0}));
    EXPECT_EQ(wheel.line_angle_0, 10);
    ASSERT_EQ(wheel.facets.size(), 2U);
    EXPECT_EQ(wheel.facets[1].dist, 0.125);
    EXPECT_EQ(wheel.range_unit, 0.5);
    EXPECT_EQ(wheel.line_circle_count, 1000U);
    // The beam of the present counts is there at once, and the units stay when new ones come.
    EXPECT_NE(cloud.beam_direction, (vector3{0, 0, 0}));
    cloud.units(0.25F, 2000);
    EXPECT_EQ(wheel.range_unit, 0.5);
    EXPECT_EQ(wheel.line_circle_count, 1000U);
}

TEST(pointcloud_calibration, device_geometry_without_facets_says_so) {
    fed_pointcloud cloud;
    EXPECT_THROW(cloud.feed<packets::device_geometry_writer>([](auto&) {}, 0), scanlib_exception);
    EXPECT_EQ(cloud.mechs.size(), 0U);
}

TEST(pointcloud_calibration, number_of_geometries_is_bounded) {
    fed_pointcloud cloud;
    for (std::size_t i = 0; i < pointcloud::geometry_limit; ++i) {
        cloud.geometry();
    }
    EXPECT_THROW(cloud.geometry(), scanlib_exception);
}

TEST(pointcloud_calibration, scan_segments_keep_their_first_field) {
    fed_pointcloud cloud;
    const std::uint32_t words[] = {0xFFFFFFFF, 105U << 16, 3, 99};
    cloud.dispatch(words, words + 4);
    EXPECT_EQ(cloud.scan_segments, 3U);
    cloud.dispatch(words, words + 2);
    EXPECT_EQ(cloud.scan_segments, 0U);
}
