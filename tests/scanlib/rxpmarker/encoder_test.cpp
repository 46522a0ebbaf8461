#include <random>

#include <gtest/gtest.h>

#include "streams.hpp"

namespace {

using namespace streams;
using scanlib::basic_buffer;

packets random_packets(unsigned seed, std::size_t count, std::size_t longest) {
    std::mt19937 random(seed);
    packets all;
    for (std::size_t i = 0; i < count; ++i) {
        words w(1 + random() % longest);
        for (auto& word : w) {
            word = random() % 3 == 0 ? 0xFFFFFF00u + static_cast<std::uint32_t>(random() % 256)
                                     : static_cast<std::uint32_t>(random());
        }
        w[0] = 0xFFFFFF01u + static_cast<std::uint32_t>(random() % 255);
        all.push_back(std::move(w));
    }
    return all;
}

TEST(Encoder, DecoderReproducesEveryPacketWithAndWithoutPreamble) {
    for (const bool with_preamble : {false, true}) {
        for (unsigned seed = 1; seed < 20; ++seed) {
            const packets all = random_packets(seed, 300, seed * 40);
            auto d = decoder(encode_all(all, with_preamble), with_preamble);
            EXPECT_EQ(decode_all(d), all) << seed;
        }
    }
}

TEST(Encoder, PreambleGoesOutFirst) {
    EXPECT_EQ(encode_all({}, true), bytes(preamble));
    EXPECT_EQ(encode_all({{0xFFFFFF01, 5}}, true), bytes(concat(preamble, {0xFFFFFF01, 5})));
}

TEST(Encoder, FirstWordThatIsNoStartWordFailsAndCommitsNothing) {
    for (const std::uint32_t first : {0xFFFFFF00u, 0xFFFFFEFFu, 0u}) {
        auto out = std::make_shared<test_support::memory_wconnection>();
        scanlib::encoder_rxpmarker encoder(out, 64, 32, false);
        basic_buffer area;
        encoder.put(area);
        area.resize(2);
        *area.begin() = first;
        EXPECT_EQ(failure([&] { encoder.put(area); }), "Start escape missing!");
        encoder.flush();
        EXPECT_TRUE(out->bytes().empty());
    }
}

TEST(Encoder, PacketAreaIsTheWholeHeadroom) {
    scanlib::encoder_rxpmarker encoder(nullptr, 96, 40, false);
    basic_buffer area;
    encoder.put(area);
    EXPECT_TRUE(area.empty());
    EXPECT_EQ(area.capacity(), 40u);
    area.resize(40);
    EXPECT_EQ(failure([&] { area.resize(41); }), "basic_buffer::resize");
}

TEST(Encoder, BodyOfAllOnesDoublesOnTheWire) {
    const packets all{{0xFFFFFF01, 0xFFFFFFFF, 0xFFFFFFFF}};
    EXPECT_EQ(encode_all(all, false), bytes({0xFFFFFF01, 0xFFFFFF00, 0, 0xFFFFFF00, 0}));
}

TEST(Encoder, PacketThatDoesNotFitTheRingFailsAndTheNextOneIsWhole) {
    auto out = std::make_shared<test_support::memory_wconnection>();
    scanlib::encoder_rxpmarker encoder(out, 16 + 32, 32, false);
    basic_buffer area;
    encoder.put(area);
    area.resize(20);
    std::fill(area.begin(), area.end(), 1u);
    *area.begin() = 0xFFFFFF01;
    EXPECT_EQ(failure([&] { encoder.put(area); }), "Buffer overflow.");
    area = basic_buffer();
    encoder.put(area);
    area.resize(3);
    *area.begin() = 0xFFFFFF02;
    encoder.put(area);
    encoder.flush();
    EXPECT_EQ(out->bytes(), bytes({0xFFFFFF02, 0, 0}));
}

TEST(Encoder, OnlyWholePacketsAreDrained) {
    scanlib::encoder_rxpmarker encoder(nullptr, 96, 40, false);
    basic_buffer area;
    basic_buffer region;
    encoder.put(area);
    encoder.get(region);
    EXPECT_TRUE(region.empty());
    area.resize(3);
    *area.begin() = 0xFFFFFF02;
    encoder.get(region);
    EXPECT_TRUE(region.empty()) << "the packet is still being assembled";
    encoder.put(area);
    encoder.get(region);
    EXPECT_EQ(words_of(region), (words{0xFFFFFF02, 0, 0}));
    encoder.get(region);
    EXPECT_TRUE(region.empty());
}

TEST(Encoder, DrainedPreambleIsCountedAgainstItsSixteenBytes) {
    scanlib::encoder_rxpmarker encoder(nullptr, 96, 40, true);
    basic_buffer region;
    encoder.get(region);
    EXPECT_EQ(words_of(region), preamble);
    region = basic_buffer(region.begin(), region.begin() + 1, region.end());
    encoder.get(region);
    EXPECT_EQ(region.size(), 3u) << "the rest of the preamble";
    encoder.get(region);
    EXPECT_TRUE(region.empty());
}

TEST(Encoder, MarkedEndClosesTheConnectionAtTheNextFlush) {
    auto out = std::make_shared<test_support::memory_wconnection>();
    {
        scanlib::encoder_rxpmarker encoder(out, 96, 40, false);
        encoder.flush();
        EXPECT_EQ(out->closes(), 0);
        encoder.mark_end();
        encoder.flush();
        EXPECT_EQ(out->closes(), 1);
    }
    EXPECT_EQ(out->closes(), 1) << "the destructor has nothing left to do";
}

TEST(Encoder, DestructorFlushesAndClosesButLosesThePacketInTheMaking) {
    auto out = std::make_shared<test_support::memory_wconnection>();
    {
        scanlib::encoder_rxpmarker encoder(out, 96, 40, false);
        basic_buffer area;
        encoder.put(area);
        area.resize(1);
        *area.begin() = 0xFFFFFF02;
        encoder.put(area);
        area.resize(1);
        *area.begin() = 0xFFFFFF03;
    }
    EXPECT_EQ(out->bytes(), bytes({0xFFFFFF02}));
    EXPECT_EQ(out->closes(), 1);
}

TEST(Encoder, ConnectionThatTakesFewBytesGetsThemAll) {
    const packets all = random_packets(5, 200, 100);
    auto out = std::make_shared<test_support::memory_wconnection>(3);
    {
        scanlib::encoder_rxpmarker encoder(out, 512 + 256, 256, true);
        basic_buffer area;
        encoder.put(area);
        for (const words& w : all) {
            area.resize(w.size());
            std::copy(w.begin(), w.end(), area.begin());
            encoder.put(area);
        }
    }
    EXPECT_EQ(out->bytes(), encode_all(all, true));
}

TEST(BasicBuffer, ResizeZeroFillsAndEndsAtItsStorage) {
    std::uint32_t storage[4] = {1, 2, 3, 4};
    basic_buffer b(storage, storage + 1, storage + 4);
    b.resize(3);
    EXPECT_EQ(words_of(b), (words{1, 0, 0}));
    b.resize(0);
    EXPECT_TRUE(b.empty());
    EXPECT_EQ(failure([&] { b.resize(5); }), "basic_buffer::resize");
}

} // namespace
