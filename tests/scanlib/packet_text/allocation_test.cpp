// Text of packets in steady state: no allocation.
#include <gtest/gtest.h>

#include "scanlib/ostream_packets.hpp"
#include "scanlib/packet_text/random_packet.hpp"
#include "scanlib/packet_text/text_of.hpp"
#include "scanlib/pointcloud/allocation_counter.hpp"

namespace {

using scanlib::testing::allocation_count;
using test_support::packet_words;

struct packet {
    scanlib::packet_id id;
    packet_words body;
};

std::vector<packet> one_of_each_kind() {
    test_support::random_packet make(9);
    std::vector<packet> all;
    for (std::size_t n = 1; n < scanlib::packet_index_count; ++n) {
        const auto& kind = scanlib::layout_of(static_cast<scanlib::packet_index>(n));
        all.push_back({{kind.id, kind.version}, make.of(kind)});
    }
    return all;
}

/// Allocations of the second of two equal rounds.
template<class Round>
std::size_t allocations_once_warm(Round&& round) {
    round();
    const std::size_t before = allocation_count();
    round();
    return allocation_count() - before;
}

TEST(TextAllocation, PrintingToAStringThatHasRoomTakesNone) {
    const auto all = one_of_each_kind();
    std::string text;
    EXPECT_EQ(allocations_once_warm([&] {
                  text.clear();
                  for (const packet& p : all) {
                      const std::uint32_t* const end = p.body.data() + p.body.size();
                      scanlib::append_packet(text, p.id, p.body.data(), end);
                      scanlib::append_packet_words(text, p.id, p.body.data(), end);
                      EXPECT_TRUE(scanlib::text_holds_packet(p.id, p.body.data(), end));
                  }
              }),
              0u);
    EXPECT_GT(text.size(), 10000u);
}

TEST(TextAllocation, PrintingToAStreamTakesNone) {
    const auto all = one_of_each_kind();
    std::stringstream out;
    EXPECT_EQ(allocations_once_warm([&] {
                  out.seekp(0);
                  for (const packet& p : all) {
                      scanlib::print_packet(out, p.id, p.body.data(),
                                            p.body.data() + p.body.size());
                  }
              }),
              0u);
    EXPECT_GT(out.tellp(), 10000);
}

TEST(TextAllocation, ReadingNumbersIntoWordsThatHaveRoomTakesNone) {
    std::istringstream in;
    std::string line(", 1, 2, 3");
    packet_words body;
    EXPECT_EQ(allocations_once_warm([&] {
                  in.clear();
                  in.str(line);
                  for (int i = 0; i < 100; ++i) {
                      in.clear();
                      in.seekg(0);
                      scanlib::read_packet(in, {10, 2}, body);
                  }
              }),
              0u);
    EXPECT_EQ(body, (packet_words{1, 2, 3}));
}

} // namespace
