// A recording of every kind, against the lines that another program wrote of it.
#include <algorithm>
#include <fstream>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "scanlib/connection.hpp"
#include "scanlib/packet_head.hpp"
#include "scanlib/packet_text/text_of.hpp"
#include "scanlib/packets.hpp"
#include "scanlib/rxpmarker.hpp"

namespace {

using scanlib::packet_id;
using scanlib::pair_form;
using test_support::packet_words;

const std::string folder = TEST_DATA_DIR "/recordings/all-kinds/";

/// The packets of the recording, by pair.
std::multimap<packet_id, packet_words> packets() {
    const std::shared_ptr<scanlib::basic_rconnection> connection(
        scanlib::basic_rconnection::create(folder + "200101_120000_Scanner_1.rxp", "", ""));
    connection->open();
    scanlib::decoder_rxpmarker decoder(connection, scanlib::decoder_capacity,
                                       scanlib::decoder_headroom, true);
    std::multimap<packet_id, packet_words> found;
    scanlib::short_code_table codes;
    scanlib::basic_buffer packet;
    do {
        decoder.get(packet);
        if (!packet.empty()) {
            const auto head = scanlib::read_head(packet.begin(), packet.end(), codes);
            const packet_id id{head.id, head.version};
            found.emplace(id, packet_words(head.payload, head.end));
            if (id == scanlib::header_id) {
                scanlib::packets::header header(head.payload, head.end);
                codes.learn(header);
            }
        }
    } while (!packet.empty() && !decoder.packet_truncated());
    return found;
}

class AllKinds : public testing::TestWithParam<pair_form> {
  protected:
    static std::vector<std::string> expected_lines() {
        const bool numeric = GetParam() == pair_form::numeric;
        std::ifstream in(folder + (numeric ? "lines-numeric.txt" : "lines.txt"));
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) {
            lines.push_back(line);
        }
        return lines;
    }
};

TEST_P(AllKinds, HaveTheExpectedLines) {
    std::set<std::string> lines;
    std::set<packet_id> kinds;
    for (const auto& [id, body] : packets()) {
        lines.insert(test_support::text_of(id, body, GetParam()));
        kinds.insert(id);
    }
    EXPECT_EQ(kinds.size(), scanlib::packet_index_count - 1);
    const auto expected = expected_lines();
    EXPECT_EQ(expected.size(), 200u);
    for (const std::string& line : expected) {
        EXPECT_TRUE(lines.contains(line)) << line;
    }
}

TEST_P(AllKinds, ReadBackFromTheExpectedLines) {
    const auto all = packets();
    int compared = 0;
    for (const std::string& line : expected_lines()) {
        const auto read = test_support::read_text(line, GetParam());
        ASSERT_FALSE(read.failed) << line;
        const auto [first, last] = all.equal_range(read.id);
        ASSERT_NE(first, last) << line;
        if (std::all_of(first, last, [](const auto& p) {
                const packet_words& body = p.second;
                return scanlib::text_holds_packet(p.first, body.data(), body.data() + body.size());
            })) {
            EXPECT_TRUE(std::any_of(first, last, [&](const auto& p) {
                return p.second == read.body;
            })) << line;
            ++compared;
        }
    }
    EXPECT_GT(compared, 150);
}

INSTANTIATE_TEST_SUITE_P(Forms, AllKinds, testing::Values(pair_form::named, pair_form::numeric));

} // namespace
