#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include <gtest/gtest.h>

#include "scanlib/rxpstream/rewriting.hpp"

namespace {

using namespace rewriting;
using scanlib::basic_rconnection;
using test_support::memory_rconnection;

const std::string append_gap = entry(R"("ID":[175,0])", new_gap);
const std::string delete_gap = entry(R"("ID":[152,0])", "");

std::shared_ptr<memory_rconnection> overridden(const bytes& stream, const std::string& pxp,
                                               std::uint64_t largest_read = ~std::uint64_t{0}) {
    auto c = std::make_shared<memory_rconnection>(stream, largest_read);
    c->pxp(pxp);
    return c;
}

/// All bytes, in reads of `piece`.
bytes read_all(basic_rconnection& c, std::uint64_t piece = 1000) {
    bytes all;
    while (true) {
        all.resize(all.size() + piece);
        const std::uint64_t k =
            c.read(reinterpret_cast<char*>(all.data() + all.size() - piece), piece);
        all.resize(all.size() - piece + k);
        if (k == 0) {
            return all;
        }
    }
}

bytes joined(bytes a, const bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

std::string read_failure(const packets& all, const std::string& pxp) {
    return streams::failure([&] { read_all(*overridden(framed(all, true), pxp)); });
}

TEST(HeaderReplacement, ReaderSeesTheRewrittenRegionAndTheRestAsItIs) {
    const bytes before = framed({header(), gap(1)}, true);
    const bytes after = framed({header(), made_gap}, true);
    bytes rest = framed({shot(5)});
    for (std::uint32_t n = 0; n < 20000; ++n) {
        rest.push_back(static_cast<unsigned char>(n * n >> 3));
    }
    const std::string pxp = packets_text(delete_gap + "," + append_gap);
    EXPECT_EQ(read_all(*overridden(joined(before, rest), pxp)), joined(after, rest));
}

TEST(HeaderReplacement, IsTheSameForAllReadsAndSources) {
    std::mt19937 random(11);
    const bytes stream = framed({gap(3), header(), gap(1), gap(2), shot(5), gap(7), shot(6)}, true);
    const bytes expected =
        framed({gap(3), header(), gap(2), made_gap, shot(5), gap(7), shot(6)}, true);
    const std::string pxp = packets_text(delete_gap + "," + append_gap);
    for (std::uint64_t piece = 1; piece < 60; ++piece) {
        ASSERT_EQ(read_all(*overridden(stream, pxp), piece), expected) << piece;
        ASSERT_EQ(read_all(*overridden(stream, pxp, piece), 1 + random() % 100), expected) << piece;
    }
}

TEST(HeaderReplacement, ReadEndsWithTheEightBytesThatWereFound) {
    const bytes stream = framed({header(), gap(1), shot(5)}, true);
    const auto c = overridden(stream, packets_text(delete_gap));
    bytes first(stream.size());
    EXPECT_EQ(c->read(reinterpret_cast<char*>(first.data()), first.size()), 24u);
    EXPECT_EQ(c->gcount(), 24u);
}

TEST(HeaderReplacement, PositionCountsTheRegionTwice) {
    const bytes stream = framed({header(), gap(1), shot(5)}, true);
    const auto c = overridden(stream, "{}");
    const bytes delivered = read_all(*c);
    EXPECT_EQ(delivered, stream);
    EXPECT_EQ(c->position(), delivered.size() + stream.size() - 16);
}

TEST(HeaderReplacement, EveryHeaderOfTheStreamIsReplaced) {
    const packets region{header(), gap(1), shot(5)};
    const packets corrected{header(), made_gap, shot(5)};
    bytes stream = framed(region, true);
    bytes expected = framed(corrected, true);
    for (int i = 0; i < 200; ++i) {
        stream = joined(stream, framed(region));
        expected = joined(expected, framed(corrected));
    }
    EXPECT_EQ(read_all(*overridden(stream, packets_text(delete_gap + "," + append_gap))), expected);
}

TEST(HeaderReplacement, WhatFollowsASecondHeaderInTheRegionIsRewrittenAgain) {
    EXPECT_EQ(read_packets(overridden(framed({header(), gap(1), header(), gap(1), shot(5)}),
                                      packets_text(append_gap))),
              (packets{header(), gap(1), header(), gap(1), made_gap, made_gap, shot(5)}));
}

TEST(HeaderReplacement, HeaderBehindTwoStartWordsGoesUnnoticed) {
    const bytes stream = joined(bytes(4, 0xFF), framed({header(), gap(1), shot(5)}));
    EXPECT_EQ(read_all(*overridden(stream, packets_text(delete_gap))), stream);
}

TEST(HeaderReplacement, WithoutAnOverrideTextTheStreamIsAsItIs) {
    const bytes stream = framed({header(), gap(1), shot(5)}, true);
    EXPECT_EQ(read_all(*overridden(stream, "")), stream);
}

TEST(HeaderReplacement, TextSetLaterCountsForTheHeadersToCome) {
    const bytes region = framed({header(), gap(1), shot(5)});
    const auto c = overridden(joined(region, region), packets_text(append_gap));
    bytes found(region.size() + 16);
    c->read_all(reinterpret_cast<char*>(found.data()), found.size());
    c->pxp(packets_text(delete_gap));
    EXPECT_EQ(joined(found, read_all(*c)),
              joined(framed({header(), gap(1), made_gap, shot(5)}), framed({header(), shot(5)})));
}

TEST(HeaderReplacement, OutputWithoutItsHeaderFails) {
    const std::string delete_header = packets_text(entry(R"("ID":[1,0])", ""));
    EXPECT_EQ(read_failure({header()}, delete_header), "internal error: parameter replacement 1");
    EXPECT_EQ(read_failure({header(), gap(1), shot(5)}, delete_header),
              "internal error: parameter replacement 2");
    EXPECT_EQ(read_failure({header(), shot(5)}, packets_text(entry(R"("ID":[1,0])", R"("ID":[58,0],
                               "content":["1","[]"])"))),
              "internal error: parameter replacement 2");
}

TEST(HeaderReplacement, FailuresOfTheRewriterPassThrough) {
    EXPECT_EQ(
        read_failure({header(), shot(5)}, packets_text(entry(R"("ID":[1,0])", R"("ID":[175,0])"))),
        "error: unknown id for new packet in pxp file");
    EXPECT_NE(read_failure({header(), shot(5)}, "{").find("expected"), std::string::npos);
}

TEST(HeaderReplacement, ConnectionThatNobodySharesFails) {
    memory_rconnection c(framed({header(), shot(5)}));
    c.pxp("{}");
    EXPECT_THROW(read_all(c), std::bad_weak_ptr);
}

TEST(HeaderReplacement, RegionWithoutAnEndIsBounded) {
    packets all{header()};
    for (std::uint64_t n = 0; n < basic_rconnection::longest_header_region; n += 40000) {
        all.push_back(blob(words(10000, 1)));
    }
    EXPECT_EQ(read_failure(all, "{}"),
              "header replacement: no measurement within 33554432 bytes of the header");
}

TEST(HeaderReplacement, HeadersInARegionAreBounded) {
    packets all(basic_rconnection::most_headers_in_region + 1, header());
    all.push_back(shot(5));
    EXPECT_EQ(read_packets(overridden(framed(all), "{}")), all);
    all.insert(all.begin(), header());
    EXPECT_EQ(read_failure(all, "{}"),
              "header replacement: more than 64 further headers before the measurement");
}

TEST(HeaderReplacement, LogHoldsTheRegionAsReadAndAsRewritten) {
    const auto log = std::filesystem::path(TEST_BINARY_DIR) / "header_replacement_test.log";
    const bytes stream = framed({header(), gap(1), shot(5)});
    const auto c = overridden(stream, packets_text(delete_gap));
    c->log(log.string(), INT64_MAX);
    const bytes delivered = read_all(*c);
    c->close_log();
    std::ifstream in(log, std::ios::binary);
    const bytes logged{std::istreambuf_iterator<char>(in), {}};
    EXPECT_EQ(logged, joined(stream, delivered));
    std::filesystem::remove(log);
}

TEST(HeaderReplacement, LogThatFailsMeanwhileLosesNothing) {
    const auto log = std::filesystem::path(TEST_BINARY_DIR) / "header_replacement_failing.log";
    const auto in_the_way = log.string() + "_001";
    std::filesystem::create_directories(in_the_way + "/kept");
    const bytes stream = framed({header(), gap(1), shot(5)});
    const auto c = overridden(stream, packets_text(append_gap));
    c->log(log.string(), 20);
    bytes delivered;
    EXPECT_EQ(streams::failure([&] { delivered = read_all(*c); }),
              "cannot create logfile extension");
    EXPECT_EQ(read_all(*c), framed({header(), gap(1), made_gap, shot(5)}));
    std::filesystem::remove(log);
    std::filesystem::remove_all(in_the_way);
}

} // namespace
