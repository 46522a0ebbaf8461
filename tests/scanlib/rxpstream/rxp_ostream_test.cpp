#include "scanlib/rxp_ostream.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include <gtest/gtest.h>

#include "packet_streams.hpp"

namespace {

using namespace packet_streams;
using scanlib::packet_id;
using scanlib::rxp_ostream;
using test_support::memory_wconnection;

bytes written(const packets& all, std::int64_t largest_write = INT64_MAX) {
    const auto out = std::make_shared<memory_wconnection>(largest_write);
    rxp_ostream stream;
    stream.attach(out);
    for (const packet& p : all) {
        stream.write(p.id, p.body);
    }
    stream.close();
    return out->bytes();
}

/// Start words and what follows, as they are on the stream.
streams::packets frames(const bytes& b) {
    auto decoder = streams::decoder(b, false);
    return streams::decode_all(decoder);
}

std::filesystem::path file_named(const char* name) {
    return std::filesystem::path(TEST_BINARY_DIR) / name;
}

TEST(RxpOstream, PairWithACodeIsWrittenShort) {
    const auto found =
        frames(written({gap(1), header({{58, 0}, {152, 0}}), gap(1), blob({3}), shot(4)}));
    EXPECT_EQ(found.at(0), (words{0xFFFFFFFF, 152u << 16, 1, 0x3F800000}));
    EXPECT_EQ(found.at(2), (words{0xFFFFFF02, 1, 0x3F800000}));
    EXPECT_EQ(found.at(3), (words{0xFFFFFF01, 3}));
    EXPECT_EQ(found.at(4), (words{0xFFFFFFFF, 10u << 16, 4}));
}

TEST(RxpOstream, HeaderIsWrittenLongEvenIfItHasACode) {
    const packet head = header({{1, 0}});
    const auto found = frames(written({head, head}));
    EXPECT_EQ(found.at(1), streams::concat({0xFFFFFFFF, 0x00010000}, head.body));
}

TEST(RxpOstream, VoidDataAndChecksumsHaveHeadsOfTheirOwn) {
    const auto found =
        frames(written({header({{65535, 65535}, {50, 0}}), {{65535, 65535}, {1}}, {{50, 0}, {2}}}));
    EXPECT_EQ(found.at(1), (words{0xFFFFFFFE, 1}));
    EXPECT_EQ(found.at(2), (words{0xFFFFFFFD, 2}));
}

TEST(RxpOstream, Codes253And254AreNeverWritten) {
    std::vector<packet_id> many;
    for (std::uint32_t n = 1; n <= 254; ++n) {
        many.push_back({1000 + n, 0});
    }
    const auto found = frames(written(
        {header(many), {{1252, 0}, {}}, {{1253, 0}, {}}, {{1254, 0}, {}}, {{1255, 0}, {}}}));
    EXPECT_EQ(found.at(1), (words{0xFFFFFFFC}));
    EXPECT_EQ(found.at(2), (words{0xFFFFFFFF, 1253u << 16}));
    EXPECT_EQ(found.at(3), (words{0xFFFFFFFF, 1254u << 16}));
    EXPECT_EQ(found.at(4), (words{0xFFFFFFFF, 1255u << 16}));
}

TEST(RxpOstream, NewHeaderReplacesTheCodesOfItsPairs) {
    const auto found = frames(
        written({header({{58, 0}, {152, 0}}), header({{40, 0}, {58, 0}}), gap(1), blob({2})}));
    EXPECT_EQ(found.at(2), (words{0xFFFFFFFF, 152u << 16, 1, 0x3F800000})) << "code taken away";
    EXPECT_EQ(found.at(3), (words{0xFFFFFF02, 2})) << "code replaced";
}

TEST(RxpOstream, HeaderShorterThanItsFixedPartThrows) {
    EXPECT_EQ(streams::failure([] {
                  written({{{1, 0}, words(11)}});
              }),
              "Missing data for sequence.");
}

TEST(RxpOstream, ExpectedPairIsDemandedOfTheNextWriteOnly) {
    rxp_ostream stream;
    stream.attach(std::make_shared<memory_wconnection>());
    stream.expect({10, 2});
    EXPECT_EQ(streams::failure([&] {
                  stream.write({10, 0}, {});
              }),
              "rxp_ostream: id mismatch: expected 10.2 got 10.0");
    stream.write({10, 2}, {});
    stream.write({10, 0}, {});
}

TEST(RxpOstream, WritesFailWithoutAStreamAndAfterClose) {
    rxp_ostream stream;
    EXPECT_EQ(streams::failure([&] { stream.write({10, 0}, {}); }), "rxp_ostream: not open");
    const auto out = std::make_shared<memory_wconnection>();
    stream.attach(out);
    EXPECT_TRUE(stream.is_open());
    stream.close();
    EXPECT_FALSE(stream.is_open());
    EXPECT_GE(out->closes(), 1);
    EXPECT_EQ(streams::failure([&] { stream.write({10, 0}, {}); }), "rxp_ostream: not open");
}

TEST(RxpOstream, OpenedStreamHasAPreambleAndIsKept) {
    const auto file = file_named("rxp_ostream_test.rxp");
    {
        rxp_ostream stream(file);
        stream.write(gap(1).id, gap(1).body);
    }
    std::ifstream in(file, std::ios::binary);
    const bytes found{std::istreambuf_iterator<char>(in), {}};
    EXPECT_EQ(found, framed({gap(1)}, true));
    std::filesystem::remove(file);
}

TEST(RxpOstream, TemporaryIsRemovedByItsLastHandle) {
    const auto file = file_named("rxp_ostream_temporary.rxp");
    {
        rxp_ostream stream(file, false);
        {
            rxp_ostream copy = stream;
            copy.write(gap(1).id, gap(1).body);
        }
        EXPECT_TRUE(stream.is_open());
        stream.close();
        EXPECT_TRUE(std::filesystem::exists(file));
    }
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(RxpOstream, AttachHandsTheWrittenPacketsToTheConnectionBefore) {
    const auto first = std::make_shared<memory_wconnection>();
    const auto second = std::make_shared<memory_wconnection>();
    rxp_ostream stream;
    stream.attach(first);
    stream.write(gap(1).id, gap(1).body);
    EXPECT_EQ(stream.attach(second), first);
    EXPECT_EQ(first->bytes(), framed({gap(1)}));
    EXPECT_EQ(first->closes(), 0);
}

TEST(RxpOstream, PacketLongerThanTheUsualAreaIsWrittenWhole) {
    const packets all{gap(1), blob(words(70000, 5)), gap(2), blob(words(40000, 0xFFFFFF00)),
                      gap(3), blob(words(300000, 6))};
    EXPECT_EQ(read_packets(written(all)), all);
    EXPECT_EQ(streams::failure([&] { written({blob(words((1u << 20) + 1))}); }),
              "rxp_ostream: packet of 1048579 words is too long");
}

TEST(RxpStreams, WhatOneWritesTheOtherReads) {
    std::mt19937 random(4);
    const std::vector<packet_id> pairs{{10, 2}, {58, 0},  {152, 0},       {65535, 65535}, {50, 0},
                                       {40, 0}, {175, 3}, {65534, 65535}, {1000, 17},     {21, 1}};
    for (int run = 0; run < 200; ++run) {
        packets all;
        const std::size_t count = random() % 60;
        while (all.size() < count) {
            if (random() % 8 == 0) {
                std::vector<packet_id> codes(random() % 6);
                for (packet_id& id : codes) {
                    id = pairs[random() % pairs.size()];
                }
                all.push_back(header(codes, std::to_string(run)));
                continue;
            }
            words body(random() % 900);
            for (std::uint32_t& w : body) {
                w = random() % 10 == 0 ? 0xFFFFFF00 + static_cast<std::uint32_t>(random() % 256)
                                       : static_cast<std::uint32_t>(random());
            }
            all.push_back({pairs[random() % pairs.size()], body});
        }
        ASSERT_EQ(read_packets(written(all, 1 + static_cast<std::int64_t>(random() % 5000))), all)
            << run;
    }
}

} // namespace
