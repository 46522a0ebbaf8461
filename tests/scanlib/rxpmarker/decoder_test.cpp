#include <regex>

#include <gtest/gtest.h>

#include "streams.hpp"

namespace {

using namespace streams;
using scanlib::basic_buffer;

TEST(Decoder, StreamOfJustThePreambleEndsCleanlyThenThrows) {
    auto d = decoder(bytes(preamble), true);
    basic_buffer p;
    d.get(p);
    EXPECT_TRUE(p.empty());
    EXPECT_TRUE(d.packet_truncated());
    EXPECT_EQ(d.tell(), 16u);
    d.get(p);
    EXPECT_TRUE(p.empty());
    EXPECT_EQ(failure([&] { d.get(p); }), "Attempt to read beyond end of input.");
}

TEST(Decoder, OneFrameWithoutFollowingStartWordComesWholeAndTruncated) {
    const words frame{0xFFFFFFFF, 0x00010000, 1, 2};
    auto d = decoder(bytes(frame), false);
    basic_buffer p;
    d.get(p);
    EXPECT_EQ(words_of(p), frame);
    EXPECT_TRUE(d.packet_truncated());
    EXPECT_EQ(p.end_of_storage(), p.end());
    d.get(p);
    EXPECT_TRUE(p.empty());
    EXPECT_EQ(failure([&] { d.get(p); }), "Attempt to read beyond end of input.");
}

TEST(Decoder, BadPreambleAndOneThatEndsEarly) {
    words bad = preamble;
    bad[3] ^= 1;
    basic_buffer p;
    auto d = decoder(bytes(bad), true);
    EXPECT_EQ(failure([&] { d.get(p); }), "Bad preamble.");
    for (std::size_t n = 0; n < 16; ++n) {
        auto part = bytes(preamble);
        part.resize(n);
        auto short_one = decoder(part, true);
        EXPECT_EQ(failure([&] { short_one.get(p); }), "Bad preamble.") << n;
    }
}

TEST(Decoder, FailureNamesSourceAndLine) {
    auto d = decoder({}, true);
    basic_buffer p;
    try {
        d.get(p);
        FAIL();
    } catch (const scanlib::scanlib_exception& e) {
        EXPECT_TRUE(std::regex_search(
            e.what(), std::regex(" : scanlib/src/rxpmarker : \\d+ : Bad preamble\\.$")))
            << e.what();
    }
}

TEST(Decoder, FirstWordThatIsNoStartWordFailsAndStaysInPlace) {
    for (const std::uint32_t first : {0u, 0xFFFFFEFFu, 0xFFFFFF00u}) {
        auto d = decoder(bytes({first, 0xFFFFFF01, 5}), false);
        basic_buffer p;
        EXPECT_EQ(failure([&] { d.get(p); }), "Start escape missing!");
        EXPECT_EQ(d.tell(), 0u);
        EXPECT_EQ(failure([&] { d.get(p); }), "Start escape missing!");
    }
}

TEST(Decoder, ZeroBehindAnEscapeIsTheBodyWordOfAllOnes) {
    auto d = decoder(bytes({0xFFFFFF01, 0xFFFFFF00, 0, 7, 0xFFFFFF02}), false);
    basic_buffer p;
    d.get(p);
    EXPECT_EQ(words_of(p), (words{0xFFFFFF01, 0xFFFFFFFF, 7}));
    EXPECT_FALSE(d.packet_truncated());
}

TEST(Decoder, EveryEscapedValueComesBack) {
    packets all(1, words{0xFFFFFF01});
    for (std::uint32_t v = 0xFFFFFF00; v != 0; ++v) {
        all[0].push_back(v);
    }
    auto b = encode_all(all, false);
    EXPECT_EQ(b.size(), (1 + 2 * 256) * 4u);
    auto d = decoder(b, false);
    EXPECT_EQ(decode_all(d), all);
}

TEST(Decoder, EscapeAtTheVeryEndIsConsumedWithoutItsWord) {
    auto d = decoder(bytes({0xFFFFFF01, 5, 0xFFFFFF00}), false);
    basic_buffer p;
    d.get(p);
    EXPECT_EQ(words_of(p), (words{0xFFFFFF01, 5}));
    EXPECT_TRUE(d.packet_truncated());
    EXPECT_EQ(d.tell(), 12u);
}

TEST(Decoder, EscapeBeforeAStartWordJoinsTheTwoFrames) {
    auto d = decoder(bytes({0xFFFFFF01, 5, 0xFFFFFF00, 0xFFFFFF02, 6, 0xFFFFFF03}), false);
    EXPECT_EQ(decode_all(d), (packets{{0xFFFFFF01, 5, 0x000000FD, 6}, {0xFFFFFF03}}));
}

TEST(Decoder, PacketLongerThanTheRingGrowsIt) {
    for (const std::size_t n : {683u, 684u, 685u, 1023u, 1024u, 1025u, 5000u, 60000u}) {
        words small{0xFFFFFF01, 1, 2};
        words large(n, 3);
        large[0] = 0xFFFFFF02;
        for (std::size_t i = 1; i < n; ++i) {
            large[i] = static_cast<std::uint32_t>(i);
        }
        const packets all{small, large, small, large, small};
        auto d = decoder(encode_all(all, true), true);
        EXPECT_EQ(decode_all(d), all) << n;
    }
}

TEST(Decoder, PacketsThatRunOverRingEndComeOutContiguous) {
    packets all;
    for (std::uint32_t i = 0; i < 3000; ++i) {
        words w(1 + i % 97, i);
        w[0] = 0xFFFFFF01 + i % 200;
        if (w.size() > 5) {
            w[5] = 0xFFFFFF10; // some of them escaped
        }
        all.push_back(w);
    }
    auto d = decoder(encode_all(all, true), true);
    EXPECT_EQ(decode_all(d), all);
}

TEST(Decoder, PacketBeyondTheLargestSizeFails) {
    words large(1048577 + 10, 1);
    large[0] = 0xFFFFFF01;
    auto d = decoder(bytes(large), false);
    basic_buffer p;
    EXPECT_EQ(failure([&] { d.get(p); }), "basic_rxpmarker::attempt_to_resize: excess packet size");
}

TEST(Decoder, StreamThatEndsInsideAWordLosesItsLastFillAndCountsIt) {
    auto b = bytes({0xFFFFFF01, 1, 2, 0xFFFFFF02, 3});
    b.push_back(9);
    auto d = decoder(b, false);
    scanlib::loss_log losses;
    d.set_loss_log(&losses);
    basic_buffer p;
    d.get(p);
    EXPECT_TRUE(p.empty()) << "all of it was one fill";
    EXPECT_TRUE(d.packet_truncated());
    EXPECT_GT(losses.count(scanlib::loss::partial_word), 0u);
    auto chunked = decoder(b, false, 12);
    chunked.get(p);
    EXPECT_EQ(words_of(p), (words{0xFFFFFF01, 1, 2})) << "earlier fills stay";
}

TEST(Decoder, TellIsTheOffsetOfTheNextFrameAndSeekReturnsThere) {
    packets all;
    for (std::uint32_t i = 0; i < 500; ++i) {
        all.push_back(words(1 + i % 13, 0xFFFFFF00 + 1 + i % 255));
    }
    const auto b = encode_all(all, true);
    auto d = decoder(b, true);
    std::vector<std::uint64_t> offsets;
    basic_buffer p;
    for (std::size_t i = 0; i + 1 < all.size(); ++i) {
        d.get(p);
        offsets.push_back(d.tell());
    }
    for (const std::size_t i : {3u, 250u, 17u, 0u, 497u}) {
        d.seek(offsets[i]);
        d.get(p);
        EXPECT_EQ(words_of(p), all[i + 1]) << i;
    }
}

TEST(Decoder, SeekToZeroChecksThePreambleAgain) {
    auto d = decoder(encode_all({{0xFFFFFF01, 1}, {0xFFFFFF02}}, true), true);
    basic_buffer p;
    d.get(p);
    d.seek(0);
    d.get(p);
    EXPECT_EQ(words_of(p), (words{0xFFFFFF01, 1}));
    auto without = decoder(bytes({0xFFFFFF01, 1, 0xFFFFFF02}), false);
    without.get(p);
    without.seek(0);
    EXPECT_EQ(failure([&] { without.get(p); }), "Bad preamble.");
}

TEST(Decoder, SeekToNoWordBoundaryAndWithoutConnectionFails) {
    auto d = decoder(bytes({0xFFFFFF01}), false);
    EXPECT_EQ(failure([&] { d.seek(2); }), "Invalid seek position.");
    scanlib::decoder_rxpmarker alone(nullptr, 64, 16, false);
    EXPECT_EQ(failure([&] { alone.seek(0); }), "Cannot seek.");
}

TEST(Decoder, SeekToNoStartWordFailsTheNextGet) {
    auto d = decoder(bytes({0xFFFFFF01, 1, 2, 0xFFFFFF02}), false);
    basic_buffer p;
    d.get(p);
    d.seek(4);
    EXPECT_EQ(failure([&] { d.get(p); }), "Start escape missing!");
}

TEST(Decoder, RawReadTakesWholeUndecodedWordsThatAreThere) {
    auto d = decoder(bytes({0xFFFFFF01, 1, 0xFFFFFF02, 0xFFFFFF00, 4, 0xFFFFFF03}), false);
    basic_buffer p;
    d.get(p);
    const std::uint64_t before = d.tell();
    std::uint32_t raw[8] = {};
    EXPECT_EQ(d.raw_read(reinterpret_cast<char*>(raw), 11), 8u);
    EXPECT_EQ(raw[0], 0xFFFFFF02u);
    EXPECT_EQ(raw[1], 0xFFFFFF00u);
    EXPECT_EQ(d.raw_read(reinterpret_cast<char*>(raw), 100), 8u) << "the ring holds two more words";
    EXPECT_EQ(raw[1], 0xFFFFFF03u);
    EXPECT_EQ(d.raw_read(reinterpret_cast<char*>(raw), 100), 0u);
    EXPECT_EQ(d.tell(), before);
}

} // namespace
