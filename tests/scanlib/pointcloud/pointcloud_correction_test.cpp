#include "recording_pointcloud.hpp"
#include "valid_streams.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace scanlib;
using namespace scanlib::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

/// A scanner whose units are powers of 2, so that sums of counts come out exactly: 1/1024 m, 1/128
/// dB.
struct exact_scanner : fed_pointcloud {
    static constexpr double range_step = 1.0 / 1024;

    exact_scanner() {
        feed<packets::units_1_writer>([](auto& w) {
            w.range_unit(static_cast<float>(range_step));
            w.line_circle_count(1024);
            w.frame_circle_count(1024);
            w.systime_unit(1e-07F);
            w.ampl_refl_unit(1.0F / 128);
        });
    }

    /// Entries 0, 256, 512 counts at 0, 5 and 10 dB, and one more that ends the table at 15 dB.
    void amplitude_table() {
        feed<packets::arange_table_writer>(
            [](auto& w) {
                w.step(5.0F);
                w.element(1, 256);
                w.element(2, 512);
                w.element(3, 1000);
            },
            4);
    }
    /// Entries 0, 0, 1 and 2 m at 0, 2, 4 and 6 m.
    void near_table() {
        feed<packets::nrange_table_writer>(
            [](auto& w) {
                w.element(2, 1024);
                w.element(3, 2048);
            },
            4);
    }
    void stored(const std::string& json) {
        feed<packets::rxp_parameters_writer>(
            [&](auto& w) {
                for (std::size_t i = 0; i < json.size(); ++i) {
                    w.element(i, static_cast<std::uint8_t>(json[i]));
                }
            },
            json.size());
    }
    /// Entries 0, -1, -3 and -7 dB at 0, 4, 8 and 12 m.
    void reflectance_table() {
        feed<packets::reftab_table_writer>(
            [](auto& w) {
                w.step_counter(4096);
                w.element(1, 128);
                w.element(2, 3 * 128);
                w.element(3, 7 * 128);
            },
            4);
    }
    /// 0 and 1 m (at 0 and 20 dB) at range 0; 2 and 4 m at range 16 m.
    void grid(std::uint16_t kind = 1) {
        feed<packets::calib_2D_table_writer>(
            [=](auto& w) {
                w.table_kind(kind);
                w.rows(2);
                w.columns(2);
                w.row_factor(8.0);
                w.row_offset(-8.0);
                w.column_factor(10.0);
                w.column_offset(-10.0);
                w.value_factor(0.5);
                w.value_offset(-1.0);
                const std::uint16_t raw[] = {1, 3, 1, 3, 2, 4, 6, 10};
                for (std::size_t i = 0; i < std::size(raw); ++i) {
                    w.element(i, raw[i]);
                }
            },
            8);
    }

    /// One echo of a shot; its target.
    target see(std::int32_t range, std::uint16_t amplitude = 1280, std::int16_t reflectance = 0) {
        shot(next_ += 100);
        echo(range, amplitude, reflectance);
        frame_stop();
        return reported.back();
    }

  private:
    std::uint32_t next_ = 0;
};

constexpr std::int32_t metres(double range) {
    return static_cast<std::int32_t>(range * 1024);
}

} // namespace

TEST(pointcloud_corrections, amplitude_table_adds_counts_before_the_unit) {
    exact_scanner scanner;
    scanner.amplitude_table();
    EXPECT_EQ(scanner.see(metres(5), 1279).echo_range, 5.25) << "just below 10 dB";
    EXPECT_EQ(scanner.see(metres(5), 1280).echo_range, 5.5);
    EXPECT_EQ(scanner.see(metres(5), 0).echo_range, 5.0);
    EXPECT_EQ(scanner.see(metres(5), 1919).echo_range, 5.5);
    EXPECT_EQ(scanner.see(metres(5), 1920).echo_range, 5.0) << "at the last entry it ends";
    EXPECT_EQ(scanner.see(metres(-5), 1280).echo_range, -4.5);
}

TEST(pointcloud_corrections, near_range_table_is_linear_and_ends_before_its_last_entry) {
    exact_scanner scanner;
    scanner.near_table();
    EXPECT_EQ(scanner.see(metres(5)).echo_range, 6.5);
    EXPECT_EQ(scanner.see(metres(5.75)).echo_range, 5.75 + 1.875);
    EXPECT_EQ(scanner.see(metres(2)).echo_range, 2.0);
    EXPECT_EQ(scanner.see(metres(6)).echo_range, 6.0);
    EXPECT_EQ(scanner.see(metres(-5)).echo_range, -5.0);
    EXPECT_EQ(scanner.see(0).echo_range, 0.0);
}

TEST(pointcloud_corrections, two_dimensional_table_is_bilinear_and_its_edges_go_on) {
    exact_scanner scanner;
    scanner.grid();
    // Half way in amplitude: 0.5 m at range 0, 3 m at 16 m.
    EXPECT_EQ(scanner.see(metres(4)).echo_range, 4 + 0.5 + 2.5 / 4);
    EXPECT_EQ(scanner.see(metres(100)).echo_range, 103.0);
    EXPECT_EQ(scanner.see(metres(-4)).echo_range, -3.5);
    EXPECT_EQ(scanner.see(metres(8), 0).echo_range, 9.0);
    EXPECT_EQ(scanner.see(metres(8), 5 * 1280).echo_range, 10.5);
    EXPECT_EQ(scanner.see(metres(100), 5 * 1280).echo_range, 104.0) << "the corner";
}

TEST(pointcloud_corrections, two_dimensional_table_of_another_kind_is_ignored) {
    exact_scanner scanner;
    scanner.near_table();
    for (const std::uint16_t kind : {std::uint16_t{0}, std::uint16_t{2}, std::uint16_t{257}}) {
        scanner.grid(kind);
        EXPECT_TRUE(scanner.calib_2d.empty());
        EXPECT_EQ(scanner.see(metres(5)).echo_range, 6.5) << "the near-range table stays";
    }
    scanner.near_table();
    EXPECT_EQ(scanner.see(metres(5)).echo_range, 6.5);
}

TEST(pointcloud_corrections,
     two_dimensional_table_drops_the_near_range_table_and_stops_later_ones) {
    exact_scanner scanner;
    scanner.near_table();
    scanner.grid();
    EXPECT_TRUE(scanner.nrange_table.empty());
    scanner.near_table();
    EXPECT_TRUE(scanner.nrange_table.empty());
    EXPECT_EQ(scanner.see(metres(4)).echo_range, 4 + 0.5 + 2.5 / 4);
}

TEST(pointcloud_corrections, two_dimensional_table_of_impossible_size_says_so_and_changes_nothing) {
    exact_scanner scanner;
    scanner.near_table();
    const std::string text = failure_of([&] {
        scanner.feed<packets::calib_2D_table_writer>(
            [](auto& w) {
                w.table_kind(1);
                w.rows(65535);
                w.columns(65535);
            },
            5);
    });
    EXPECT_THAT(text, ::testing::StartsWith("pointcloud::on_calib_2D_table: "));
    EXPECT_FALSE(scanner.calib_2d_active);
    EXPECT_EQ(scanner.see(metres(5)).echo_range, 6.5);
}

TEST(pointcloud_corrections, each_correction_works_on_what_the_ones_before_it_made) {
    exact_scanner scanner;
    scanner.amplitude_table();
    scanner.grid();
    scanner.reflectance_table();
    scanner.feed<packets::atmosphere_3_writer>([](auto& w) { w.attenuation(0.5F); });
    // The one way in which both tables of ranges are there.
    scanner.stored(R"({"pointcloud":{"nrange":[0,0,1,2],"nrange_delta":2,"delta_rg":0.25}})");
    const target t = scanner.see(metres(5), 1280, -640);
    const double raised = 5 + 0.5;           // 512 counts at 10 dB
    const double shifted = raised + 0.25;    // the offset
    const double near = shifted + 1 + 0.875; // 1.75 m behind the entry of 1 m at 4 m
    const double far = near + 0.5 + 2.5 * near / 16;
    EXPECT_EQ(t.echo_range, far);
    EXPECT_EQ(far, 9.31640625);
    const double tabled = -5.0 - 3.0 - 4.0 * (far - 8) / 4;
    const double nepers = far * 0.5 / 1000;
    EXPECT_NEAR(t.reflectance, tabled + nepers * 8.68589, 1e-6);
    EXPECT_EQ(t.amplitude, 10.0F) << "no correction touches the amplitude";
    EXPECT_FLOAT_EQ(t.vertex[2], static_cast<float>(far)) << "the point stands at the last range";
}

TEST(pointcloud_corrections, attenuation_in_decibels_is_that_of_power_and_comes_behind_the_table) {
    exact_scanner scanner;
    scanner.feed<packets::atmosphere_3_writer>([](auto& w) { w.attenuation(1.0F); });
    // exp(-2 alpha r) of the power over both ways, in decibels.
    const double db = -10 * std::log10(std::exp(-2 * 0.001 * 500));
    EXPECT_NEAR(scanner.see(metres(500)).reflectance, db, 1e-4);
    EXPECT_NEAR(scanner.see(metres(-500)).reflectance, db, 1e-4);
}

TEST(pointcloud_corrections, older_echoes_pass_all_tables_by) {
    exact_scanner scanner;
    scanner.amplitude_table();
    scanner.near_table();
    scanner.reflectance_table();
    scanner.shot(1);
    scanner.feed<packets::laser_echo_writer>([](auto& w) {
        w.range_counter(metres(5));
        w.amplitude(255);
    });
    scanner.feed<packets::laser_echo_sw_writer>([](auto& w) { w.range_counter(metres(5)); });
    scanner.frame_stop();
    ASSERT_EQ(scanner.reported.size(), 2U);
    EXPECT_EQ(scanner.reported[0].echo_range, 5.0);
    EXPECT_EQ(scanner.reported[1].echo_range, 5.0);
    EXPECT_EQ(scanner.reported[1].reflectance, 0.0F);
}

TEST(pointcloud_corrections, tables_are_taken_in_the_units_of_their_packet) {
    exact_scanner scanner;
    scanner.near_table();
    scanner.amplitude_table();
    EXPECT_EQ(scanner.nrange_table.step, 2.0F);
    EXPECT_THAT(scanner.nrange_table.entries, ElementsAre(0, 0, 1, 2));
    EXPECT_EQ(scanner.arange_table.step, 5.0F);
    EXPECT_THAT(scanner.arange_table.entries, ElementsAre(0, 256, 512, 1000));
    scanner.feed<packets::arange_table_writer>(
        [](auto& w) {
            w.step(1.0F);
            w.element(0, -32768);
            w.element(1, -1);
        },
        2);
    EXPECT_THAT(scanner.arange_table.entries, ElementsAre(-32768, -1)) << "signed";
}

TEST(pointcloud_corrections, calibration_curves_are_kept_by_their_number_and_replaced) {
    exact_scanner scanner;
    const auto curve = [&](double scale) {
        scanner.feed<packets::calib_table_writer>(
            [=](auto& w) {
                w.table_id(1000);
                w.x_factor(0.5);
                w.x_offset(10.0);
                w.y_factor(scale);
                w.y_offset(-1.0);
                w.element(0).x(2);
                w.element(0).y(65535);
                w.element(1).x(65535);
                w.element(1).y(4);
            },
            2);
    };
    curve(1.0);
    using pairs = calibration_curve::pairs_type;
    EXPECT_EQ(scanner.calib_tables.curve(1000).pairs(), (pairs{{11.0, 65534.0}, {32777.5, 3.0}}));
    curve(2.0);
    EXPECT_EQ(scanner.calib_tables.size(), 1U);
    EXPECT_EQ(scanner.calib_tables.curve(1000).pairs(), (pairs{{11.0, 131069.0}, {32777.5, 7.0}}));
}

TEST(pointcloud_corrections, notch_of_all_shots_rejects_weak_echoes_inside_it_with_both_its_ends) {
    exact_scanner scanner;
    scanner.feed<packets::notch_filter_writer>([](auto& w) {
        w.range_low(1.0F);
        w.range_high(2.0F);
        w.amplitude(5.0F);
    });
    scanner.shot(1);
    for (const std::int32_t range : {1023, 1024, 2048, 2049}) {
        scanner.echo(range, 640);
    }
    scanner.echo(1500, 641);
    scanner.frame_stop();
    EXPECT_EQ(scanner.log.count(loss::echo_in_notch), 2U);
    ASSERT_EQ(scanner.reported.size(), 3U);
    EXPECT_EQ(scanner.reported[0].echo_range, 1023.0 / 1024);
    EXPECT_EQ(scanner.reported[1].echo_range, 2049.0 / 1024);
    EXPECT_EQ(scanner.reported[2].echo_range, 1500.0 / 1024);
}

TEST(pointcloud_corrections, notch_rejects_by_the_raw_counter_ahead_of_every_correction) {
    exact_scanner scanner;
    scanner.amplitude_table();
    scanner.feed<packets::notch_filter_writer>([](auto& w) {
        w.range_low(1.0F);
        w.range_high(2.0F);
        w.amplitude(100.0F);
    });
    scanner.shot(1);
    scanner.echo(metres(1.75), 1280);
    scanner.echo(metres(0.75), 1280);
    scanner.frame_stop();
    ASSERT_EQ(scanner.reported.size(), 1U);
    EXPECT_EQ(scanner.reported[0].echo_range, 1.25);
}

TEST(pointcloud_corrections, notch_follows_new_units_from_the_next_shot_on) {
    exact_scanner scanner;
    scanner.feed<packets::notch_filter_writer>([](auto& w) {
        w.range_low(1.0F);
        w.range_high(2.0F);
        w.amplitude(5.0F);
    });
    scanner.units(0.5F);
    scanner.shot(1);
    for (const std::int32_t range : {1, 2, 4, 5}) {
        scanner.echo(range, 10);
    }
    scanner.frame_stop();
    EXPECT_EQ(scanner.log.count(loss::echo_in_notch), 2U);
    EXPECT_EQ(scanner.reported.size(), 2U);
}

TEST(pointcloud_corrections, notch_rejects_the_older_echoes_too_and_what_was_told_of_them_ahead) {
    exact_scanner scanner;
    scanner.feed<packets::notch_filter_writer>([](auto& w) {
        w.range_low(1.0F);
        w.range_high(2.0F);
        w.amplitude(1.0F);
    });
    const auto qualified = [&](std::int32_t range, std::uint8_t amplitude) {
        scanner.feed<packets::laser_echo_qual_writer>([&](auto& w) {
            w.range_counter(range);
            w.amplitude(amplitude);
            w.deviation(9);
            w.flags(5);
        });
    };
    scanner.shot(1);
    scanner.feed<packets::laser_echo_writer>([](auto& w) { w.range_counter(1500); });
    scanner.feed<packets::laser_echo_sw_writer>([](auto& w) { w.range_counter(1500); });
    qualified(1500, 100);
    EXPECT_EQ(scanner.log.count(loss::echo_in_notch), 3U) << "the ladder of one packet counts once";
    scanner.feed<packets::laser_echo_writer>([](auto& w) { w.range_counter(3000); });
    qualified(1500, 200);
    scanner.frame_stop();
    ASSERT_EQ(scanner.reported.size(), 2U);
    EXPECT_EQ(scanner.reported[0].deviation, 0.0F) << "that of a rejected echo is not kept";
    EXPECT_EQ(scanner.reported[1].deviation, 9.0F) << "strong enough";
    EXPECT_EQ(scanner.reported[1].is_rising, 1);
    EXPECT_EQ(scanner.reported[1].is_pseudo, 1);
}

namespace {

/// A scanner with notch windows by angle: over the turn the centre runs from 1 m to 3 m, half as
/// wide as 0.25 m, for echoes up to 6 dB. The circle has 1024 counts, that is 4 windows.
struct angular_scanner : exact_scanner {
    angular_scanner() {
        geometry();
        feed<packets::notch_filter_modification_parameters_writer>([](auto& w) {
            w.angle_offset(0.5F);
            w.width_offset(0.125F);
            w.width_scale(0.125F);
            w.ampl_offset(0.25F);
            w.ampl_scale(2.0F);
        });
    }
    /// A curve through (0, `first`) and (360, `last`).
    void curve(std::uint16_t id, std::uint16_t first, std::uint16_t last) {
        feed<packets::calib_table_writer>(
            [=](auto& w) {
                w.table_id(id);
                w.x_factor(360.0);
                w.y_factor(1.0);
                w.element(0).y(first);
                w.element(1).x(1);
                w.element(1).y(last);
            },
            2);
    }
    void curves(std::uint16_t id) {
        curve(14, 1, 1);
        curve(15, 2, 2);
        curve(id, 1, 3);
        curve(static_cast<std::uint16_t>(id + 1), 1, 1);
    }
    /// Whether an echo is kept.
    bool keeps(std::uint32_t line, std::uint32_t frame, double range, double amplitude) {
        const std::size_t before = reported.size();
        shot(next_ += 100, line, frame);
        echo(metres(range), static_cast<std::uint16_t>(amplitude * 128));
        frame_stop();
        return reported.size() != before;
    }
    /// Expects the window of which the angle of the circle is `angle`, where it stands and how
    /// strong it reaches: 2 * 2 + (0.5 + 1) + 0.25 dB.
    void expect_window(std::uint32_t line, std::uint32_t frame, double angle) {
        const double centre = 1 + 2 * angle / 360;
        EXPECT_FALSE(keeps(line, frame, centre - 0.25, 5.75));
        EXPECT_FALSE(keeps(line, frame, centre + 0.25, 5.75));
        EXPECT_TRUE(keeps(line, frame, centre - 0.26, 5.75));
        EXPECT_TRUE(keeps(line, frame, centre + 0.26, 5.75));
        EXPECT_TRUE(keeps(line, frame, centre, 5.76));
    }

  private:
    std::uint32_t next_ = 0;
};

} // namespace

TEST(pointcloud_corrections, notch_by_line_angle_has_a_window_for_each_256_counts) {
    angular_scanner scanner;
    scanner.curves(20);
    scanner.expect_window(0, 999, 0);
    scanner.expect_window(255, 0, 0);
    scanner.expect_window(256, 0, 90);
    scanner.expect_window(700, 0, 180);
    scanner.expect_window(1023, 0, 270);
}

TEST(pointcloud_corrections, notch_by_frame_angle_stands_in_where_no_line_curve_is) {
    angular_scanner scanner;
    scanner.curves(30);
    scanner.expect_window(0, 0, 0);
    scanner.expect_window(999, 300, 90);
    scanner.expect_window(0, 800, 270);
}

TEST(pointcloud_corrections, notch_curve_20_wins_when_both_20_and_30_are_present) {
    angular_scanner scanner;
    scanner.curves(30);
    scanner.curves(20);
    scanner.curve(30, 7, 7);
    scanner.expect_window(512, 0, 180);
    EXPECT_TRUE(scanner.keeps(512, 0, 7, 1));
}

TEST(pointcloud_corrections,
     notch_curve_20_without_21_fails_when_the_measurement_starts_and_not_before) {
    for (const std::uint16_t missing : {std::uint16_t{21}, std::uint16_t{14}, std::uint16_t{15}}) {
        angular_scanner scanner;
        for (const std::uint16_t id :
             {std::uint16_t{14}, std::uint16_t{15}, std::uint16_t{20}, std::uint16_t{21}}) {
            if (id != missing) {
                EXPECT_NO_THROW(scanner.curve(id, 1, 1));
            }
        }
        const std::string complaint =
            "pointcloud::on_check_parameters_before_measurement_starting: inconsistent angle "
            "notchfilter tables";
        EXPECT_EQ(failure_of([&] { scanner.feed<packets::meas_start_writer>(); }), complaint);
        EXPECT_FALSE(scanner.measurement_started);
        EXPECT_EQ(failure_of([&] { scanner.shot(1); }), complaint);
        EXPECT_THAT(scanner.shots, IsEmpty());
        scanner.curve(missing, 1, 1);
        scanner.shot(2);
        EXPECT_EQ(scanner.shots.size(), 1U);
    }
}

TEST(pointcloud_corrections, notch_curve_20_without_21_fails_even_where_30_is_whole) {
    angular_scanner scanner;
    scanner.curves(30);
    scanner.curve(20, 1, 1);
    EXPECT_NE(failure_of([&] { scanner.shot(1); }), "no failure");
}

TEST(pointcloud_corrections, notch_curves_without_a_geometry_have_no_effect) {
    exact_scanner scanner;
    scanner.feed<packets::calib_table_writer>([](auto& w) { w.table_id(20); }, 1);
    scanner.shot(1);
    EXPECT_EQ(scanner.shots.size(), 1U);
    EXPECT_FALSE(scanner.notch.active());
}

TEST(pointcloud_corrections, notch_by_angle_is_that_of_the_first_geometry) {
    angular_scanner scanner;
    scanner.units(static_cast<float>(exact_scanner::range_step), 4096);
    scanner.geometry();
    scanner.feed<packets::units_1_writer>([](auto& w) {
        w.range_unit(static_cast<float>(exact_scanner::range_step));
        w.line_circle_count(4096);
        w.frame_circle_count(4096);
        w.systime_unit(1e-07F);
        w.ampl_refl_unit(1.0F / 128);
    });
    scanner.curves(20);
    scanner.expect_window(256, 0, 90);
}

TEST(pointcloud_corrections, modulated_pulses_tell_their_intervals) {
    exact_scanner scanner;
    scanner.feed<packets::pulse_position_modulation_writer>(
        [](auto& w) {
            w.pulse_num_mod_ampl(513);
            w.element(0, 0.5F);
            w.element(1, 0.25F);
        },
        2);
    EXPECT_EQ(scanner.pulse_num_mod_ampl, 513U);
    EXPECT_EQ(scanner.pulse_code_phase_mode, 0U);
    EXPECT_THAT(scanner.intervals, ElementsAre(0.5, 0.25));
    scanner.feed<packets::pulse_position_modulation_1_writer>(
        [](auto& w) {
            w.pulse_num_mod_ampl(7);
            w.pulse_code_phase_mode(8);
            w.pulse_phase_step(9);
            w.element(0, 0.125F);
        },
        1);
    EXPECT_EQ(scanner.pulse_num_mod_ampl, 7U);
    EXPECT_EQ(scanner.pulse_code_phase_mode, 8U);
    EXPECT_EQ(scanner.pulse_phase_step, 9U);
    EXPECT_THAT(scanner.intervals, ElementsAre(0.125));
    scanner.feed<packets::m_sequence_mta_writer>([](auto& w) { w.interval_count(3); });
    EXPECT_EQ(scanner.pulse_num_mod_ampl, 2U);
    EXPECT_EQ(scanner.pulse_phase_step, 9U) << "left alone";
    ASSERT_EQ(scanner.intervals.size(), 3U);
    for (const double interval : scanner.intervals) {
        EXPECT_TRUE(std::isnan(interval));
    }
}
