#include "scanlib/notch_filter.hpp"

#include "scanlib/scanlib_exception.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <limits>
#include <string>

namespace {

using scanlib::calibration_tables;
using scanlib::notch_filter;
using scanlib::notch_modification;
using limits_type = notch_filter::limits_type;

constexpr float nan32 = std::numeric_limits<float>::quiet_NaN();
constexpr float inf32 = std::numeric_limits<float>::infinity();
constexpr std::int32_t low32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t high32 = std::numeric_limits<std::int32_t>::max();

constexpr notch_filter::units_type units{0.001, 0.01};

/// Curves whose windows can be told by hand: centre angle / 100 m, place angle / 10, half width
/// before scaling 0.25 m, amplitude before scaling place / 2 dB.
calibration_tables line_curves(std::uint16_t id = 20) {
    calibration_tables t;
    t.set(id, {{0, 0}, {360, 3.6}});
    t.set(static_cast<std::uint16_t>(id + 1), {{0, 0}, {360, 36}});
    t.set(14, {{0, 0.25}, {1, 0.25}});
    t.set(15, {{0, 0}, {100, 50}});
    return t;
}

TEST(notch_filter, nothing_is_rejected_before_a_notch_is_known) {
    notch_filter notch;
    notch.start_shot(0, 0, units);
    EXPECT_FALSE(notch.active());
    EXPECT_FALSE(notch.rejects(0, 0));
    EXPECT_FALSE(notch.rejects(1000, 65535));
    EXPECT_EQ(notch.limits(), (limits_type{0, 2147483647, 65535}));
}

TEST(notch_filter, static_window_rejects_ranges_inside_up_to_its_amplitude) {
    notch_filter notch;
    notch.set_static(1.0F, 2.0F, 5.0F, units);
    notch.start_shot(0, 0, units);
    EXPECT_EQ(notch.limits(), (limits_type{1000, 2000, 500}));
    EXPECT_TRUE(notch.rejects(1500, 500));
    EXPECT_TRUE(notch.rejects(1000, 0));
    EXPECT_TRUE(notch.rejects(2000, 0));
    EXPECT_FALSE(notch.rejects(999, 0));
    EXPECT_FALSE(notch.rejects(2001, 0));
    EXPECT_FALSE(notch.rejects(1500, 501));
}

TEST(notch_filter, static_window_holds_from_the_packet_on) {
    notch_filter notch;
    notch.set_static(1.0F, 2.0F, 5.0F, units);
    EXPECT_TRUE(notch.rejects(1500, 500));
}

TEST(notch_filter, counts_are_rounded_by_half_a_count_then_cut) {
    notch_filter notch;
    const notch_filter::units_type one{1, 1};
    notch.set_static(1.5F, 2.25F, 7.75F, one);
    EXPECT_EQ(notch.limits(), (limits_type{2, 2, 8}));
    // Towards zero, so that a negative length goes up.
    notch.set_static(-1.75F, -0.75F, 0.25F, one);
    EXPECT_EQ(notch.limits(), (limits_type{-1, 0, 0}));
}

TEST(notch_filter, static_window_follows_the_units_from_shot_to_shot) {
    notch_filter notch;
    notch.set_static(1.0F, 2.0F, 5.0F, {1, 1});
    EXPECT_EQ(notch.limits(), (limits_type{1, 2, 5}));
    notch.start_shot(0, 0, units);
    EXPECT_EQ(notch.limits(), (limits_type{1000, 2000, 500}));
    notch.start_shot(0, 0, {0.5, 0.25});
    EXPECT_EQ(notch.limits(), (limits_type{2, 4, 20}));
}

TEST(notch_filter, odd_lengths_and_units_saturate) {
    notch_filter notch;
    notch.set_static(-inf32, inf32, inf32, units);
    EXPECT_EQ(notch.limits(), (limits_type{low32, high32, 65535}));
    notch.set_static(nan32, nan32, nan32, units);
    EXPECT_EQ(notch.limits(), (limits_type{0, 0, 0}));
    notch.set_static(-1.0F, 1.0F, -1.0F, {0, 0});
    EXPECT_EQ(notch.limits(), (limits_type{low32, high32, 0}));
    notch.start_shot(0, 0, {double{nan32}, double{nan32}});
    EXPECT_EQ(notch.limits(), (limits_type{0, 0, 0}));
    notch.start_shot(0, 0, {double{nan32}, double{nan32}});
    EXPECT_EQ(notch.limits(), (limits_type{0, 0, 0}));
}

TEST(notch_filter, without_curve_20_and_30_nothing_changes) {
    calibration_tables curves;
    curves.set(14, {{0, 1}});
    curves.set(15, {{0, 1}});
    curves.set(21, {{0, 1}});
    notch_filter notch;
    notch.set_angular(curves, 3600, 3600, units);
    EXPECT_FALSE(notch.active());
    notch.set_static(1.0F, 2.0F, 5.0F, units);
    notch.set_angular(curves, 3600, 3600, units);
    notch.start_shot(0, 0, units);
    EXPECT_EQ(notch.limits(), (limits_type{1000, 2000, 500}));
}

TEST(notch_filter, windows_by_line_angle_are_as_worked_out_by_hand) {
    notch_filter notch;
    // 256 * 36 counts: windows of 10 degrees.
    notch.set_angular(line_curves(), 256 * 36, 1, units);
    // Window 9 at 90 degrees: place 9, centre 0.9 m, half width 0.25 * 8 + 0.1 = 2.1 m,
    // amplitude 4.5 * 4 + 9 + 1 = 28 dB.
    notch.start_shot(9 * 256, 12345, units);
    EXPECT_EQ(notch.limits(), (limits_type{-1199, 3000, 2800}));
    EXPECT_TRUE(notch.rejects(3000, 2800));
    EXPECT_FALSE(notch.rejects(3001, 2800));
    notch.start_shot(9 * 256 + 255, 0, units);
    EXPECT_EQ(notch.limits(), (limits_type{-1199, 3000, 2800}));
    notch.start_shot(10 * 256, 0, units);
    EXPECT_EQ(notch.limits().range_high, 3100);
    notch.start_shot(9 * 256, 0, units);
    EXPECT_EQ(notch.limits().range_high, 3000) << "a line that comes again";
}

TEST(notch_filter, windows_by_frame_angle_follow_the_frame_counter) {
    notch_filter notch;
    notch.set_angular(line_curves(30), 1, 256 * 36, units);
    notch.start_shot(12345, 9 * 256, units);
    EXPECT_EQ(notch.limits(), (limits_type{-1199, 3000, 2800}));
}

TEST(notch_filter, line_curves_win_when_frame_curves_are_there_too) {
    calibration_tables curves = line_curves(20);
    curves.set(30, {{0, 100}});
    curves.set(31, {{0, 100}});
    notch_filter notch;
    notch.set_angular(curves, 256 * 36, 256 * 36, units);
    notch.start_shot(9 * 256, 0, units);
    EXPECT_EQ(notch.limits().range_high, 3000);
}

TEST(notch_filter, windows_by_angle_win_over_the_static_one) {
    notch_filter notch;
    notch.set_static(100.0F, 200.0F, 5.0F, units);
    notch.set_angular(line_curves(), 256 * 36, 1, units);
    notch.start_shot(9 * 256, 0, units);
    EXPECT_EQ(notch.limits().range_high, 3000);
    notch.set_static(100.0F, 200.0F, 5.0F, units);
    notch.start_shot(10 * 256, 0, units);
    EXPECT_EQ(notch.limits().range_high, 3100);
}

TEST(notch_filter, any_missing_curve_of_the_four_is_an_error) {
    for (const std::uint16_t id : std::initializer_list<std::uint16_t>{20, 30}) {
        for (const int missing : {id + 1, 14, 15}) {
            const calibration_tables all = line_curves(id);
            calibration_tables curves;
            for (const int kept : {id + 0, id + 1, 14, 15}) {
                if (kept != missing) {
                    curves.set(static_cast<std::uint16_t>(kept),
                               all.curve(static_cast<std::uint16_t>(kept)).pairs());
                }
            }
            notch_filter notch;
            try {
                notch.set_angular(curves, 3600, 3600, units);
                FAIL() << "nothing was thrown without curve " << missing;
            } catch (const scanlib::scanlib_exception& e) {
                EXPECT_NE(std::string(e.what()).find(
                              "pointcloud::on_check_parameters_before_measurement_starting: "
                              "inconsistent angle notchfilter tables"),
                          std::string::npos);
            }
            EXPECT_FALSE(notch.active());
        }
    }
}

TEST(notch_filter, line_curve_without_its_place_fails_though_frame_curves_are_whole) {
    calibration_tables curves = line_curves(30);
    curves.set(20, {{0, 0}});
    notch_filter notch;
    EXPECT_THROW(notch.set_angular(curves, 3600, 3600, units), scanlib::scanlib_exception);
}

TEST(notch_filter, modification_has_its_defaults_and_is_taken_with_the_curves) {
    notch_filter notch;
    EXPECT_EQ(notch.modification().angle_offset, 0.0);
    EXPECT_EQ(notch.modification().width_offset, 0.1);
    EXPECT_EQ(notch.modification().width_scale, 8.0);
    EXPECT_EQ(notch.modification().ampl_offset, 1.0);
    EXPECT_EQ(notch.modification().ampl_scale, 4.0);
    notch.set_modification({3, 0.5, 2, 10, 6});
    notch.set_angular(line_curves(), 256 * 36, 1, units);
    notch.set_modification({});
    // At 90 degrees: place 3 + 9 = 12, half width 0.25 * 2 + 0.5 = 1 m,
    // amplitude 6 * 6 + 12 + 10 = 58 dB.
    notch.start_shot(9 * 256, 0, units);
    EXPECT_EQ(notch.limits(), (limits_type{-99, 1900, 5800}));
}

TEST(notch_filter, units_of_the_windows_by_angle_are_those_at_the_start) {
    notch_filter notch;
    notch.set_angular(line_curves(), 256 * 36, 1, units);
    notch.start_shot(9 * 256, 0, {1, 1});
    EXPECT_EQ(notch.limits().range_high, 3000);
}

TEST(notch_filter, counter_beyond_the_circle_takes_the_last_window) {
    notch_filter notch;
    notch.set_angular(line_curves(), 256 * 36, 1, units);
    notch.start_shot(36 * 256, 0, units);
    const limits_type last = notch.limits();
    EXPECT_EQ(last.range_high, 5700); // 3.6 m + 2.1 m
    notch.start_shot(37 * 256, 0, units);
    EXPECT_EQ(notch.limits(), last);
    notch.start_shot(0xFFFFFFFF, 0, units);
    EXPECT_EQ(notch.limits(), last);
}

TEST(notch_filter, circle_below_256_counts_has_the_one_window_of_angle_zero) {
    for (const std::uint32_t count : {0u, 1u, 255u}) {
        notch_filter notch;
        notch.set_angular(line_curves(), count, 1, units);
        for (const std::uint32_t counter : {0u, 255u, 256u, 0xFFFFFFFFu}) {
            notch.start_shot(counter, 0, units);
            EXPECT_EQ(notch.limits(), (limits_type{-2099, 2100, 100})) << counter;
        }
    }
}

TEST(notch_filter, largest_circle_costs_no_table) {
    notch_filter notch;
    notch.set_angular(line_curves(), 0xFFFFFFFF, 1, units);
    // Half the circle, up to the width of a window.
    notch.start_shot(0x7FFFFFFF, 0, units);
    EXPECT_EQ(notch.limits().range_high, 3900); // 1.8 m + 2.1 m
}

TEST(notch_filter, curves_without_values_reject_nothing_but_the_zero_counter) {
    calibration_tables curves;
    for (const std::uint16_t id : std::initializer_list<std::uint16_t>{14, 15, 20, 21}) {
        curves.set(id, {});
    }
    notch_filter notch;
    notch.set_angular(curves, 256 * 36, 1, units);
    notch.start_shot(512, 0, units);
    EXPECT_EQ(notch.limits(), (limits_type{0, 0, 0}));
    EXPECT_FALSE(notch.rejects(1, 0));
    EXPECT_FALSE(notch.rejects(0, 1));
}

TEST(notch_filter, each_window_agrees_with_the_formula_worked_out_for_a_whole_table) {
    // Quadratic curves with a knot at each degree.
    calibration_tables curves;
    scanlib::calibration_curve::pairs_type centre;
    scanlib::calibration_curve::pairs_type place;
    scanlib::calibration_curve::pairs_type width;
    scanlib::calibration_curve::pairs_type strength;
    for (int i = 0; i <= 360; ++i) {
        centre.emplace_back(i, 1 + 1e-5 * i * i);
        place.emplace_back(i, 1e-4 * i * (360 - i));
        width.emplace_back(i, 0.01 * i);
        strength.emplace_back(i, 5 - 0.01 * i);
    }
    curves.set(20, centre);
    curves.set(21, place);
    curves.set(14, width);
    curves.set(15, strength);
    notch_filter notch;
    notch.set_angular(curves, 256 * 360, 1, units);
    // With a window a degree, centre and place are read at their knots; width and strength are
    // lines in the place.
    for (std::uint32_t i = 0; i <= 360; ++i) {
        notch.start_shot(256 * i + i % 256, 0, units);
        const double x = 1e-4 * i * (360.0 - i);
        const double half = 0.01 * x * 8 + 0.1;
        const double c = 1 + 1e-5 * i * i;
        EXPECT_NEAR(notch.limits().range_low, 1000 * (c - half), 1.001) << i;
        EXPECT_NEAR(notch.limits().range_high, 1000 * (c + half), 0.501) << i;
        EXPECT_NEAR(notch.limits().ampl_max, 100 * ((5 - 0.01 * x) * 4 + x + 1), 0.501) << i;
    }
}

} // namespace
