// Every field of the key and frame packets, against bits put together by hand.
#include "expansion_recorder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace scanlib;
using scanlib::testing::bit_text;
using scanlib::testing::expansion_recorder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr packet_id key_shot{45, 0};
constexpr packet_id frame_shot{46, 0};
constexpr packet_id key_echo{47, 0};
constexpr packet_id frame_echo{48, 0};
constexpr packet_id key_shot_rad{51, 0};
constexpr packet_id frame_shot_rad{52, 0};
constexpr packet_id key_shot_hr{63, 0};
constexpr packet_id key_shot_hr_mta{63, 1};
constexpr packet_id frame_shot_hr{64, 0};
constexpr packet_id key_echo_hr{65, 0};
constexpr packet_id frame_echo_hr{66, 0};
constexpr packet_id key_echo_hr_1{92, 0};
constexpr packet_id frame_echo_hr_1{93, 0};

bit_text plain_key(std::int64_t time, std::int64_t count, std::int64_t line, std::int64_t frame) {
    return bit_text(3).put(0, 32, time).put(32, 8, count).put(40, 24, line).put(64, 32, frame);
}

bit_text hr_key(std::int64_t time, std::int64_t count, std::int64_t line, std::int64_t frame) {
    return bit_text(4).put(0, 64, time).put(64, 8, count).put(72, 24, line).put(96, 32, frame);
}

bit_text echo_key(std::int64_t range, std::int64_t amplitude, std::int64_t third,
                  std::int64_t flags, std::int64_t deviation) {
    return bit_text(3)
        .put(0, 32, range)
        .put(32, 16, amplitude)
        .put(48, 16, third)
        .put(64, 16, flags)
        .put(80, 16, deviation);
}

} // namespace

TEST(KeyFrameLayout, PlainKeyShot) {
    expansion_recorder r;
    EXPECT_THAT(r.run(key_shot, plain_key(0xFEDCBA98, 0, 0xABCDEF, 0x89ABCDEF)),
                ElementsAre("2angles 2309737967", "1angle 11259375", "shot 4275878552"));
}

TEST(KeyFrameLayout, PlainKeyShotOwesTheEchoesOfItsCount) {
    expansion_recorder r;
    r.run(key_shot, plain_key(1, 2, 3, 4));
    EXPECT_THAT(r.run(key_echo, echo_key(10, 1, 1, 1, 1)), ElementsAre("echo 10 1 1 1 1"));
    EXPECT_THAT(r.run(key_echo, echo_key(11, 1, 1, 1, 1)), ElementsAre("echo 11 1 1 1 1"));
    EXPECT_THAT(r.run(key_echo, echo_key(12, 1, 1, 1, 1)), IsEmpty());
}

TEST(KeyFrameLayout, RadKeyShot) {
    expansion_recorder r;
    EXPECT_THAT(r.run(key_shot_rad, plain_key(5, 0, 0xABCDEF, 7).put(96, 16, 0xFEDC)),
                ElementsAre("rad 5 11259375 7 65244"));
}

TEST(KeyFrameLayout, HrKeyShot) {
    expansion_recorder r;
    EXPECT_THAT(r.run(key_shot_hr, hr_key(0x0123456789ABCDEF, 0, 0xABCDEF, 0xFFFFFFFE)),
                ElementsAre("hr 81985529216486895 11259375 4294967294"));
}

TEST(KeyFrameLayout, HrMtaKeyShotRunsAsItsVersionZero) {
    expansion_recorder r;
    EXPECT_THAT(r.run(key_shot_hr_mta, hr_key(9, 0, 8, 7).put(128, 32, 0xFFFFFFFF)),
                ElementsAre("hr 9 8 7"));
}

TEST(KeyFrameLayout, PlainFrameShot) {
    expansion_recorder r;
    r.run(key_shot, plain_key(1000, 0, 2000, 3000));
    // One shot of the fixed part, then two with the corrections -1, -16, 15 and 1, 15, -16. The
    // last half word closes.
    const bit_text frame = bit_text(3)
                               .put(0, 8, 200)
                               .put(8, 8, 0)
                               .put(16, 16, -300)
                               .put(32, 16, 400)
                               .put(48, 2, -1)
                               .put(50, 5, -16)
                               .put(55, 5, 15)
                               .put(60, 4, 0)
                               .put(64, 2, 1)
                               .put(66, 5, 15)
                               .put(71, 5, -16)
                               .put(76, 4, 0)
                               .put(80, 16, 2);
    EXPECT_THAT(r.run(frame_shot, frame), ElementsAre("2angles 3400", "1angle 1700", "shot 1200", //
                                                      "2angles 3815", "1angle 1384", "shot 1399", //
                                                      "2angles 4199", "1angle 1099", "shot 1600"));
}

TEST(KeyFrameLayout, PlainFrameShotCountsItsEchoes) {
    expansion_recorder r;
    r.run(key_shot, plain_key(1000, 0, 2000, 3000));
    const bit_text frame = bit_text(2).put(8, 8, 2).put(48, 2, 0).put(60, 4, 15);
    r.run(frame_shot, frame);
    // 2 echoes, the three calls of the second shot, 15 echoes; three are left over.
    EXPECT_EQ(r.run(frame_echo, bit_text(40)).size(), 20u);
}

TEST(KeyFrameLayout, FrameShotElementWithTheClosingPatternEndsTheList) {
    expansion_recorder r;
    r.run(key_shot, plain_key(0, 0, 0, 0));
    const bit_text frame =
        bit_text(4).put(0, 8, 10).put(48, 2, 0).put(64, 2, -2).put(80, 2, 0).put(96, 2, 0);
    EXPECT_THAT(r.run(frame_shot, frame), ElementsAre("2angles 0", "1angle 0", "shot 10", //
                                                      "2angles 0", "1angle 0", "shot 20"));
}

TEST(KeyFrameLayout, RadFrameShotReadsTheLowHalfOfItsElements) {
    expansion_recorder r;
    r.run(key_shot_rad, plain_key(100, 0, 200, 300).put(96, 16, 1));
    const bit_text frame = bit_text(4)
                               .put(0, 8, 255)
                               .put(16, 16, -32768)
                               .put(32, 16, 32767)
                               .put(48, 16, 0xABCD)
                               .put(64, 2, 1)
                               .put(66, 5, -1)
                               .put(71, 5, 1)
                               .put(80, 16, 0xFFFF)
                               .put(96, 2, -2);
    EXPECT_THAT(r.run(frame_shot_rad, frame),
                ElementsAre("rad 355 4294934728 33067 43981", "rad 611 4294901959 65835 43981"));
}

TEST(KeyFrameLayout, HrFrameShot) {
    expansion_recorder r;
    r.run(key_shot_hr, hr_key(0x1000000000, 0, 1000, 2000));
    const bit_text frame = bit_text(4)
                               .put(0, 28, 0xFFFFFFF)
                               .put(28, 4, 0)
                               .put(32, 16, -5)
                               .put(48, 16, 6)
                               .put(64, 18, -131072)
                               .put(82, 5, -16)
                               .put(87, 5, 15)
                               .put(92, 4, 0)
                               .put(96, 18, 131071)
                               .put(114, 5, 15)
                               .put(119, 5, -16)
                               .put(124, 4, 0);
    const std::int64_t a = 0x1000000000 + 0xFFFFFFF;
    const std::int64_t b = a + 0xFFFFFFF - 131072;
    const std::int64_t c = b + 0xFFFFFFF + 131071;
    EXPECT_THAT(r.run(frame_shot_hr, frame), ElementsAre("hr " + std::to_string(a) + " 995 2006",
                                                         "hr " + std::to_string(b) + " 974 2027",
                                                         "hr " + std::to_string(c) + " 984 2017"));
}

TEST(KeyFrameLayout, HrFrameShotHasNoClosingPattern) {
    expansion_recorder r;
    r.run(key_shot_hr, hr_key(100, 0, 0, 0));
    const bit_text frame = bit_text(4).put(0, 28, 10).put(64, 18, 2).put(96, 18, -2);
    EXPECT_THAT(r.run(frame_shot_hr, frame), ElementsAre("hr 110 0 0", "hr 122 0 0", "hr 130 0 0"));
}

TEST(KeyFrameLayout, HrElementWithANegativeSumAdvancesTimeByNearlyTwoToTheThirtyTwo) {
    expansion_recorder r;
    r.run(key_shot_hr, hr_key(100, 0, 0, 0));
    const bit_text frame = bit_text(3).put(0, 28, 10).put(64, 18, -11);
    EXPECT_THAT(r.run(frame_shot_hr, frame),
                ElementsAre("hr 110 0 0", "hr " + std::to_string(110 + 0xFFFFFFFFll) + " 0 0"));
}

TEST(KeyFrameLayout, HrFrameShotCountsItsEchoes) {
    expansion_recorder r;
    r.run(key_shot_hr, hr_key(100, 0, 0, 0));
    r.run(frame_shot_hr, bit_text(3).put(28, 4, 15).put(92, 4, 14));
    // 15 echoes, the second shot, 14 echoes; one is left over.
    EXPECT_EQ(r.run(frame_echo_hr, bit_text(60)).size(), 30u);
}

TEST(KeyFrameLayout, HrKeyShotCountsUpTo255Echoes) {
    expansion_recorder r;
    r.run(key_shot_hr, hr_key(100, 255, 0, 0));
    EXPECT_EQ(r.run(frame_echo_hr, bit_text(520)).size(), 255u);
}

TEST(KeyFrameLayout, KeyEcho) {
    expansion_recorder r;
    r.run(key_shot, plain_key(0, 3, 0, 0));
    EXPECT_THAT(r.run(key_echo, echo_key(-2000000000, 65535, -32768, 0xFEDC, 0x8001)),
                ElementsAre("echo -2000000000 65535 -32768 65244 -32767"));
}

TEST(KeyFrameLayout, HrKeyEcho) {
    expansion_recorder r;
    r.run(key_shot_hr, hr_key(0, 1, 0, 0));
    EXPECT_THAT(r.run(key_echo_hr, echo_key(-1, 1000, -7, 3, 4)),
                ElementsAre("echo -1 1000 -7 3 4"));
}

TEST(KeyFrameLayout, HrKeyEchoWithOffsetAddsTheAmplitude) {
    expansion_recorder r;
    r.run(key_shot_hr, hr_key(0, 2, 0, 0));
    EXPECT_THAT(r.run(key_echo_hr_1, echo_key(5, 1000, -7, 3, 4)),
                ElementsAre("echo 5 1000 993 3 4"));
    EXPECT_THAT(r.run(key_echo_hr_1, echo_key(5, 65535, 32767, 0, 0)),
                ElementsAre("echo 5 65535 32766 0 0"));
}

TEST(KeyFrameLayout, FrameEcho) {
    expansion_recorder r;
    r.run(key_shot, plain_key(0, 3, 0, 0));
    r.run(key_echo, echo_key(1000, 20000, 10000, 1, 500));
    const bit_text frame = bit_text(4)
                               .put(0, 23, -(1 << 22))
                               .put(23, 14, 8191)
                               .put(37, 14, -8192)
                               .put(51, 4, 15)
                               .put(55, 9, 255)
                               .put(64, 23, (1 << 22) - 1)
                               .put(87, 14, -8192)
                               .put(101, 14, 8191)
                               .put(115, 4, 8)
                               .put(119, 9, -256);
    EXPECT_THAT(r.run(frame_echo, frame),
                ElementsAre("echo -4193304 28191 1808 15 755", "echo 999 19999 9999 8 499"));
}

TEST(KeyFrameLayout, HrFrameEcho) {
    expansion_recorder r;
    r.run(key_shot_hr, hr_key(0, 3, 0, 0));
    r.run(key_echo_hr, echo_key(1000, 20000, 10000, 1, 5000));
    const bit_text frame = bit_text(4)
                               .put(0, 25, -(1 << 24))
                               .put(25, 12, 2047)
                               .put(37, 12, -2048)
                               .put(49, 4, 15)
                               .put(53, 11, 1023)
                               .put(64, 25, (1 << 24) - 1)
                               .put(89, 12, -2048)
                               .put(101, 12, 2047)
                               .put(113, 4, 8)
                               .put(117, 11, -1024);
    EXPECT_THAT(r.run(frame_echo_hr, frame),
                ElementsAre("echo -16776216 22047 7952 15 6023", "echo 999 19999 9999 8 4999"));
}

TEST(KeyFrameLayout, HrFrameEchoWithOffset) {
    expansion_recorder r;
    r.run(key_shot_hr, hr_key(0, 3, 0, 0));
    r.run(key_echo_hr_1, echo_key(1000, 20000, -10000, 1, 5000));
    const bit_text frame = bit_text(4)
                               .put(0, 26, -(1 << 25))
                               .put(26, 14, 8191)
                               .put(40, 11, -1024)
                               .put(51, 2, 3)
                               .put(53, 11, 1023)
                               .put(64, 26, (1 << 25) - 1)
                               .put(90, 14, -8192)
                               .put(104, 11, 1023)
                               .put(115, 2, 2)
                               .put(117, 11, -1024);
    EXPECT_THAT(r.run(frame_echo_hr_1, frame),
                ElementsAre("echo -33553432 28191 17167 3 6023", "echo 999 19999 9998 2 4999"));
}

TEST(KeyFrameLayout, EchoDeltasWrapInTheWidthOfTheirField) {
    expansion_recorder r;
    r.run(key_shot, plain_key(0, 2, 0, 0));
    r.run(key_echo, echo_key(0x7FFFFFFF, 65535, 32767, 0, 0x7FFF));
    const bit_text frame = bit_text(2).put(0, 23, 1).put(23, 14, 1).put(37, 14, 1).put(55, 9, 1);
    EXPECT_THAT(r.run(frame_echo, frame), ElementsAre("echo -2147483648 0 -32768 0 -32768"));
}
