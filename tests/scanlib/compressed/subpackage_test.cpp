// Every field and rule of the subpackages, against bits put together by hand.
#include "expansion_recorder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace scanlib;
using scanlib::testing::bit_text;
using scanlib::testing::expansion_recorder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr packet_id v2{86, 0};
constexpr packet_id v3{109, 0};

bit_text key_shot(int tag, std::int64_t time, std::int64_t line, std::int64_t frame) {
    return bit_text(3).put(0, 3, tag).put(3, 49, time).put(52, 22, line).put(74, 22, frame);
}
bit_text delta_shot(int tag, std::int64_t time, std::int64_t line, std::int64_t frame) {
    return bit_text(2).put(0, 3, tag).put(3, 29, time).put(32, 16, line).put(48, 16, frame);
}
bit_text second_order(int tag, std::int64_t time, std::int64_t line, std::int64_t frame) {
    return bit_text(1).put(0, 3, tag).put(3, 18, time).put(21, 6, line).put(27, 5, frame);
}
bit_text key_echo(int tag, std::int64_t range, std::int64_t amplitude, std::int64_t offset,
                  std::int64_t deviation) {
    return bit_text(3)
        .put(0, 3, tag)
        .put(3, 26, range)
        .put(29, 16, amplitude)
        .put(45, 16, offset)
        .put(61, 16, deviation)
        .put(77, 19, -1); // ignored
}
bit_text delta_echo(int tag, std::int64_t range, std::int64_t amplitude, std::int64_t offset,
                    std::int64_t deviation) {
    return bit_text(2)
        .put(0, 3, tag)
        .put(3, 26, range)
        .put(29, 14, amplitude)
        .put(43, 10, offset)
        .put(53, 11, deviation);
}
bit_text block_head(std::int64_t value, std::initializer_list<std::uint32_t> entries) {
    bit_text t(1 + entries.size());
    t.put(0, 3, 5).put(3, 16, value).put(19, 10, -1); // 10 bits are ignored
    t.put(29, 3, static_cast<std::int64_t>(entries.size()));
    std::size_t bit = 32;
    for (const std::uint32_t e : entries) {
        t.put(bit, 32, e);
        bit += 32;
    }
    return t;
}
bit_text block(std::int64_t time, std::int64_t channel, std::int64_t five, std::int64_t seven,
               std::initializer_list<std::uint32_t> samples) {
    bit_text t(2 + samples.size());
    t.put(0, 3, 7).put(3, 10, static_cast<std::int64_t>(samples.size())).put(13, 19, -1);
    t.put(32, 16, time).put(48, 4, channel).put(52, 5, five).put(57, 7, seven);
    std::size_t bit = 64;
    for (const std::uint32_t s : samples) {
        t.put(bit, 32, s);
        bit += 32;
    }
    return t;
}

template<class... Parts>
bit_text join(const Parts&... parts) {
    bit_text t;
    (t.add(parts), ...);
    return t;
}

/// Both versions have the same shots and echoes, version 3 under tags that are one lower.
class SharedSubpackages : public ::testing::TestWithParam<int> {
  protected:
    packet_id id() const { return GetParam() == 2 ? v2 : v3; }
    int tag(int tag_of_v2) const { return GetParam() == 2 ? tag_of_v2 : tag_of_v2 - 1; }
    expansion_recorder r;
};

std::string message_of(expansion_recorder& r, packet_id id, const bit_text& payload) {
    try {
        r.run(id, payload);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "none";
}

} // namespace

TEST_P(SharedSubpackages, KeyShot) {
    EXPECT_THAT(r.run(id(), key_shot(tag(1), 0x1FEDCBA987654, 0x2BCDEF, 0x312345)),
                ElementsAre("hr " + std::to_string(0x1FEDCBA987654) + " 2870767 3220293"));
}

TEST_P(SharedSubpackages, DeltaShotGoesOnFromTheKey) {
    EXPECT_THAT(r.run(id(), join(key_shot(tag(1), 1000, 2000, 3000),
                                 delta_shot(tag(2), 0x1FFFFFFF, -32768, 32767))),
                ElementsAre("hr 1000 2000 3000",
                            // 24 bits of the line are delivered
                            "hr " + std::to_string(1000 + 0x1FFFFFFF) + " " +
                                std::to_string(2000 - 32768 + (1 << 24)) + " 35767"));
}

TEST_P(SharedSubpackages, SecondOrderShotsKeepTheSlopeOfTheLastDelta) {
    EXPECT_THAT(
        r.run(id(), join(key_shot(tag(1), 0, 100, 100), delta_shot(tag(2), 1000, 10, -10),
                         second_order(tag(3), 7, 31, -16), second_order(tag(3), 7, 31, -16))),
        ElementsAre("hr 0 100 100", "hr 1000 110 90", "hr 2007 151 64", "hr 3014 192 38"));
}

TEST_P(SharedSubpackages, SecondOrderShotLimits) {
    EXPECT_THAT(
        r.run(id(),
              join(key_shot(tag(1), 0, 100, 100), delta_shot(tag(2), 131072, 0, 0),
                   second_order(tag(3), -131072, -32, 15), second_order(tag(3), 131071, 0, 0))),
        ElementsAre("hr 0 100 100", "hr 131072 100 100", "hr 131072 68 115", "hr 393215 68 115"));
}

TEST_P(SharedSubpackages, SecondOrderShotWithANegativeSumAdvancesTimeByNearlyTwoToTheThirtyTwo) {
    EXPECT_THAT(r.run(id(), join(key_shot(tag(1), 50, 0, 0), second_order(tag(3), -1, 0, 0))),
                ElementsAre("hr 50 0 0", "hr " + std::to_string(50 + 0xFFFFFFFFll) + " 0 0"));
}

TEST_P(SharedSubpackages, KeyEcho) {
    EXPECT_THAT(r.run(id(), key_echo(tag(4), -(1 << 25), 65000, 1000, 0x8001)),
                ElementsAre("echo -33554432 65000 464 0 -32767"));
}

TEST_P(SharedSubpackages, DeltaEcho) {
    EXPECT_THAT(r.run(id(), join(key_echo(tag(4), 1000, 20000, -100, 5000),
                                 delta_echo(tag(5), -(1 << 25), 8191, -512, 1023),
                                 delta_echo(tag(5), (1 << 25) - 1, -8192, 511, -1024))),
                ElementsAre("echo 1000 20000 19900 0 5000", "echo -33553432 28191 27579 0 6023",
                            "echo 999 19999 19898 0 4999"));
}

TEST_P(SharedSubpackages, EchoesFollowTheirShotAtOnce) {
    EXPECT_THAT(
        r.run(id(), join(key_shot(tag(1), 1, 0, 0), key_echo(tag(4), 5, 0, 0, 0),
                         delta_shot(tag(2), 1, 0, 0), delta_echo(tag(5), 1, 0, 0, 0),
                         delta_echo(tag(5), 1, 0, 0, 0))),
        ElementsAre("hr 1 0 0", "echo 5 0 0 0 0", "hr 2 0 0", "echo 6 0 0 0 0", "echo 7 0 0 0 0"));
}

TEST_P(SharedSubpackages, StateIsKeptBetweenPackets) {
    r.run(id(), join(key_shot(tag(1), 1000, 10, 20), delta_shot(tag(2), 5, 1, 2),
                     key_echo(tag(4), 7, 8, 9, 10)));
    EXPECT_THAT(r.run(id(), join(second_order(tag(3), 1, 0, 0), delta_echo(tag(5), 1, 1, 1, 1))),
                ElementsAre("hr 1011 12 24", "echo 8 9 19 0 11"));
}

TEST_P(SharedSubpackages, CutSubpackageReadsMissingWordsAsZeroAndEnds) {
    auto words = key_shot(tag(1), 0x1FFFFFFFFFFFF, 0x3FFFFF, 0x3FFFFF).words();
    words.resize(1);
    EXPECT_THAT(r.run(id(), words), ElementsAre("hr 536870911 0 0"));
    EXPECT_EQ(r.losses.count(loss::short_subpackage), 1u);
    words = join(key_echo(tag(4), 1, 2, 3, 4), delta_echo(tag(5), 1, -1, -1, -1)).words();
    words.resize(4);
    EXPECT_THAT(r.run(id(), words), ElementsAre("echo 1 2 5 0 4", "echo 2 9 12 0 4"));
    EXPECT_EQ(r.losses.count(loss::short_subpackage), 2u);
}

TEST_P(SharedSubpackages, EmptyPacketCallsNothing) {
    EXPECT_THAT(r.run(id(), bit_text(0)), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Versions, SharedSubpackages, ::testing::Values(2, 3));

TEST(SubpackagesV2, TagZeroEndsThePacketAndTheRestIsNotLookedAt) {
    expansion_recorder r;
    EXPECT_THAT(r.run(v2, join(bit_text(1), key_shot(1, 1, 1, 1), bit_text(1).put(0, 3, 7))),
                IsEmpty());
    EXPECT_THAT(
        r.run(v2, join(key_shot(1, 1, 2, 3), bit_text(1).put(3, 29, -1), bit_text(1).put(0, 3, 7))),
        ElementsAre("hr 1 2 3"));
}

TEST(SubpackagesV2, TagsSixAndSevenAreUnknown) {
    expansion_recorder r;
    EXPECT_EQ(message_of(r, v2, bit_text(1).put(0, 3, 6)), "Unknown subpackage v2: 6");
    EXPECT_EQ(message_of(r, v2, bit_text(1).put(0, 3, 7)), "Unknown subpackage v2: 7");
}

TEST(SubpackagesV2, WhatCameBeforeAnUnknownTagStaysDelivered) {
    expansion_recorder r;
    EXPECT_EQ(message_of(r, v2, join(key_shot(1, 1, 2, 3), bit_text(1).put(0, 3, 6))),
              "Unknown subpackage v2: 6");
    EXPECT_THAT(r.calls, ElementsAre("hr 1 2 3"));
    EXPECT_THAT(r.run(v2, delta_shot(2, 1, 1, 1)), ElementsAre("hr 2 3 4"));
}

TEST(SubpackagesV3, ZeroWordIsAKeyShot) {
    expansion_recorder r;
    EXPECT_THAT(r.run(v3, bit_text(3)), ElementsAre("hr 0 0 0"));
}

TEST(SubpackagesV3, TagSixIsUnknown) {
    expansion_recorder r;
    EXPECT_EQ(message_of(r, v3, bit_text(1).put(0, 3, 6)), "Unknown subpackage v3: 6");
}

TEST(SubpackagesV3, BlockHeadGetsTheTimeOfTheCurrentShot) {
    expansion_recorder r;
    const auto calls = r.run(
        v3, join(key_shot(0, (7ll << 32) + 9, 1, 2), block_head(0xABCD, {0x11111111, 0xFFFFFFF1})));
    EXPECT_THAT(calls, ElementsAre("hr " + std::to_string((7ll << 32) + 9) + " 1 2",
                                   "head 9 7 43981 0 " + std::to_string(0x11111111) + " " +
                                       std::to_string(0xFFFFFFF1u)));
}

TEST(SubpackagesV3, BlockHeadWithAllOrNoChannels) {
    expansion_recorder r;
    EXPECT_THAT(r.run(v3, join(block_head(1, {1, 2, 3, 4, 5, 6, 7}), block_head(2, {}))),
                ElementsAre("head 0 0 1 0 1 2 3 4 5 6 7", "head 0 0 2 0"));
}

TEST(SubpackagesV3, BlockCarriesItsFieldsAndSamples) {
    expansion_recorder r;
    const std::uint32_t fields = 0x1234u | 9u << 16 | 21u << 20 | 100u << 25;
    EXPECT_THAT(r.run(v3, block(0x1234, 9, 21, 100, {5, 6, 0xFFFFFFFF})),
                ElementsAre("block " + std::to_string(fields) + " 5 6 4294967295"));
}

TEST(SubpackagesV3, BlockOfTheMostSamples) {
    expansion_recorder r;
    bit_text t(2 + 1023);
    t.put(0, 3, 7).put(3, 10, 1023);
    t.put(32 * 1024, 32, 77);
    const auto calls = r.run(v3, join(t, key_shot(0, 1, 2, 3)));
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].substr(calls[0].size() - 5), " 0 77");
    EXPECT_EQ(calls[1], "hr 1 2 3");
}

TEST(SubpackagesV3, ChannelFiveGetsOneSyntheticHeadInAShot) {
    expansion_recorder r;
    const std::string five = "block " + std::to_string(5u << 16);
    EXPECT_THAT(r.run(v3, join(key_shot(0, 8, 0, 0), block(0, 5, 0, 0, {}), block(0, 5, 0, 0, {}),
                               delta_shot(1, 1, 0, 0), block(0, 5, 0, 0, {}),
                               second_order(2, 0, 0, 0), block(0, 5, 0, 0, {}))),
                ElementsAre("hr 8 0 0", "head 8 0 0 0 5", five, five, "hr 9 0 0", "head 9 0 0 0 5",
                            five, "hr 10 0 0", "head 10 0 0 0 5", five));
}

TEST(SubpackagesV3, KeyShotEndsTheBlocksOfAShotAsWell) {
    expansion_recorder r;
    const std::string five = "block " + std::to_string(5u << 16);
    EXPECT_THAT(
        r.run(v3, join(key_shot(0, 8, 0, 0), block(0, 5, 0, 0, {}), key_shot(0, 9, 0, 0),
                       block(0, 5, 0, 0, {}))),
        ElementsAre("hr 8 0 0", "head 8 0 0 0 5", five, "hr 9 0 0", "head 9 0 0 0 5", five));
}

TEST(SubpackagesV3, ChannelFiveBehindAHeadGetsNoSyntheticOne) {
    expansion_recorder r;
    EXPECT_THAT(r.run(v3, join(key_shot(0, 8, 0, 0), block_head(1, {5}), block(0, 5, 0, 0, {}))),
                ElementsAre("hr 8 0 0", "head 8 0 1 0 5", "block " + std::to_string(5u << 16)));
}

TEST(SubpackagesV3, OtherChannelsGetNoSyntheticHead) {
    expansion_recorder r;
    EXPECT_THAT(r.run(v3, block(0, 4, 0, 0, {})), ElementsAre("block " + std::to_string(4u << 16)));
}

TEST(SubpackagesV3, EchoesDoNotEndTheBlocksOfAShot) {
    expansion_recorder r;
    EXPECT_EQ(r.run(v3, join(key_shot(0, 8, 0, 0), block(0, 5, 0, 0, {}), key_echo(3, 1, 1, 1, 1),
                             block(0, 5, 0, 0, {})))
                  .size(),
              5u);
}

TEST(SubpackagesV3, SkippedSampleBlocksLeaveShotsAndEchoes) {
    expansion_recorder r(true);
    EXPECT_THAT(r.run(v3, join(key_shot(0, 8, 0, 0), block_head(1, {7, 7}),
                               block(1, 5, 3, 4, {6, 6, 6}), block(1, 5, 3, 4, {}),
                               key_echo(3, 1, 2, 3, 4), block_head(1, {}), delta_shot(1, 1, 0, 0))),
                ElementsAre("hr 8 0 0", "echo 1 2 5 0 4", "hr 9 0 0"));
}

TEST(SubpackagesV3, CutBlockAndHeadReadMissingWordsAsZero) {
    expansion_recorder r;
    auto words = block(1, 4, 0, 0, {11, 12, 13}).words();
    words.resize(3);
    EXPECT_THAT(r.run(v3, words), ElementsAre("block " + std::to_string(1 | 4u << 16) + " 11 0 0"));
    words = block_head(9, {1, 2, 3}).words();
    words.resize(2);
    EXPECT_THAT(r.run(v3, words), ElementsAre("head 0 0 9 0 1 0 0"));
    words = bit_text(1).put(0, 3, 7).put(3, 10, 1023).words();
    EXPECT_EQ(r.run(v3, words).size(), 1u);
    EXPECT_EQ(r.losses.count(loss::short_subpackage), 3u);
}

TEST(SubpackagesV3, CutBlockIsSkippedToTheEnd) {
    expansion_recorder r(true);
    EXPECT_THAT(r.run(v3, bit_text(1).put(0, 3, 7).put(3, 10, 1023)), IsEmpty());
}
