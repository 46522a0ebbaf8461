#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "scanlib/ostream_packets.hpp"
#include "scanlib/packet_text.hpp"

namespace {

using words = std::vector<std::uint32_t>;

class OstreamPackets : public testing::Test {
  protected:
    std::ostringstream out;
    scanlib::ostream_packets printer{&out};

    void send(std::uint32_t id, std::uint32_t version, const words& payload) {
        words packet{0xFFFFFFFFu, id << 16 | version};
        packet.insert(packet.end(), payload.begin(), payload.end());
        printer.dispatch(packet.data(), packet.data() + packet.size());
    }
};

TEST_F(OstreamPackets, ANewerVersionPrintsOnce) {
    send(10, 2, {1, 2, 3});
    send(10, 1, {1, 2});
    EXPECT_EQ(out.str(), "laser_shot_2angles (10.2), 1, 2, 3\nlaser_shot_1angle (10.1), 1, 2\n");
}

TEST_F(OstreamPackets, AVersionBeyondTheCatalogueIsFollowedByTheNewestKnown) {
    send(10, 4, {1, 2, 3, 0});
    EXPECT_EQ(out.str(), "unknown (10.4), 0x1, 0x2, 0x3, 0\n"
                         "unknown (10.3), 0x1, 0x2, 0x3, 0\n"
                         "laser_shot_2angles (10.2), 1, 2, 3\n");
}

TEST_F(OstreamPackets, AnUnknownShortCodePrintsOnceAVersion) {
    const words packet{0xFFFFFF07u, 5};
    printer.dispatch(packet.data(), packet.data() + 2);
    std::string expected;
    for (int version = 7; version >= 0; --version) {
        expected += "unknown (0." + std::to_string(version) + "), 0x5\n";
    }
    EXPECT_EQ(out.str(), expected);
}

TEST_F(OstreamPackets, APacketThatClaimsManyVersionsIsBounded) {
    send(9, 65535, {1});
    const std::string text = out.str();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), scanlib::ostream_packets::unknown_lines);
    EXPECT_TRUE(text.starts_with("unknown (9.65535), 0x1\nunknown (9.65534), 0x1\n"));
}

TEST_F(OstreamPackets, SelectionChoosesWhatIsPrinted) {
    printer.selection = scanlib::packet_mask{}.set(scanlib::packet_index::laser_shot);
    send(10, 2, {1, 2, 3});
    send(14, 0, {});
    EXPECT_EQ(out.str(), "laser_shot (10.0), 1\n");
}

TEST_F(OstreamPackets, TheNumericFlagOfTheStreamCounts) {
    out << scanlib::numeric_packets;
    send(43, 0, {10u << 16 | 2});
    send(9, 0, {10});
    EXPECT_EQ(out.str(), "43, 0, 2, 10\n9, 0, 0xa\n");
}

TEST_F(OstreamPackets, TheLineOfAPacketThatCannotBeReadEndsBehindItsPair) {
    EXPECT_THROW(send(1, 0, {0}), std::range_error);
    send(14, 0, {});
    EXPECT_EQ(out.str(), "header (1.0)\nframe_start (14.0)\n");
}

TEST_F(OstreamPackets, AShortPayloadPrintsZeroes) {
    send(10, 2, {1});
    EXPECT_EQ(out.str(), "laser_shot_2angles (10.2), 1, 0, 0\n");
}

TEST(OstreamPacketsWithoutStream, DropsPacketsAndEndsTheirChain) {
    class counting : public scanlib::ostream_packets {
      public:
        counting() : ostream_packets(nullptr) {}
        int calls = 0;
        scanlib::unknown_walk on_packet(scanlib::packet_id id,
                                        const scanlib::packet_head& head) override {
            ++calls;
            return ostream_packets::on_packet(id, head);
        }
    } printer;
    const words shot{0xFFFFFFFFu, 10u << 16 | 2, 1, 2, 3};
    printer.dispatch(shot.data(), shot.data() + shot.size());
    EXPECT_EQ(printer.calls, 1);
    const words unknown{0xFFFFFFFFu, 9u << 16 | 2};
    printer.dispatch(unknown.data(), unknown.data() + unknown.size());
    EXPECT_EQ(printer.calls, 2);
}

} // namespace
