// Every kind: a packet, its line, and the packet again.
#include <gtest/gtest.h>

#include "scanlib/packet_text/random_packet.hpp"
#include "scanlib/packet_text/text_of.hpp"

namespace {

using scanlib::pair_form;
using test_support::packet_words;
using test_support::read_text;
using test_support::text_of;

class RoundTrip : public testing::TestWithParam<pair_form> {};

TEST_P(RoundTrip, EveryKindGivesItsWordsAgain) {
    test_support::random_packet make(1);
    for (int round = 0; round < 20; ++round) {
        for (std::size_t n = 1; n < scanlib::packet_index_count; ++n) {
            const auto& kind = scanlib::layout_of(static_cast<scanlib::packet_index>(n));
            const scanlib::packet_id id{kind.id, kind.version};
            const packet_words body = make.of(kind);
            const std::string line = text_of(id, body, GetParam());
            const auto read = read_text(line, GetParam());
            ASSERT_FALSE(read.failed) << line;
            ASSERT_EQ(read.id, id) << line;
            ASSERT_EQ(read.body, body) << line;
            ASSERT_EQ(read.rest, "") << line;
        }
    }
}

TEST_P(RoundTrip, PrintingAndReadingUseTheSameStreamFlag) {
    const packet_words body{7, 8, 9};
    std::stringstream stream;
    if (GetParam() == pair_form::numeric) {
        stream << scanlib::numeric_packets;
    }
    scanlib::print_packet(stream, {10, 2}, body.data(), body.data() + body.size());
    scanlib::packet_id id;
    packet_words read;
    stream >> id;
    scanlib::read_packet(stream, id, read);
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(id, (scanlib::packet_id{10, 2}));
    EXPECT_EQ(read, body);
}

INSTANTIATE_TEST_SUITE_P(Forms, RoundTrip, testing::Values(pair_form::named, pair_form::numeric));

TEST(PacketFields, JoinedTheyAreTheLine) {
    test_support::random_packet make(2);
    for (std::size_t n = 1; n < scanlib::packet_index_count; ++n) {
        const auto& kind = scanlib::layout_of(static_cast<scanlib::packet_index>(n));
        const scanlib::packet_id id{kind.id, kind.version};
        const packet_words body = make.of(kind);
        std::ostringstream joined;
        joined << id;
        for (const std::string& field :
             scanlib::packet_fields(id, body.data(), body.data() + body.size())) {
            joined << ", " << field;
        }
        EXPECT_EQ(joined.str(), text_of(id, body));
    }
}

TEST(PacketFields, AnArrayASequenceAndATextAreOneStringEach) {
    packet_words header(14);
    header[0] = 'A';
    header[12] = 10u << 16 | 2;
    header[13] = 67u << 16;
    EXPECT_EQ(scanlib::packet_fields({1, 0}, header.data(), header.data() + 14),
              (std::vector<std::string>{"\"A\"", "\"\"", "\"\"", "[{2, 10}, {0, 67}]"}));
    const packet_words unknown{0, 0xFFFFFFFF};
    EXPECT_EQ(scanlib::packet_fields({9, 0}, unknown.data(), unknown.data() + 2),
              (std::vector<std::string>{"0", "0xffffffff"}));
}

} // namespace
