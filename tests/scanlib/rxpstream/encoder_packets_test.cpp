#include "scanlib/encoder_packets.hpp"

#include <gtest/gtest.h>

#include "packet_streams.hpp"

namespace {

using namespace packet_streams;
using test_support::memory_wconnection;

/// The stream that encoder_packets makes of the packets of another.
bytes encoded_again(const bytes& stream) {
    const auto out = std::make_shared<memory_wconnection>();
    const auto encoder = std::make_shared<scanlib::encoder_rxpmarker>(
        out, scanlib::encoder_capacity, scanlib::encoder_headroom, false);
    scanlib::encoder_packets consumer(encoder);
    auto decoder = streams::decoder(stream, false);
    for (const auto& packet : streams::decode_all(decoder)) {
        consumer.dispatch(packet.data(), packet.data() + packet.size());
    }
    encoder->flush();
    return out->bytes();
}

TEST(EncoderPackets, EveryPacketIsWrittenOnceAsItsNewestVersion) {
    const packets all{header(), gap(1), {{10, 2}, {1, 2, 3}}, blob({4, 5}), {{65535, 65535}, {}}};
    EXPECT_EQ(read_packets(encoded_again(framed(all))), all);
}

TEST(EncoderPackets, HeadsAreTheShortestThatTheHeadersAllow) {
    auto decoder = streams::decoder(
        encoded_again(framed({gap(1), header({{152, 0}}), gap(2), {{50, 0}, {0, 0}}})), false);
    const auto frames = streams::decode_all(decoder);
    EXPECT_EQ(frames.at(0), (words{0xFFFFFFFF, 152u << 16, 1, 0x3F800000}));
    EXPECT_EQ(frames.at(2), (words{0xFFFFFF01, 2, 0x3F800000}));
    EXPECT_EQ(frames.at(3), (words{0xFFFFFFFD, 0, 0}));
}

TEST(EncoderPackets, UnknownVersionIsWrittenAsTheNewestKnownOne) {
    EXPECT_EQ(read_packets(encoded_again(framed({{{10, 3}, {1, 2, 3, 4}}, {{175, 0}, {9}}}))),
              (packets{{{10, 2}, {1, 2, 3, 4}}}));
}

TEST(EncoderPackets, WithoutAnEncoderNothingHappens) {
    scanlib::encoder_packets consumer;
    const words packet{0xFFFFFFFF, 10u << 16, 7};
    EXPECT_FALSE(consumer.dispatch(packet.data(), packet.data() + packet.size()));
    EXPECT_EQ(consumer.packet_count, 1u);
}

} // namespace
