#include <stdexcept>

#include <gtest/gtest.h>

#include "scanlib/packet_text/text_of.hpp"

namespace {

using scanlib::pair_form;
using test_support::packet_words;
using test_support::read_text;
using test_support::text_of;

constexpr scanlib::packet_id header{1, 0};
constexpr scanlib::packet_id header_ext{43, 0};
constexpr scanlib::packet_id json_parameters{155, 0};

packet_words packed(const std::string& text) {
    packet_words words((text.size() + 3) / 4);
    for (std::size_t i = 0; i < text.size(); ++i) {
        words[i / 4] |= static_cast<std::uint32_t>(static_cast<unsigned char>(text[i]))
                        << (8 * (i % 4));
    }
    return words;
}

packet_words header_of(const std::string& type) {
    packet_words words = packed(type);
    words.resize(12);
    return words;
}

packet_words parameters(const std::string& text) {
    packet_words words = packed(text);
    words.insert(words.begin(), 7);
    return words;
}

TEST(TextEdge, LinesOfMarkersHoldThePairAlone) {
    EXPECT_EQ(text_of({15, 0}, {}), "frame_stop (15.0)");
    EXPECT_EQ(text_of({17, 0}, {}), "line_stop (17.0)");
    EXPECT_EQ(text_of({17, 0}, {}, pair_form::numeric), "17, 0");
    EXPECT_FALSE(read_text("line_stop (17.0)").failed);
}

TEST(TextEdge, ACharFieldOfSixteenBytesPrintsAllAndReadsIfTheQuoteFollowsAtOnce) {
    const packet_words body = header_of("0123456789abcdef");
    const std::string line = "header (1.0), \"0123456789abcdef\", \"\", \"\", []";
    EXPECT_EQ(text_of(header, body), line);
    EXPECT_EQ(read_text(line).body, body);
    EXPECT_TRUE(read_text("header (1.0), \"0123456789abcdefg\", \"\", \"\", []").failed);
    EXPECT_TRUE(read_text("header (1.0), \"0123456789abcdef \", \"\", \"\", []").failed);
}

TEST(TextEdge, AQuoteWithinATextIsPrintedUnchangedAndEndsTheFieldForTheReader) {
    const packet_words body = header_of("a\"b");
    EXPECT_EQ(text_of(header, body), "header (1.0), \"a\"b\", \"\", \"\", []");
    EXPECT_TRUE(read_text(text_of(header, body)).failed);
    const auto read = read_text("json_parameters (155.0), 7, \"{\"a\": 1}\"");
    EXPECT_FALSE(read.failed);
    EXPECT_EQ(read.body, parameters("{"));
    EXPECT_EQ(read.rest, "a\": 1}\"");
}

TEST(TextEdge, ANumericHeaderLineHasNoBracketsAndReadsBack) {
    packet_words body = header_of("A");
    body.push_back(10u << 16 | 2);
    body.push_back(67u << 16);
    const std::string line = text_of(header, body, pair_form::numeric);
    EXPECT_EQ(line, "1, 0, \"A\", \"\", \"\", 2, 10, 0, 67");
    EXPECT_EQ(read_text(line, pair_form::numeric).body, body);
}

TEST(TextEdge, AnEmptySequenceIsAPairOfBracketsOrNothing) {
    EXPECT_EQ(text_of(header_ext, {}), "header_ext (43.0), []");
    EXPECT_EQ(text_of(header_ext, {}, pair_form::numeric), "43, 0");
    EXPECT_FALSE(read_text("header_ext (43.0), []").failed);
    EXPECT_TRUE(read_text("header_ext (43.0), []").body.empty());
    EXPECT_FALSE(read_text("43, 0", pair_form::numeric).failed);
    EXPECT_TRUE(read_text("header_ext (43.0)").failed);
}

TEST(TextEdge, EightBitFieldsAreNumbersAndNeverCharacters) {
    const packet_words body{65u | 255u << 8 | 9u << 16, 0};
    EXPECT_EQ(text_of({10000, 0}, body), "hk_rtc (10000.0), 65, 255, 9, 0, 0, 0");
    EXPECT_EQ(read_text("hk_rtc (10000.0), 65, 255, 9, 0, 0, 0").body, body);
    EXPECT_TRUE(read_text("hk_rtc (10000.0), A, 255, 9, 0, 0, 0").failed);
    EXPECT_TRUE(read_text("hk_rtc (10000.0), 256, 255, 9, 0, 0, 0").failed);
}

TEST(TextEdge, AFixedArrayStandsInBracketsUnlessNumeric) {
    packet_words body(9);
    body[2] = 0x04030201;
    const std::string named = text_of({91, 1}, body);
    EXPECT_NE(named.find(", [1, 2, 3, 4, 0, 0"), std::string::npos) << named;
    EXPECT_EQ(named.find('['), named.rfind('['));
    EXPECT_EQ(text_of({91, 1}, body, pair_form::numeric).find('['), std::string::npos);
    EXPECT_EQ(read_text(named).body, body);
}

TEST(TextEdge, PlainElementsAreReadWithAndWithoutBraces) {
    const packet_words body{3, 1, 2};
    EXPECT_EQ(text_of({58, 0}, body), "blob_uint32 (58.0), 3, [1, 2]");
    EXPECT_EQ(read_text("blob_uint32 (58.0), 3, [1, 2]").body, body);
    EXPECT_EQ(read_text("blob_uint32 (58.0), 3, [{1}, {2}]").body, body);
    EXPECT_EQ(read_text("blob_uint32 (58.0), 3,[ 1 ,2 , ]").body, body);
}

TEST(TextEdge, CompositeElementsNeedTheirBraces) {
    EXPECT_EQ(read_text("header_ext (43.0), [{2, 10}{0, 67},]").body,
              (packet_words{10u << 16 | 2, 67u << 16}));
    for (const char* line : {"header_ext (43.0), [2, 10]", "header_ext (43.0), [{2}]",
                             "header_ext (43.0), [{2, 10, 3}]", "header_ext (43.0), [{2, 10]",
                             "header_ext (43.0), {2, 10}", "header_ext (43.0), [{2, 10}",
                             "header_ext (43.0), [,{2, 10}]"}) {
        EXPECT_TRUE(read_text(line).failed) << line;
    }
}

TEST(TextEdge, ElementsOfManyFloatsStandInBraces) {
    EXPECT_EQ(read_text("biaxial_geometry (76.0), [0, 0, 0], [{1, -2}]").body,
              (packet_words{0, 0, 0, 0x3F800000, 0xC0000000}));
    packet_words plane(14 + 4);
    EXPECT_NE(text_of({4, 0}, plane).find("[{0.0000000000000000e+00, "), std::string::npos);
    packet_words sums(4 + 8);
    const std::string line = text_of({107, 0}, sums);
    EXPECT_NE(line.find("[{0.0000000000000000e+00, 0.0000000000000000e+00, "
                        "0.0000000000000000e+00, 0.0000000000000000e+00}]"),
              std::string::npos)
        << line;
}

TEST(TextEdge, OtherElementsArePlainUnsignedNumbers) {
    // Signed entries of 16 bits, pairs of 16 bits, and floats.
    EXPECT_EQ(text_of({104, 0}, {0, 0xFFFF0001}),
              "arange_table (104.0), 0.0000000000000000e+00, [1, 65535]");
    packet_words floats{1, 0};
    EXPECT_EQ(text_of({148, 0}, floats), "dyntrig_pre (148.0), 1, [0]");
    const std::string calib = text_of({82, 0}, packet_words(10));
    EXPECT_EQ(calib.substr(calib.size() - 5), ", [0]");
}

TEST(TextEdge, TheCountOfElementsFollowsFromThePayload) {
    packet_words body(12);
    body.push_back(67u << 16);
    EXPECT_EQ(text_of(header, body), "header (1.0), \"\", \"\", \"\", [{0, 67}]");
    body.pop_back();
    EXPECT_EQ(text_of(header, body), "header (1.0), \"\", \"\", \"\", []");
}

TEST(TextEdge, APayloadThatEndsBeforeItsSequenceIsRefusedAndLeavesNoText) {
    const packet_words body(11);
    std::string text = "x";
    const auto append = [&](scanlib::packet_id id, std::size_t n) {
        scanlib::append_packet(text, id, body.data(), body.data() + n);
    };
    const auto message = [&](scanlib::packet_id id, std::size_t n) -> std::string {
        try {
            append(id, n);
        } catch (const std::range_error& e) {
            return e.what();
        }
        return "";
    };
    EXPECT_EQ(message(header, 11), "Missing data for sequence.");
    EXPECT_EQ(message(json_parameters, 1), "Buffer too small for utf8seq.");
    EXPECT_EQ(text, "x");
    std::ostringstream out;
    EXPECT_THROW(scanlib::print_packet(out, header, body.data(), body.data() + 11),
                 std::range_error);
    EXPECT_EQ(out.str(), "");
}

TEST(TextEdge, AShortPayloadOfAKindWithoutSequenceReadsAsFollowedByZeroes) {
    EXPECT_EQ(text_of({10, 2}, {5}), "laser_shot_2angles (10.2), 5, 0, 0");
}

TEST(TextEdge, AnUnknownKindPrintsItsWordsInHexadecimal) {
    EXPECT_EQ(text_of({10, 3}, {0, 31, 0xFFFFFFFF}), "unknown (10.3), 0, 0x1f, 0xffffffff");
    EXPECT_EQ(text_of({10, 3}, {0}, pair_form::numeric), "10, 3, 0");
    std::istringstream in(", 0, 0x1f,ffffffff;");
    packet_words body;
    scanlib::read_packet_words(in, body);
    EXPECT_TRUE(in.good());
    EXPECT_EQ(body, (packet_words{0, 31, 0xFFFFFFFF}));
    EXPECT_EQ(in.get(), ';');
}

TEST(TextEdge, APairWithoutARowReadsNothing) {
    const auto read = read_text("unknown (10.3), 0x1");
    EXPECT_FALSE(read.failed);
    EXPECT_TRUE(read.body.empty());
    EXPECT_EQ(read.rest, ", 0x1");
}

TEST(TextEdge, AnEmptyUtf8TextKeepsRoomForItsZero) {
    const auto read = read_text("json_parameters (155.0), 7, \"\"");
    EXPECT_FALSE(read.failed);
    EXPECT_EQ(read.body, (packet_words{7, 0}));
    EXPECT_EQ(text_of(json_parameters, read.body), "json_parameters (155.0), 7, \"\"");
}

TEST(TextEdge, Utf8TextEndsAtItsZeroAndKeepsItsBytes) {
    const std::string text = "gr\xC3\xBC\xC3\x9F"
                             "e\t1";
    EXPECT_EQ(text_of(json_parameters, parameters(text)),
              "json_parameters (155.0), 7, \"" + text + "\"");
    EXPECT_EQ(read_text("json_parameters (155.0), 7, \"" + text + "\"").body, parameters(text));
    packet_words with_more = parameters("ab");
    with_more.push_back(0x64636261);
    EXPECT_EQ(text_of(json_parameters, with_more), "json_parameters (155.0), 7, \"ab\"");
}

TEST(TextEdge, TheStreamKeepsThePairOfTheLineThatItRead) {
    std::istringstream in("laser_shot (10.0), 5\necho (42.0), 1, 2, 3, 4, 5\n");
    scanlib::packet_id id;
    packet_words body;
    in >> id;
    scanlib::read_packet(in, id, body);
    EXPECT_EQ(scanlib::last_packet(in), (scanlib::packet_id{10, 0}));
    in >> id;
    scanlib::read_packet(in, id, body);
    EXPECT_EQ(scanlib::last_packet(in), (scanlib::packet_id{42, 0}));
    EXPECT_EQ(body, (packet_words{1, 2 | 3u << 16, 4 | 5u << 16}));
}

} // namespace
