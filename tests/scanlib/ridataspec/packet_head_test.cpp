#include "scanlib/packet_head.hpp"

#include <gtest/gtest.h>

namespace {

using scanlib::packet_id;

TEST(PacketHead, ShortFormsHaveNoSecondWord) {
    scanlib::short_code_table codes;
    const std::uint32_t words[] = {0xFFFFFFFD, 0x000A0002};
    const auto head = scanlib::read_head(words, words + 2, codes);
    EXPECT_EQ((packet_id{head.id, head.version}), (packet_id{50, 0}));
    EXPECT_EQ(head.payload, words + 1);
    const std::uint32_t empty[] = {0xFFFFFFFE};
    EXPECT_EQ(scanlib::read_head(empty, empty + 1, codes).id, 65535u);
}

TEST(PacketHead, LongFormTakesTheSecondWord) {
    const std::uint32_t words[] = {0xFFFFFFFF, 0x000A0002, 7};
    const auto head = scanlib::read_head(words, words + 3, {});
    EXPECT_EQ((packet_id{head.id, head.version}), (packet_id{10, 2}));
    EXPECT_EQ(head.payload, words + 2);
}

TEST(PacketHead, LongFormWithoutSecondWordIsUnknown) {
    const std::uint32_t words[] = {0xFFFFFFFF};
    const auto head = scanlib::read_head(words, words + 1, {});
    EXPECT_EQ((packet_id{head.id, head.version}), (packet_id{0, 0}));
    EXPECT_EQ(head.payload, head.end);
}

TEST(ShortCodes, CodeBeyondTheTableIsIdZeroWithTheCodeAsVersion) {
    scanlib::short_code_table codes;
    EXPECT_EQ(codes.id_of(7), (packet_id{0, 7}));
    codes.assign(3, {10, 2});
    EXPECT_EQ(codes.id_of(3), (packet_id{10, 2}));
    EXPECT_EQ(codes.id_of(4), (packet_id{0, 4}));
    EXPECT_EQ(codes.id_of(0), (packet_id{0, 0}));
}

TEST(ShortCodes, Code255AndAboveAreNeverAssigned) {
    scanlib::short_code_table codes;
    codes.assign(254, {10, 2});
    codes.assign(255, {10, 1});
    codes.assign(300, {10, 0});
    EXPECT_EQ(codes.size(), 254u);
    EXPECT_EQ(codes.id_of(255), (packet_id{0, 255}));
    EXPECT_EQ(codes.code_of({10, 1}), 0);
}

TEST(ShortCodes, PairThatLostItsCodeIsWrittenLong) {
    scanlib::short_code_table codes;
    codes.assign(1, {10, 2});
    codes.assign(1, {42, 0});
    std::uint32_t words[2];
    EXPECT_EQ(scanlib::write_head(words, {10, 2}, codes), 2u);
    EXPECT_EQ(words[0], 0xFFFFFFFFu);
    EXPECT_EQ(words[1], 0x000A0002u);
    EXPECT_EQ(scanlib::write_head(words, {42, 0}, codes), 1u);
    EXPECT_EQ(words[0], 0xFFFFFF01u);
}

TEST(ShortCodes, WriterNeverUsesTheCodesOfOtherForms) {
    scanlib::short_code_table codes;
    codes.assign(252, {42, 0});
    codes.assign(253, {10, 2});
    codes.assign(254, {10, 1});
    EXPECT_EQ(codes.id_of(253), (packet_id{10, 2})) << "a reader learns them";
    std::uint32_t words[2];
    EXPECT_EQ(scanlib::write_head(words, {42, 0}, codes), 1u);
    EXPECT_EQ(scanlib::write_head(words, {10, 2}, codes), 2u);
    EXPECT_EQ(scanlib::write_head(words, {10, 1}, codes), 2u);
}

TEST(ShortCodes, HeaderItselfIsAlwaysWrittenLong) {
    scanlib::short_code_table codes;
    codes.assign(1, {1, 0});
    std::uint32_t words[2];
    EXPECT_EQ(scanlib::write_head(words, {1, 0}, codes), 2u);
    EXPECT_EQ(words[0], 0xFFFFFFFFu);
    EXPECT_EQ(words[1], 0x00010000u);
}

} // namespace
