// text_holds_packet, against reading the line back.
#include <gtest/gtest.h>

#include "scanlib/packet_text/random_packet.hpp"
#include "scanlib/packet_text/text_of.hpp"

namespace {

using scanlib::packet_id;
using test_support::packet_words;

bool holds(packet_id id, const packet_words& body) {
    return scanlib::text_holds_packet(id, body.data(), body.data() + body.size());
}

/// Whether the line, alone in a file of lines, gives the words again.
bool gives_its_words_again(packet_id id, const packet_words& body) {
    std::string line;
    try {
        line = test_support::text_of(id, body);
    } catch (const std::range_error&) {
        return false;
    }
    const auto read = test_support::read_text(line.substr(0, line.find_first_of("\r\n")));
    return !read.failed && read.rest.empty() && read.body == body;
}

TEST(TextHoldsPacket, WhereReadingTheLineGivesItsWordsAgain) {
    test_support::random_packet make(6);
    int held = 0;
    int lost = 0;
    for (int round = 0; round < 30; ++round) {
        for (std::size_t n = 1; n < scanlib::packet_index_count; ++n) {
            const auto& kind = scanlib::layout_of(static_cast<scanlib::packet_index>(n));
            const packet_id id{kind.id, kind.version};
            packet_words body = make.of(kind);
            if (round % 3 == 1 && !body.empty()) {
                // One byte of it may be anything.
                body[make.below(body.size())] ^= static_cast<std::uint32_t>(make.below(256))
                                                 << 8 * make.below(4);
            } else if (round % 3 == 2) {
                body = make.any_words(make.below(body.size() + 3));
            }
            const bool wanted = gives_its_words_again(id, body);
            EXPECT_EQ(holds(id, body), wanted) << kind.name;
            ++(wanted ? held : lost);
        }
    }
    EXPECT_GT(held, 3000);
    EXPECT_GT(lost, 1000);
}

TEST(TextHoldsPacket, NotForWordsOutsideTheFields) {
    EXPECT_TRUE(holds({28, 0}, {1, 2}));
    EXPECT_FALSE(holds({28, 0}, {1, 0x10002})); // reserved bits
    EXPECT_FALSE(holds({28, 0}, {1, 2, 0}));    // a word more
    EXPECT_FALSE(holds({28, 0}, {1}));          // a word less
    EXPECT_FALSE(holds({9, 0}, {}));
}

TEST(TextHoldsPacket, NotForTextThatALineCannotHold) {
    packet_words header(12);
    EXPECT_TRUE(holds({1, 0}, header));
    for (const char c : {'"', '\n', '\r'}) {
        header[0] = static_cast<unsigned char>(c);
        EXPECT_FALSE(holds({1, 0}, header)) << static_cast<int>(c);
    }
    header[0] = 'a' | 'b' << 16; // something behind the zero
    EXPECT_FALSE(holds({1, 0}, header));
}

TEST(TextHoldsPacket, NotForASequenceBeyondItsLimit) {
    EXPECT_TRUE(holds({43, 0}, packet_words(254)));
    EXPECT_FALSE(holds({43, 0}, packet_words(255)));
}

} // namespace
