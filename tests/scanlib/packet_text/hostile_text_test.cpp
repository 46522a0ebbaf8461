// Text that is no packet, or far too much of one.
#include <gtest/gtest.h>

#include "scanlib/packet_text/random_packet.hpp"
#include "scanlib/packet_text/text_of.hpp"

namespace {

using scanlib::pair_form;
using test_support::packet_words;
using test_support::read_text;
using test_support::text_of;

TEST(HostileText, ALineCutAnywhereFailsOrGivesAWholePayload) {
    test_support::random_packet make(3);
    for (std::size_t n = 1; n < scanlib::packet_index_count; ++n) {
        const auto& kind = scanlib::layout_of(static_cast<scanlib::packet_index>(n));
        const scanlib::packet_id id{kind.id, kind.version};
        for (const auto form : {pair_form::named, pair_form::numeric}) {
            const std::string line = text_of(id, make.of(kind), form);
            for (std::size_t k = 0; k < 40; ++k) {
                const auto read = read_text(line.substr(0, line.size() * k / 40), form);
                if (read.failed) {
                    EXPECT_TRUE(read.body.empty()) << line;
                } else {
                    EXPECT_GE(read.body.size() * 32,
                              scanlib::layout_of(scanlib::index_of(read.id)).fixed_bits);
                }
            }
        }
    }
}

TEST(HostileText, FieldsThatAreMissingOrOfAnotherTypeFail) {
    for (const char* line :
         {"laser_shot_2angles (10.2), 1, 2", "laser_shot_2angles (10.2), 1, 2,",
          "laser_shot_2angles (10.2) 1, 2, 3", "laser_shot_2angles (10.2), 1, \"2\", 3",
          "laser_shot_2angles (10.2), 1, 2.5, 3", "laser_shot_2angles (10.2), 1, 0x2, 3",
          "notch_filter (84.0), 1.0, x, 1.0", "header (1.0), \"A\", \"B\", \"C\"",
          "header (1.0), A, \"B\", \"C\", []", "header (1.0), \"A, \"B\", \"C\", []",
          "header (1.0), \"A\", \"B\", \"C\", [", "json_parameters (155.0), 7, \"unterminated",
          "json_parameters (155.0), 7", "blob_uint32 (58.0), 3, [1, 2",
          "blob_uint32 (58.0), 3, [x]", "blob_uint32 (58.0), 3, 1, 2"}) {
        const auto read = read_text(line);
        EXPECT_TRUE(read.failed) << line;
        EXPECT_TRUE(read.body.empty()) << line;
    }
}

TEST(HostileText, AStreamThatHasFailedStaysFailedAndGivesNothing) {
    std::istringstream in(", 1, 2, 3");
    in.setstate(std::ios_base::failbit);
    packet_words body{1, 2, 3};
    scanlib::read_packet(in, {10, 2}, body);
    EXPECT_TRUE(in.fail());
    EXPECT_TRUE(body.empty());
    body = {1};
    scanlib::read_packet_words(in, body);
    EXPECT_TRUE(body.empty());
}

std::string many(const std::string& head, const std::string& element, std::size_t n,
                 const std::string& tail) {
    std::string text = head;
    text.reserve(head.size() + n * element.size() + tail.size());
    for (std::size_t i = 0; i < n; ++i) {
        text += element;
    }
    return text + tail;
}

TEST(HostileText, ASequenceBeyondItsKindsLimitFails) {
    EXPECT_FALSE(read_text(many("header_ext (43.0), [", "{0, 1}, ", 254, "]")).failed);
    EXPECT_TRUE(read_text(many("header_ext (43.0), [", "{0, 1}, ", 255, "]")).failed);
}

TEST(HostileText, AnElementBeyondTheLimitPassesWhereItsWordIsThereAnyway) {
    // 16 bits and 1986 elements of 16 end within a word, so that the view counts one element more.
    const auto read = read_text(many("reftab_table (69.0), 5, [", "1,", 1987, "]"));
    EXPECT_FALSE(read.failed);
    EXPECT_EQ(read_text(text_of(read.id, read.body)).body, read.body);
    EXPECT_TRUE(read_text(many("reftab_table (69.0), 5, [", "1,", 1988, "]")).failed);
}

TEST(HostileText, AZeroByteInATextFails) {
    EXPECT_TRUE(read_text(std::string("header (1.0), \"a\0b\", \"\", \"\", []", 32)).failed);
    EXPECT_TRUE(read_text(std::string("json_parameters (155.0), 7, \"a\0\"", 32)).failed);
}

TEST(HostileText, ASequenceWithoutLimitEndsWhereNoStreamCouldHoldIt) {
    const std::size_t fit = scanlib::longest_text_body - 1;
    EXPECT_FALSE(read_text(many("blob_uint32 (58.0), 0, [", "1,", fit, "]")).failed);
    const auto read = read_text(many("blob_uint32 (58.0), 0, [", "1,", fit + 1, "]"));
    EXPECT_TRUE(read.failed);
    EXPECT_TRUE(read.body.empty());
}

TEST(HostileText, ATextOfAHundredMegabytesFailsAtTheSameLength) {
    std::istringstream in("json_parameters (155.0), 7, \"" + std::string(100'000'000, 'x'));
    scanlib::packet_id id;
    packet_words body;
    in >> id;
    scanlib::read_packet(in, id, body);
    EXPECT_TRUE(in.fail());
    EXPECT_TRUE(body.empty());
    EXPECT_LE(body.capacity(), 2 * scanlib::longest_text_body);
    in.clear();
    EXPECT_LT(static_cast<std::size_t>(in.tellg()), 4 * scanlib::longest_text_body + 100);
}

TEST(HostileText, WordsBeyondThirtyTwoBitsOrWhatAStreamHoldsFail) {
    packet_words body;
    for (const std::string text : {", 0x100000000", ", -1", ", 0x", ", xyz", ","}) {
        std::istringstream in(text);
        EXPECT_TRUE(scanlib::read_packet_words(in, body).fail()) << text;
        EXPECT_TRUE(body.empty()) << text;
    }
    std::istringstream in(many("", ",1", scanlib::longest_text_body + 1, ""));
    EXPECT_TRUE(scanlib::read_packet_words(in, body).fail());
    EXPECT_TRUE(body.empty());
}

TEST(HostileText, RandomBytesNeverGiveAPayloadWithoutItsFixedPart) {
    test_support::random_packet make(4);
    const std::string alphabet = " ,\"[]{}().0123456789-+exnaif\n";
    for (int i = 0; i < 20000; ++i) {
        const auto& kind =
            scanlib::layout_of(static_cast<scanlib::packet_index>(1 + make.below(294)));
        std::string text;
        for (std::uint64_t n = make.below(60); n != 0; --n) {
            text += alphabet[make.below(alphabet.size())];
        }
        std::istringstream in(text);
        packet_words body;
        scanlib::read_packet(in, {kind.id, kind.version}, body);
        EXPECT_TRUE(in.fail() || body.size() * 32 >= kind.fixed_bits) << kind.name << text;
        EXPECT_TRUE(!in.fail() || body.empty()) << kind.name << text;
    }
}

} // namespace
