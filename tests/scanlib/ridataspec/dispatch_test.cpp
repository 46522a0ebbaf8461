#include "scanlib/basic_packets.hpp"

#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

namespace {

using scanlib::packet_head;
using scanlib::packet_id;
using scanlib::packet_index;
using scanlib::unknown_walk;
using words = std::vector<std::uint32_t>;

constexpr std::uint32_t long_start = 0xFFFFFFFFu;

/// Records what a dispatch calls.
class recorder : public scanlib::basic_packets {
  public:
    using scanlib::basic_packets::continue_chain;

    std::vector<std::string> calls;
    bool stop_at_two_angles = false;
    std::uint32_t last_count = 99;

    bool run(const words& w) { return dispatch(w.data(), w.data() + w.size()); }

    unknown_walk on_packet(packet_id id, const packet_head& head) override {
        calls.push_back("packet " + std::to_string(id.id) + "." + std::to_string(id.version));
        EXPECT_GE(head.version, id.version);
        return unknown_walk::enough;
    }
    unknown_walk on_unknown(std::uint32_t id, std::uint32_t version, const std::uint32_t* b,
                            const std::uint32_t* e) override {
        calls.push_back("unknown " + std::to_string(id) + "." + std::to_string(version) + " " +
                        std::to_string(e - b));
        return unknown_walk::more;
    }
    void on_laser_shot(scanlib::packets::laser_shot& p) override {
        calls.push_back("shot " + std::to_string(p.time_counter()));
    }
    void on_laser_shot_1angle(scanlib::packets::laser_shot_1angle& p) override {
        calls.push_back("line " + std::to_string(p.line_counter()));
    }
    void on_laser_shot_2angles(scanlib::packets::laser_shot_2angles& p) override {
        calls.push_back("frame " + std::to_string(p.frame_counter()));
        continue_chain = !stop_at_two_angles;
    }
    void on_crc32_check(scanlib::packets::crc32_check&) override { calls.push_back("check"); }
    void on_void_data(scanlib::packets::void_data&) override { calls.push_back("void"); }
    void on_header(scanlib::packets::header& p, const std::uint32_t*) override {
        calls.push_back("header " + std::to_string(p.size()));
    }
    void on_sbl_dg_data(scanlib::packets::sbl_dg_data& p, const std::uint32_t*) override {
        last_count = p.size();
    }
};

words header(std::size_t payload_words, std::initializer_list<std::uint32_t> sequence) {
    words w{long_start, 0x00010000};
    w.resize(2 + payload_words);
    std::copy(sequence.begin(), sequence.end(), w.begin() + 14);
    return w;
}

using calls = std::vector<std::string>;

TEST(Dispatch, LowByte253RunsTheCheckAtOnce) {
    recorder r;
    r.run({0xFFFFFFFD, 0x000A0002, 5});
    EXPECT_EQ(r.calls, (calls{"packet 50.0", "check"}));
}

TEST(Dispatch, LongFormRunsTheChainNewestFirst) {
    recorder r;
    r.run({long_start, 0x000A0002, 1, 2, 3});
    EXPECT_EQ(r.calls,
              (calls{"packet 10.2", "frame 3", "packet 10.1", "line 2", "packet 10.0", "shot 1"}));
    EXPECT_EQ(r.packet_count, 1u);
}

TEST(Dispatch, ShortCodeWithoutHeaderWalksDownFromTheCode) {
    recorder r;
    r.run({0xFFFFFF07, 1, 2});
    ASSERT_EQ(r.calls.size(), 16u);
    for (std::size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(r.calls[2 * i], "packet 0." + std::to_string(7 - i));
        EXPECT_EQ(r.calls[2 * i + 1], "unknown 0.7 2");
    }
}

TEST(Dispatch, HeaderWithoutEntriesLeavesTheShortCodesUnchanged) {
    recorder r;
    r.run(header(13, {0x000A0002}));
    r.run(header(12, {}));
    r.calls.clear();
    r.run({0xFFFFFF01, 1, 2, 3});
    EXPECT_EQ(r.calls[1], "frame 3");
}

TEST(Dispatch, HeaderOfAnotherLengthOverwritesFromCodeOneAndLeavesHigherCodes) {
    recorder r;
    r.run(header(14, {0x000A0002, 0x000A0001}));
    r.run(header(13, {0x000A0000}));
    EXPECT_EQ(r.short_codes().id_of(1), (packet_id{10, 0}));
    EXPECT_EQ(r.short_codes().id_of(2), (packet_id{10, 1}));
}

TEST(Dispatch, HeaderOf52BytesHasOneEntryAndOf48None) {
    recorder r;
    r.run(header(13, {0x000A0002}));
    r.run(header(12, {}));
    EXPECT_EQ(r.calls, (calls{"packet 1.0", "header 1", "packet 1.0", "header 0"}));
}

TEST(Dispatch, HeaderShorterThanItsFixedPartThrows) {
    recorder r;
    const words w = header(11, {});
    try {
        r.run(w);
        FAIL();
    } catch (const std::range_error& e) {
        EXPECT_STREQ(e.what(), "Missing data for sequence.");
    }
    r.calls.clear();
    r.run({long_start, 0x000A0000, 9});
    EXPECT_EQ(r.calls.back(), "shot 9") << "the object stays usable";
}

TEST(Dispatch, TextNeedsOneByteBehindItsFixedPart) {
    recorder r;
    try {
        r.run({long_start, 155u << 16, 1});
        FAIL();
    } catch (const std::range_error& e) {
        EXPECT_STREQ(e.what(), "Buffer too small for utf8seq.");
    }
    EXPECT_NO_THROW(r.run({long_start, 155u << 16, 1, 0x61}));
}

TEST(Dispatch, OnPacketComesBeforeTheSizeTest) {
    recorder r;
    EXPECT_THROW(r.run({long_start, 155u << 16}), std::range_error);
    EXPECT_EQ(r.calls, (calls{"packet 155.0"}));
}

TEST(Dispatch, MaskOfDataCallsTheWholeChainButVoidDataReturnsAtOnce) {
    recorder r;
    r.selection = scanlib::mask_of("data");
    r.run({long_start, 0x000A0002, 1, 2, 3});
    EXPECT_EQ(r.calls.size(), 6u);
    r.calls.clear();
    r.run({0xFFFFFFFE});
    EXPECT_TRUE(r.calls.empty());
    EXPECT_EQ(r.packet_count, 2u);
}

TEST(Dispatch, VoidDataEndsItsChain) {
    recorder r;
    r.run({0xFFFFFFFE});
    EXPECT_EQ(r.calls, (calls{"packet 65535.65535", "void"}));
}

TEST(Dispatch, EmptySampleBlockReachesItsHandlerWithCountZero) {
    recorder r;
    r.run({long_start, 19u << 16, 0});
    EXPECT_EQ(r.last_count, 0u);
}

TEST(Dispatch, HandlerThatClearsContinueChainSuppressesLowerVersions) {
    recorder r;
    r.stop_at_two_angles = true;
    r.run({long_start, 0x000A0002, 1, 2, 3});
    EXPECT_EQ(r.calls, (calls{"packet 10.2", "frame 3"}));
}

TEST(Dispatch, KindsLeftOutAreSkippedButTheChainGoesOn) {
    recorder r;
    r.selection.set(packet_index::laser_shot_1angle, false);
    r.run({long_start, 0x000A0002, 1, 2, 3});
    EXPECT_EQ(r.calls, (calls{"packet 10.2", "frame 3", "packet 10.0", "shot 1"}));
}

TEST(Dispatch, VersionAboveAllKnownOnesIsUnknownOnceEachThenRunsTheChain) {
    recorder r;
    r.run({long_start, 0x000A0004, 1, 2, 3});
    EXPECT_EQ(r.calls,
              (calls{"packet 10.4", "unknown 10.4 3", "packet 10.3", "unknown 10.4 3",
                     "packet 10.2", "frame 3", "packet 10.1", "line 2", "packet 10.0", "shot 1"}));
}

TEST(Dispatch, UnknownVersionsWithoutTheirMaskBitAreSilent) {
    recorder r;
    r.selection.set(packet_index::unknown, false);
    r.run({long_start, 0x000A0004, 1, 2, 3});
    EXPECT_EQ(r.calls.size(), 6u);
    r.calls.clear();
    r.run({long_start, 0x00740007});
    EXPECT_TRUE(r.calls.empty());
}

/// Counts unknown attempts, as one that wants them all or only the first.
class unknown_counter : public scanlib::basic_packets {
  public:
    explicit unknown_counter(unknown_walk wish) : wish_(wish) {}
    std::uint64_t count = 0;
    std::uint64_t shots = 0;
    unknown_walk on_unknown(std::uint32_t, std::uint32_t, const std::uint32_t*,
                            const std::uint32_t*) override {
        ++count;
        return wish_;
    }
    void on_laser_shot(scanlib::packets::laser_shot&) override { ++shots; }

  private:
    unknown_walk wish_;
};

TEST(Dispatch, WalkOverUnknownVersionsCostsOneCallWhereNobodyListens) {
    const words w{long_start, 0x000AFFFF, 1, 2, 3};
    unknown_counter deaf(unknown_walk::enough);
    unknown_counter keen(unknown_walk::more);
    deaf.dispatch(w.data(), w.data() + w.size());
    keen.dispatch(w.data(), w.data() + w.size());
    EXPECT_EQ(deaf.count, 1u);
    EXPECT_EQ(keen.count, 65533u);
    EXPECT_EQ(deaf.shots, 1u);
    EXPECT_EQ(keen.shots, 1u);
}

TEST(Dispatch, WalkBelowAMagicVersionEndsWhereNobodyListens) {
    const words w{long_start, 65226u << 16 | 60926u, 0};
    unknown_counter deaf(unknown_walk::enough);
    unknown_counter keen(unknown_walk::more);
    deaf.dispatch(w.data(), w.data() + w.size());
    keen.dispatch(w.data(), w.data() + w.size());
    EXPECT_EQ(deaf.count, 1u);
    EXPECT_EQ(keen.count, 60926u);
}

TEST(Dispatch, MissingBitsOfAShortPacketReadAsZeroAndAreCounted) {
    recorder r;
    scanlib::loss_log losses;
    r.set_loss_log(&losses);
    r.run({long_start, 0x000A0002, 1});
    EXPECT_EQ(r.calls,
              (calls{"packet 10.2", "frame 0", "packet 10.1", "line 0", "packet 10.0", "shot 1"}));
    EXPECT_EQ(losses.count(scanlib::loss::short_payload), 2u);
}

TEST(Dispatch, UnknownPacketsAreCountedOnceEach) {
    recorder r;
    scanlib::loss_log losses;
    r.set_loss_log(&losses);
    losses.at(1234);
    r.run({long_start, 0x00740007});
    r.run({long_start, 0x000A0002, 1, 2, 3});
    EXPECT_EQ(losses.count(scanlib::loss::unknown_packet), 1u);
    EXPECT_EQ(losses.first_offset(scanlib::loss::unknown_packet), 1234u);
}

TEST(Dispatch, CheckedModeRefusesShortPacketsWithTheKindsName) {
    recorder r;
    r.check_sizes = true;
    try {
        r.run({long_start, 0x000A0002, 1, 2});
        FAIL();
    } catch (const scanlib::packet_error& e) {
        EXPECT_NE(std::string(e.what()).find("laser_shot_2angles: missing packet data"),
                  std::string::npos)
            << e.what();
    }
}

TEST(Dispatch, CheckedModeRefusesSequencesBeyondTheirLimitAfterLearningThem) {
    recorder r;
    r.check_sizes = true;
    words w{long_start, 0x00010000};
    w.resize(14 + 255, 0x000A0002);
    try {
        r.run(w);
        FAIL();
    } catch (const scanlib::packet_error& e) {
        EXPECT_NE(std::string(e.what()).find("header: sequence too long 255"), std::string::npos)
            << e.what();
    }
    EXPECT_EQ(r.short_codes().id_of(254), (packet_id{10, 2}));
    EXPECT_EQ(r.short_codes().id_of(255), (packet_id{0, 255}));
}

TEST(Dispatch, CheckedModeRefusesAnEmptySequence) {
    recorder r;
    r.check_sizes = true;
    EXPECT_THROW(r.run({long_start, 19u << 16, 0}), scanlib::packet_error);
    EXPECT_NO_THROW(r.run({long_start, 19u << 16, 0, 0}));
}

TEST(Dispatch, NoWordsAreNoPacket) {
    recorder r;
    EXPECT_FALSE(r.run({}));
    EXPECT_EQ(r.packet_count, 0u);
}

TEST(Dispatch, TrailingBytesThatFillNoElementAreIgnored) {
    class facets : public scanlib::basic_packets {
      public:
        std::uint32_t count = 0;
        float last = 0;
        void on_device_geometry(scanlib::packets::device_geometry& p,
                                const std::uint32_t*) override {
            count = p.size();
            last = p[count - 1].dist();
            EXPECT_TRUE(p.touched());
            EXPECT_EQ(p.highest(), count - 1);
        }
    } f;
    words w{long_start, 4u << 16};
    w.resize(2 + 13 + 8 + 2, 0);
    // Elements begin at bit 424, off any word boundary: the second dist lies at bit 424 + 128 + 96.
    scanlib::packets::detail::insert_bits(w.data() + 2, 424 + 128 + 96, 32,
                                          scanlib::packets::detail::to_bits<float, 32>(2.5f));
    f.dispatch(w.data(), w.data() + w.size());
    EXPECT_EQ(f.count, 2u);
    EXPECT_EQ(f.last, 2.5f);
}

} // namespace
