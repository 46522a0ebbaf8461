#include "packet_feeder.hpp"
#include "scanlib/pointcloud.hpp"

#include <gtest/gtest.h>

#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>

using namespace scanlib;
using namespace scanlib::testing;

namespace {

const std::string header = "X, Y, Z, targetcount, time, echo_range, amplitude, reflectance, "
                           "deviation, lineend, red, green, blue, temperature\n";

/// A cloud that writes its rows, with counts of a range of 1/1024 m on a beam that is told.
struct writing_cloud : pointcloud {
    writing_cloud() : pointcloud(false) {
        packet_feeder(*this).feed<packets::units_4_writer>([](auto& w) {
            w.range_unit(1.0F / 1024);
            w.line_circle_count(4);
            w.frame_circle_count(4);
            w.systime_unit(1e-07F);
            w.ampl_refl_unit(1.0F / 128);
            w.systime_hr_unit(1e-12F);
            w.systime_hr_bits(49);
            w.utc_unit(1.0F / 1024);
        });
    }
    void shot(std::uint64_t utc, vector3 direction) {
        packet_feeder(*this).feed<packets::laser_shot_utctime_origin_direction_writer>(
            [&](auto& w) {
                w.utc_counter(utc);
                for (std::size_t i = 0; i < 3; ++i) {
                    w.direction(i, static_cast<std::int32_t>(direction[i] * 16384));
                }
            });
    }
    void echo(std::int32_t range, std::uint16_t amplitude = 1280, std::int16_t reflectance = -640,
              std::int16_t deviation = 3) {
        packet_feeder(*this).feed<packets::echo_writer>([&](auto& w) {
            w.range_counter(range);
            w.amplitude(amplitude);
            w.reflectance(reflectance);
            w.deviation(deviation);
        });
    }
    void stop() { packet_feeder(*this).feed<packets::line_stop_writer>(); }
    void calibrate(double factor) { range_unit = factor; }
};

} // namespace

TEST(pointcloud_text, rows_stand_under_their_header_to_the_letter) {
    std::ostringstream out;
    writing_cloud cloud;
    cloud.set_text_sink(&out);
    cloud.shot(2049, {0.5, -1, 0});
    cloud.echo(2560);
    cloud.echo(-1024, 12345, 32767, -32768);
    cloud.stop();
    EXPECT_EQ(out.str(), header + "      1.25,      -2.5,         0,0,2.0009765625,2.5,10,-5,3,0\n"
                                  "      -0.5,         1,         0,1,2.0009765625,-1,96.45,256,"
                                  "-3.277e+04,1\n");
}

TEST(pointcloud_text, numbers_have_the_digits_of_a_stream_of_that_precision) {
    std::ostringstream out;
    writing_cloud cloud;
    cloud.set_text_sink(&out);
    cloud.calibrate(0.0012345678901234);
    cloud.shot(123456789012, {1.0 / 3, 0.123456789, -1});
    cloud.echo(1234567, 4321, 1234, 17);
    cloud.stop();
    const double range = 1234567 * 0.0012345678901234;
    std::ostringstream expected;
    expected.imbue(std::locale::classic());
    expected << std::setprecision(8);
    // Directions are told in steps of 1/16384.
    for (const double component : {5461.0 / 16384, 2022.0 / 16384, -1.0}) {
        expected << std::setw(10) << static_cast<float>(range * component) << ',';
    }
    expected << std::setprecision(12) << 0 << ',' << 123456789012 / 1024.0 << ',' << range << ','
             << std::setprecision(4) << 4321 / 128.0F << ',' << 1234 / 128.0F << ',' << 17.0F << ','
             << 1 << '\n';
    EXPECT_EQ(out.str(), header + expected.str());
}

TEST(pointcloud_text, no_field_has_a_sign_or_a_digit_of_the_streams_own_state) {
    std::ostringstream out;
    out << std::hex << std::showpos << std::fixed << std::setfill('*') << std::setprecision(1);
    writing_cloud cloud;
    cloud.set_text_sink(&out);
    cloud.shot(1024, {1, 0, 0});
    for (int i = 0; i < 18; ++i) {
        cloud.echo(1024);
    }
    cloud.stop();
    EXPECT_NE(out.str().find("         1,         0,         0,17,1,1,10,-5,3,1\n"),
              std::string::npos);
}

TEST(pointcloud_text, sink_set_behind_the_first_echo_still_gets_a_header) {
    writing_cloud cloud;
    cloud.shot(1, {1, 0, 0});
    cloud.echo(1024);
    cloud.echo(1024);
    cloud.stop();
    std::ostringstream out;
    cloud.set_text_sink(&out);
    EXPECT_EQ(out.str(), "");
    cloud.shot(1024, {1, 0, 0});
    cloud.echo(1024);
    cloud.stop();
    EXPECT_EQ(out.str(), header + "         1,         0,         0,0,1,1,10,-5,3,1\n");
}

TEST(pointcloud_text, each_sink_gets_one_header) {
    writing_cloud cloud;
    std::ostringstream first;
    std::ostringstream second;
    for (std::ostringstream* sink : {&first, &second}) {
        cloud.set_text_sink(sink);
        for (int i = 0; i < 3; ++i) {
            cloud.shot(1024, {1, 0, 0});
            cloud.echo(1024);
            cloud.stop();
        }
    }
    EXPECT_EQ(first.str(), second.str());
    EXPECT_EQ(first.str().find(header), 0U);
    EXPECT_EQ(first.str().rfind(header), 0U);
    cloud.set_text_sink(nullptr);
    cloud.shot(1024, {1, 0, 0});
    cloud.echo(1024);
    cloud.stop();
    EXPECT_EQ(first.str(), second.str());
}

TEST(pointcloud_text, widest_numbers_fit_a_row) {
    std::ostringstream out;
    writing_cloud cloud;
    cloud.set_text_sink(&out);
    cloud.calibrate(-1.2345678901234e-300);
    cloud.shot(~std::uint64_t{0}, {-1.0 / 3, -1.0 / 3, -1.0 / 3});
    for (int i = 0; i < 1000; ++i) {
        cloud.echo(std::numeric_limits<std::int32_t>::max() - i, 65535, -32768, -32767);
    }
    cloud.calibrate(-1.2345678901234e+300);
    cloud.echo(std::numeric_limits<std::int32_t>::min());
    cloud.calibrate(std::numeric_limits<double>::quiet_NaN());
    cloud.echo(1);
    cloud.stop();
    std::istringstream rows(out.str());
    std::string row;
    std::size_t count = 0;
    while (std::getline(rows, row)) {
        EXPECT_EQ(std::count(row.begin(), row.end(), ','), count == 0 ? 13 : 9) << row;
        ++count;
    }
    EXPECT_EQ(count, 1003U);
    EXPECT_NE(out.str().find("inf,"), std::string::npos);
    EXPECT_NE(out.str().find("nan,"), std::string::npos);
}
