#include "packet_reader.hpp"

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "scanlib/rxpmarker/streams.hpp"

namespace {

using Riegl::PacketReader;
using Riegl::StreamPacket;
using test_support::memory_rconnection;

/// Packets of 1 to 300 words, some of which hold words that are escaped in the stream.
streams::packets many_packets(std::uint32_t count) {
    streams::packets all;
    for (std::uint32_t i = 0; i < count; ++i) {
        streams::words packet = {0xFFFFFF42};
        for (std::uint32_t k = 0; k < i % 300; ++k) {
            packet.push_back(k % 7 == 3 ? 0xFFFFFF00 + (i + k) % 256 : i * k);
        }
        all.push_back(packet);
    }
    return all;
}

/// All that a reader gives of a stream, the way it ends included.
struct Seen {
    streams::packets packets;
    std::vector<std::uint64_t> offsets;
    std::uint64_t position = 0;
    std::string failure;
    std::uint64_t partial_words = 0; ///< bytes of such

    bool operator==(const Seen&) const = default;
};

Seen all_of(const std::shared_ptr<scanlib::basic_rconnection>& connection, bool ahead) {
    Seen seen;
    PacketReader reader(connection, ahead);
    StreamPacket packet;
    try {
        for (bool more = true; more;) {
            seen.offsets.push_back(reader.offset());
            more = reader.next(packet);
            seen.packets.emplace_back(packet.begin, packet.end);
            seen.offsets.push_back(packet.behind);
        }
    } catch (const std::exception& e) {
        seen.failure = e.what();
    }
    reader.stop();
    seen.position = packet.position;
    seen.partial_words = reader.losses().count(scanlib::loss::partial_word);
    return seen;
}

Seen all_of(const std::vector<unsigned char>& bytes, bool ahead) {
    return all_of(std::make_shared<memory_rconnection>(bytes, 1000), ahead);
}

TEST(ConcurrentPacketReader, ThreadAheadGivesWhatTheCallersOwnReadingGives) {
    const auto packets = many_packets(20000);
    const auto bytes = streams::encode_all(packets, true);
    const Seen seen = all_of(bytes, true);
    EXPECT_EQ(seen, all_of(bytes, false));
    EXPECT_TRUE(seen.packets == packets);
    EXPECT_EQ(seen.offsets.front(), 16U);
    EXPECT_EQ(seen.offsets.back(), bytes.size());
    EXPECT_EQ(seen.position, bytes.size());
}

TEST(ConcurrentPacketReader, DamageIsToldBehindThePacketsAheadOfIt) {
    const auto packets = many_packets(3000);
    auto bytes = streams::encode_all(packets, true);
    bytes.resize(bytes.size() / 8 * 4 + 2); // within a word
    Seen seen = all_of(bytes, true);
    EXPECT_EQ(seen, all_of(bytes, false));
    EXPECT_EQ(seen.partial_words, 2U) << "bytes";

    bytes = streams::encode_all(packets, true);
    bytes[16] = 0; // the first start word
    bytes[19] = 0;
    seen = all_of(bytes, true);
    EXPECT_EQ(seen, all_of(bytes, false));
    EXPECT_TRUE(seen.failure.ends_with("Start escape missing!")) << seen.failure;
    EXPECT_TRUE(seen.packets.empty());
}

/// Fails once so many bytes were read.
class FailingConnection : public memory_rconnection {
  public:
    FailingConnection(std::vector<unsigned char> bytes, std::uint64_t fails_at)
        : memory_rconnection(std::move(bytes), 999), fails_at_(fails_at) {}

  protected:
    std::uint64_t more_input(char* dst, std::uint64_t n) override {
        if (position() >= fails_at_) {
            throw std::runtime_error("the cable broke");
        }
        return memory_rconnection::more_input(dst, n);
    }

  private:
    std::uint64_t fails_at_;
};

TEST(ConcurrentPacketReader, FailureOfTheConnectionReachesTheCallerWithItsPlace) {
    const auto bytes = streams::encode_all(many_packets(5000), true);
    for (const std::uint64_t place : {0U, 100U, 700000U, 1500000U}) {
        const Seen seen = all_of(std::make_shared<FailingConnection>(bytes, place), true);
        EXPECT_EQ(seen, all_of(std::make_shared<FailingConnection>(bytes, place), false));
        EXPECT_EQ(seen.failure, "the cable broke");
    }
}

TEST(ConcurrentPacketReader, CanBeLeftInTheMiddle) {
    const auto connection =
        std::make_shared<memory_rconnection>(streams::encode_all(many_packets(25000), true));
    StreamPacket packet;
    {
        PacketReader reader(connection, true);
        for (int i = 0; i < 100; ++i) {
            ASSERT_TRUE(reader.next(packet));
        }
    }
    EXPECT_EQ(connection.use_count(), 1) << "the reading thread is gone";
    EXPECT_LT(connection->position(), 11'000'000U) << "it was not far ahead";
}

TEST(ConcurrentPacketReader, PacketsAboutAsLargeAsABatchComeWhole) {
    streams::packets packets = many_packets(10);
    for (std::uint32_t size : {40000U, 60000U, 60000U, 1U, 65000U, 2U}) {
        packets.push_back({0xFFFFFF42});
        packets.back().resize(size, size);
    }
    const auto bytes = streams::encode_all(packets, true);
    const Seen seen = all_of(bytes, true);
    EXPECT_EQ(seen, all_of(bytes, false));
    EXPECT_TRUE(seen.packets == packets);
}

} // namespace
