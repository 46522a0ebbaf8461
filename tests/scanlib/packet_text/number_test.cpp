// Numbers in the text, against what the C library and the streams make of them.
#include <bit>
#include <cmath>
#include <cstdio>
#include <iomanip>
#include <limits>
#include <locale>
#include <random>

#include <gtest/gtest.h>

#include "scanlib/packet_text/text_of.hpp"

namespace {

using test_support::packet_words;
using test_support::read_text;
using test_support::text_of;

constexpr scanlib::packet_id notch_filter{84, 0};    ///< three f32
constexpr scanlib::packet_id scanner_pose_hr{72, 0}; ///< four f64 and more

std::string printed(const char* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

packet_words floats(float a, float b, float c) {
    return {std::bit_cast<std::uint32_t>(a), std::bit_cast<std::uint32_t>(b),
            std::bit_cast<std::uint32_t>(c)};
}

TEST(NumberText, FloatsAreScientificWithSixteenDigits) {
    std::mt19937_64 random(5);
    for (int i = 0; i < 20000; ++i) {
        const auto a = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
        const auto d = std::bit_cast<double>(random());
        packet_words body(16);
        std::memcpy(body.data(), &d, sizeof d);
        body[8] = std::bit_cast<std::uint32_t>(a);
        const auto fields =
            scanlib::packet_fields(scanner_pose_hr, body.data(), body.data() + body.size());
        ASSERT_EQ(fields[0], printed("%.16e", d));
        ASSERT_EQ(fields[4], printed("%.16e", static_cast<double>(a)));
    }
}

TEST(NumberText, ZeroSubnormalAndExtremeFloatsKeepTheirBits) {
    using f = std::numeric_limits<float>;
    for (const float value : {0.0f, -0.0f, f::denorm_min(), -f::denorm_min(), f::min(), f::max(),
                              f::lowest(), std::nextafter(f::min(), 0.0f), f::epsilon()}) {
        const packet_words body = floats(value, 1, -value);
        EXPECT_EQ(read_text(text_of(notch_filter, body)).body, body) << value;
    }
    using d = std::numeric_limits<double>;
    for (const double value : {0.0, -0.0, d::denorm_min(), d::min(), d::max(), d::lowest(),
                               std::nextafter(d::min(), 0.0), 0.1}) {
        packet_words body(16);
        std::memcpy(body.data(), &value, sizeof value);
        EXPECT_EQ(read_text(text_of(scanner_pose_hr, body)).body, body) << value;
    }
}

TEST(NumberText, InfinityAndNaNPrintAsWordsAndDoNotReadBack) {
    const float infinity = std::numeric_limits<float>::infinity();
    const packet_words body = floats(infinity, -infinity, std::nanf(""));
    EXPECT_EQ(text_of(notch_filter, body), "notch_filter (84.0), inf, -inf, nan");
    EXPECT_FALSE(scanlib::text_holds_packet(notch_filter, body.data(), body.data() + 3));
    for (const char* value : {"inf", "-inf", "nan", "1e39"}) {
        const auto read = read_text("notch_filter (84.0), " + std::string(value) + ", 1.0, 1.0");
        EXPECT_TRUE(read.failed) << value;
        EXPECT_TRUE(read.body.empty());
    }
}

TEST(NumberText, OtherNotationsOfANumberAreReadToo) {
    EXPECT_EQ(read_text("notch_filter (84.0), 1, 5e-3,-.25").body, floats(1, 5e-3f, -.25f));
}

TEST(NumberText, IntegersKeepToTheirWidth) {
    // channeled_shot_echoes has fields of 32, 10 and 22 bits and elements of 32.
    EXPECT_FALSE(read_text("channeled_shot_echoes (158.0), 4294967295, 1023, 4194303, []").failed);
    for (const char* line :
         {"channeled_shot_echoes (158.0), 4294967296, 0, 0, []",
          "channeled_shot_echoes (158.0), -1, 0, 0, []",
          "channeled_shot_echoes (158.0), 0, 1024, 0, []",
          "channeled_shot_echoes (158.0), 0, 0, 4194304, []",
          "channeled_shot_echoes (158.0), 0, 0, 0, [4294967296]",
          "laser_echo (11.0), 2147483648, 0", "laser_echo (11.0), -2147483649, 0",
          "laser_echo (11.0), 0, 65536", "pps_sync_hr (70.0), 18446744073709551616, 0",
          "hk_gps_hr (10020.0), 0, 9223372036854775808"}) {
        EXPECT_TRUE(read_text(line).failed) << line;
    }
    EXPECT_EQ(read_text("laser_echo (11.0), -2147483648, 65535").body,
              (packet_words{0x80000000u, 0xFFFF}));
    EXPECT_EQ(read_text("pps_sync_hr (70.0), 18446744073709551615, 1").body,
              (packet_words{0xFFFFFFFF, 0xFFFFFFFF, 1, 0}));
}

TEST(NumberText, TheStreamGetsItsNotationBack) {
    std::ostringstream out;
    out << std::hex << std::fixed << std::setprecision(3);
    const auto flags = out.flags();
    const packet_words body = floats(1, 2, 3);
    scanlib::print_packet(out, notch_filter, body.data(), body.data() + 3);
    scanlib::print_packet(out, {9, 9}, body.data(), body.data() + 3);
    EXPECT_EQ(out.flags(), flags);
    EXPECT_EQ(out.precision(), 3);
    EXPECT_EQ(out.str(), "notch_filter (84.0), 1.0000000000000000e+00, 2.0000000000000000e+00, "
                         "3.0000000000000000e+00\n"
                         "unknown (9.9), 0x3f800000, 0x40000000, 0x40400000\n");
}

class grouped : public std::numpunct<char> {
    char do_thousands_sep() const override { return '\''; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(NumberText, TheStreamsOtherFlagsAndItsLocaleShapeTheNumbers) {
    const packet_words body{1234567, 0};
    std::ostringstream out;
    out << std::showpos << std::uppercase;
    scanlib::print_packet(out, {11, 0}, body.data(), body.data() + 2);
    scanlib::print_packet(out, {9, 9}, body.data(), body.data() + 1);
    EXPECT_EQ(out.str(), "laser_echo (11.0), +1234567, 0\nunknown (9.9), 0X12D687\n");
    std::ostringstream local;
    local.imbue(std::locale(std::locale::classic(), new grouped));
    scanlib::print_packet(local, {11, 0}, body.data(), body.data() + 2);
    EXPECT_EQ(local.str(), "laser_echo (11.0), 1'234'567, 0\n");
}

} // namespace
