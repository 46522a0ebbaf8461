// A decoder without a connection: a ring between a thread that puts and one that gets.
#include <atomic>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "streams.hpp"

namespace {

using namespace streams;
using scanlib::basic_buffer;

words test_stream(std::size_t count) {
    std::mt19937 random(11);
    packets all;
    for (std::size_t i = 0; i < count; ++i) {
        words w(1 + random() % 40, static_cast<std::uint32_t>(i));
        w[0] = 0xFFFFFF01u + static_cast<std::uint32_t>(random() % 255);
        if (w.size() > 3) {
            w[3] = 0xFFFFFFFE;
        }
        all.push_back(std::move(w));
    }
    const auto b = encode_all(all, false);
    words w(b.size() / 4);
    std::memcpy(w.data(), b.data(), b.size());
    return w;
}

TEST(ConcurrentDecoder, ProducerAndConsumerShareTheRingWithoutLoss) {
    const words stream = test_stream(20000);
    scanlib::decoder_rxpmarker ring(nullptr, 512, 128, false);
    std::atomic<std::uint64_t> put_words{0};
    std::thread producer([&] {
        basic_buffer region;
        ring.put(region);
        for (std::size_t at = 0; at < stream.size();) {
            const std::size_t n = std::min(region.capacity(), stream.size() - at);
            std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(at), n, region.begin());
            region.set_filled(n);
            at += n;
            put_words.store(at, std::memory_order_release);
            ring.put(region);
        }
        region.set_filled(0);
        ring.put(region);
    });
    words got;
    basic_buffer packet;
    // A get that finds the ring empty hands out what is there, so the consumer asks only for what
    // was put before.
    while (ring.tell() / 4 + 200 < stream.size()) {
        if (put_words.load(std::memory_order_acquire) < ring.tell() / 4 + 200) {
            std::this_thread::yield();
            continue;
        }
        ring.get(packet);
        ASSERT_FALSE(packet.empty());
        for (const std::uint32_t* p = packet.begin(); p != packet.end(); ++p) {
            if (p != packet.begin() && *p >= 0xFFFFFF00u) {
                got.push_back(0xFFFFFF00u);
                got.push_back(~*p);
            } else {
                got.push_back(*p);
            }
        }
    }
    producer.join();
    ASSERT_EQ(got.size(), ring.tell() / 4);
    EXPECT_TRUE(std::equal(got.begin(), got.end(), stream.begin()));
}

TEST(ConcurrentDecoder, EndOfTheProducerIsSeenAsTheCleanEnd) {
    scanlib::decoder_rxpmarker ring(nullptr, 64, 16, false);
    std::thread producer([&] {
        basic_buffer region;
        ring.put(region);
        region.set_filled(2);
        region.begin()[0] = 0xFFFFFF01;
        region.begin()[1] = 5;
        ring.put(region);
        region.set_filled(0);
        ring.put(region);
    });
    producer.join();
    basic_buffer packet;
    ring.get(packet);
    EXPECT_EQ(words_of(packet), (words{0xFFFFFF01, 5}));
    EXPECT_TRUE(ring.packet_truncated());
    ring.get(packet);
    EXPECT_TRUE(packet.empty());
    EXPECT_EQ(failure([&] { ring.get(packet); }), "Attempt to read beyond end of input.");
}

TEST(ConcurrentDecoder, RingThatOnePacketFillsUpOverflows) {
    scanlib::decoder_rxpmarker ring(nullptr, 32, 8, false);
    std::thread producer([&] {
        basic_buffer region;
        ring.put(region);
        std::fill(region.begin(), region.end_of_storage(), 1u);
        *region.begin() = 0xFFFFFF01;
        region.set_filled(region.capacity());
        // Waits for room that comes only once the consumer has given its packet up.
        ring.put(region);
        region.set_filled(0);
        ring.put(region);
    });
    basic_buffer packet;
    std::string told;
    // The first call may come before the producer's words; the packet is the same.
    while (told != "Buffer overflow!") {
        told = failure([&] { ring.get(packet); });
        ASSERT_TRUE(told == "Buffer overflow!" || told == "no failure") << told;
        ASSERT_TRUE(packet.empty() || told == "Buffer overflow!");
    }
    std::uint32_t raw[4];
    // Taking raw words moves the decode position; the next get releases them to the producer.
    ring.raw_read(reinterpret_cast<char*>(raw), 8);
    static_cast<void>(failure([&] { ring.get(packet); }));
    producer.join();
    EXPECT_EQ(told, "Buffer overflow!");
}

TEST(ConcurrentDecoder, PacketLongerThanTheArrayExhaustsTheHeadroom) {
    // No headroom at all: the packet that reaches the ring's end has nowhere to go on.
    scanlib::decoder_rxpmarker ring(nullptr, 8, 0, false);
    basic_buffer region;
    basic_buffer packet;
    ring.put(region);
    const std::uint32_t first[] = {0xFFFFFF01, 1, 2, 3, 0xFFFFFF02};
    std::copy(std::begin(first), std::end(first), region.begin());
    region.set_filled(5);
    ring.put(region);
    ring.get(packet);
    EXPECT_EQ(packet.size(), 4u);
    ring.get(packet);
    EXPECT_EQ(packet.size(), 1u) << "the second packet begins at word 4 and is not over";
    region.set_filled(region.capacity());
    std::fill(region.begin(), region.end(), 7u);
    *region.begin() = 0xFFFFFF03u;
    ring.put(region);
    // The words up to the ring's end, which the first region left out.
    region.set_filled(region.capacity());
    std::fill(region.begin(), region.end(), 7u);
    ring.put(region);
    EXPECT_EQ(failure([&] { ring.get(packet); }), "Max headroom exhausted!");
}

} // namespace
