#include "scanlib/override_text.hpp"

#include <gtest/gtest.h>

#include "scanlib/rxpmarker/streams.hpp"

namespace {

using scanlib::parse_override_text;

std::string repeated(const std::string& text, std::size_t n) {
    std::string all;
    all.reserve(text.size() * n);
    for (std::size_t i = 0; i < n; ++i) {
        all += text;
    }
    return all;
}

TEST(OverrideText, HoldsWhatTheDocumentSays) {
    const auto text = parse_override_text(
        R"({"file_verification":[{"ID":[1,0],"contentID":[[2,"\"S\""],[-1,"x"]]}],
            "packets":[{"existing_packet_identification":{"ID":[27,-1]},
                        "new_packet":{"ID":[27,4],"content":["1", 2.50, "[3, 4]"]}},
                       {}]})");
    ASSERT_EQ(text.verification.size(), 1u);
    EXPECT_EQ(text.verification[0].id, 1u);
    EXPECT_EQ(text.verification[0].version, 0u);
    ASSERT_EQ(text.verification[0].fields.size(), 1u);
    EXPECT_EQ(text.verification[0].fields[0].index, 2u);
    EXPECT_EQ(text.verification[0].fields[0].text, "\"S\"");
    ASSERT_EQ(text.packets.size(), 2u);
    EXPECT_EQ(text.packets[0].existing.version, std::nullopt);
    EXPECT_TRUE(text.packets[0].has_new_packet);
    EXPECT_EQ(text.packets[0].new_id, (scanlib::packet_id{27, 4}));
    EXPECT_EQ(text.packets[0].new_fields, ", 1, 2.50, [3, 4]\n");
    EXPECT_EQ(text.packets[1].existing.id, std::nullopt);
    EXPECT_FALSE(text.packets[1].has_new_packet);
}

TEST(OverrideText, MalformedDocumentsNameTheLine) {
    EXPECT_NE(streams::failure([] { parse_override_text("{\n\"packets\": [\n}"); }).find("(3): "),
              std::string::npos);
    for (const char* text : {"", " ", "{", "{]", "{\"a\":}", "[1,]", "{\"a\" 1}", "\"open", "{} {}",
                             "{\"a\":\"\\x\"}", "nul"}) {
        EXPECT_THROW(parse_override_text(text), std::runtime_error) << text;
    }
}

TEST(OverrideText, DeepNestingIsRefusedBeforeItIsParsed) {
    const auto nested = [](std::size_t depth) {
        return repeated("[", depth) + repeated("]", depth);
    };
    EXPECT_NO_THROW(parse_override_text(nested(256)));
    EXPECT_EQ(streams::failure([&] { parse_override_text(nested(257)); }),
              "override: JSON is nested deeper than 256 levels");
    EXPECT_EQ(streams::failure([&] { parse_override_text(repeated("{\"a\":", 2000000)); }),
              "override: JSON is nested deeper than 256 levels");
}

TEST(OverrideText, BracketsInsideTextsDoNotNest) {
    EXPECT_NO_THROW(parse_override_text("[\"" + repeated("[{\\\"", 1000) + "\"]"));
}

TEST(OverrideText, TextOf100MegabytesIsRefused) {
    std::string large = "{\"packets\": \"" + std::string(100000000, 'x') + "\"}";
    EXPECT_EQ(streams::failure([&] { parse_override_text(large); }),
              "override: the text is longer than 16777216 bytes");
}

TEST(OverrideText, LongestTextIsRead) {
    const std::string frame = "{\"note\": \"\"}";
    std::string longest = frame;
    longest.insert(longest.size() - 2, std::string((1u << 24) - frame.size(), 'x'));
    EXPECT_NO_THROW(parse_override_text(longest));
    longest.insert(longest.size() - 2, "x");
    EXPECT_THROW(parse_override_text(longest), std::runtime_error);
}

TEST(OverrideText, MoreValuesThanALimitAreRefused) {
    const auto list = [](std::size_t values) { return "[" + repeated("1,", values - 1) + "1]"; };
    EXPECT_NO_THROW(parse_override_text(list(1u << 18)));
    EXPECT_EQ(streams::failure([&] { parse_override_text(list((1u << 18) + 1)); }),
              "override: JSON holds more than 262144 values");
}

} // namespace
