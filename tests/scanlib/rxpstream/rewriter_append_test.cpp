// Verification, the end of the header region, and what is appended there.
#include <random>

#include <gtest/gtest.h>

#include "rewriting.hpp"
#include "scanlib/packet_catalogue.hpp"

namespace {

using namespace rewriting;

const std::string append_gap = entry(R"("ID":[175,0])", new_gap);
const std::string delete_gap = entry(R"("ID":[152,0])", "");

TEST(RewriterVerification, WithoutItOverridesBeginWithTheHeaderItself) {
    EXPECT_EQ(rewritten({header(), shot(5)}, packets_text(entry(R"("ID":[1,0])", ""))),
              (packets{shot(5)}));
}

TEST(RewriterVerification, UnmatchedEntryLeavesTheStreamAsItIs) {
    const packets all{header(), gap(1), gap(1), shot(5), shot(6)};
    EXPECT_EQ(rewritten(all, verified_text(R"({"ID":[58,0]})", delete_gap + "," + append_gap)),
              all);
}

TEST(RewriterVerification, EntryWhoseContentDiffersLeavesTheStreamAsItIs) {
    const packets all{header(), gap(1), gap(1), shot(5)};
    EXPECT_EQ(
        rewritten(all, verified_text(R"({"ID":[1,0],"contentID":[[2,"\"S2\""]]})", delete_gap)),
        all);
}

TEST(RewriterVerification, OverridesBeginBehindThePacketThatSatisfiesTheLastEntry) {
    EXPECT_EQ(rewritten({header(), gap(1), gap(2), gap(3), shot(5)},
                        verified_text(R"({"ID":[152,0],"contentID":[[0,"2"]]},
                                         {"ID":[1,0],"contentID":[[2,"\"S1\""]]})",
                                      delete_gap)),
              (packets{header(), gap(1), gap(2), shot(5)}));
}

TEST(RewriterVerification, EntriesMayBeSatisfiedInAnyOrder) {
    EXPECT_EQ(rewritten({header(), blob({1}), gap(2), shot(5)},
                        verified_text(R"({"ID":[58,0]},{"ID":[1,0]})", delete_gap)),
              (packets{header(), blob({1}), shot(5)}));
}

TEST(RewriterVerification, OneEntryMayBeCountedByTwoPackets) {
    EXPECT_EQ(rewritten({header(), gap(1), gap(2), gap(3), shot(5)},
                        verified_text(R"({"ID":[152,0]},{"ID":[58,0]})", delete_gap)),
              (packets{header(), gap(1), gap(2), shot(5)}));
}

TEST(RewriterVerification, OnlyTheFirstEntryOfAnIdIsLookedAt) {
    const packets all{header(), gap(1), gap(2), shot(5)};
    EXPECT_EQ(rewritten(all, verified_text(R"({"ID":[152,0],"contentID":[[0,"7"]]},
                                              {"ID":[152,0],"contentID":[[0,"1"]]})",
                                           delete_gap)),
              all);
}

TEST(RewriterVerification, AnyVersionMatchesThere) {
    EXPECT_EQ(rewritten({header(), gap(1), shot(5)}, verified_text(R"({"ID":[1,-1]})", delete_gap)),
              (packets{header(), shot(5)}));
}

TEST(RewriterAppend, UnmatchedEntriesStandInOrderBeforeTheMeasurement) {
    const std::string append_blob =
        entry(R"("ID":[152,0],"contentID":[[0,"8"]])", R"("ID":[58,0],"content":["1","[2]"])");
    EXPECT_EQ(rewritten({header(), gap(1), shot(5), shot(6)},
                        packets_text(append_gap + "," + append_blob)),
              (packets{header(), gap(1), made_gap, blob({1, 2}), shot(5), shot(6)}));
}

TEST(RewriterAppend, EntryThatVerificationUsedUpIsAppended) {
    EXPECT_EQ(rewritten({header(), gap(1), shot(5)},
                        verified_text(R"({"ID":[152,0]})", entry(R"("ID":[152,0])", new_gap))),
              (packets{header(), gap(1), made_gap, shot(5)}));
}

TEST(RewriterAppend, EntryWithoutNewPacketIsSkipped) {
    const packets all{header(), gap(1), shot(5)};
    EXPECT_EQ(rewritten(all, packets_text(entry(R"("ID":[175,0])", ""))), all);
}

TEST(RewriterAppend, HeaderUnknownKindAndBadContentFail) {
    const packets all{header(), shot(5)};
    EXPECT_EQ(refusal(all, packets_text(entry(R"("ID":[175,0])", R"("ID":[1,0],
                  "content":["\"T1\"","\"B1\"","\"S1\"","[]"])"))),
              "error: cannot append a new header packet");
    EXPECT_EQ(refusal(all, packets_text(entry(R"("ID":[175,0])", R"("ID":[175,0])"))),
              "error: unknown id for new packet in pxp file");
    EXPECT_EQ(
        refusal(all, packets_text(entry(R"("ID":[175,0])", R"("ID":[152,0],"content":["1"])"))),
        "override: content does not match packet id");
}

TEST(RewriterAppend, NothingIsAppendedToAStreamThatEndsInItsHeaderRegion) {
    EXPECT_EQ(rewritten({header(), gap(1)}, packets_text(append_gap)), (packets{header(), gap(1)}));
}

TEST(RewriterRegion, EveryStartOfMeasurementEndsIt) {
    const std::vector<std::string> names{"echo_gap_data",
                                         "laser_shot",
                                         "laser_shot_1angle",
                                         "laser_shot_2angles",
                                         "laser_shot_2angles_hr",
                                         "laser_shot_2angles_rad",
                                         "laser_shot_3angles",
                                         "laser_shot_6angles",
                                         "laser_shot_6angles_hr",
                                         "laser_shot_rad",
                                         "laser_shot_utctime_origin_direction",
                                         "line_start_dn",
                                         "line_start_segment_1",
                                         "line_start_segment_2",
                                         "line_start_segment_3",
                                         "line_start_segment_4",
                                         "line_start_segment_5",
                                         "line_start_up",
                                         "meas_start",
                                         "packed_key_laser_shot_2angles",
                                         "packed_key_laser_shot_2angles_hr",
                                         "packed_key_laser_shot_2angles_hr_mta",
                                         "packed_key_laser_shot_2angles_rad",
                                         "packed_shot_echos_hr",
                                         "packed_shot_echos_sbl_hr",
                                         "sbl_dg_header",
                                         "sbl_dg_header_hr"};
    for (const std::string& name : names) {
        const packet stop{scanlib::id_of(name).value(), {}};
        EXPECT_EQ(
            rewritten({header(), stop, gap(1), stop}, packets_text(append_gap + "," + delete_gap)),
            (packets{header(), made_gap, stop, gap(1), stop}))
            << name;
    }
}

TEST(RewriterRegion, FirstMeasurementPacketIsNotOverridden) {
    const packets all{header(), shot(5), shot(6)};
    EXPECT_EQ(rewritten(all, packets_text(entry(R"("ID":[10,0])", ""))), all);
}

TEST(RewriterRegion, EndOfTheHeadersContextEndsIt) {
    EXPECT_EQ(rewritten({header(), context_end(1, 0), gap(1), shot(5)},
                        packets_text(append_gap + "," + delete_gap)),
              (packets{header(), made_gap, context_end(1, 0), gap(1), shot(5)}));
}

TEST(RewriterRegion, EndOfAnotherContextIsWrittenWithItsFirstWordOnly) {
    packet longer = context_end(30, 0);
    longer.body.push_back(7);
    EXPECT_EQ(
        rewritten({header(), longer, {{21, 1}, {}}, gap(1), shot(5)}, packets_text(delete_gap)),
        (packets{header(), context_end(30, 0), {{21, 1}, {0}}, shot(5)}));
}

TEST(RewriterRegion, EndOfAContextIsNeitherVerifiedNorOverridden) {
    const packets all{header(), context_end(30, 0), shot(5)};
    EXPECT_EQ(rewritten(all, packets_text(entry(R"("ID":[21,1])", ""))), all);
    EXPECT_EQ(rewritten({header(), context_end(30, 0), gap(1), shot(5)},
                        verified_text(R"({"ID":[21,1]})", delete_gap)),
              (packets{header(), context_end(30, 0), gap(1), shot(5)}));
}

TEST(RewriterRegion, FailedVerificationAppendsNothingAtTheEndOfTheContext) {
    const packets all{header(), context_end(1, 0), gap(1)};
    EXPECT_EQ(rewritten(all, verified_text(R"({"ID":[58,0]})", append_gap)), all);
}

TEST(RewriterRegion, StreamWithoutItsEndGoesToTheEndOfInput) {
    packets all{header()};
    packets less{header()};
    for (std::uint32_t n = 0; n < 5000; ++n) {
        all.push_back(gap(n));
        less.push_back(gap(n));
    }
    all.push_back(blob({1}));
    EXPECT_EQ(rewritten(all, packets_text(entry(R"("ID":[58,0])", ""))), less);
}

TEST(RewriterRegion, WordsReadBeyondItStayAsTheyAre) {
    std::mt19937 random(9);
    const bytes region = framed({header(), gap(1)});
    for (int run = 0; run < 300; ++run) {
        // Behind the first measurement anything may stand.
        bytes stream = region;
        const bytes first = framed({shot(5)});
        stream.insert(stream.end(), first.begin(), first.end());
        const bytes next = framed({shot(6)});
        bytes rest(next);
        rest.resize(next.size() + random() % 2000 * 4);
        for (std::size_t i = next.size(); i < rest.size(); ++i) {
            rest[i] = static_cast<unsigned char>(random());
        }
        stream.insert(stream.end(), rest.begin(), rest.end());
        const bytes out = rewritten_bytes(stream, packets_text(append_gap), 1 + random() % 3000);
        const bytes head = framed({header(), gap(1), made_gap, shot(5)});
        ASSERT_GE(out.size(), head.size());
        ASSERT_TRUE(std::equal(head.begin(), head.end(), out.begin()));
        const bytes tail(out.begin() + static_cast<std::ptrdiff_t>(head.size()), out.end());
        ASSERT_LE(tail.size(), rest.size());
        ASSERT_TRUE(std::equal(tail.begin(), tail.end(), rest.begin())) << run;
    }
}

TEST(RewriterRegion, ReturnsHowManyBytesArePassedOn) {
    const packets region{header(), gap(1), shot(5)};
    const bytes rest = framed({shot(6), shot(7)});
    bytes stream = framed(region);
    stream.insert(stream.end(), rest.begin(), rest.end());
    std::vector<char> out;
    const auto passed_on =
        scanlib::rewrite(std::make_shared<test_support::memory_rconnection>(stream),
                         std::make_shared<scanlib::mem_wconnection>(out), "{}");
    EXPECT_EQ(passed_on, rest.size());
}

TEST(RewriterRegion, HeaderShorterThanItsFixedPartThrows) {
    packet cut = header();
    cut.body.pop_back();
    EXPECT_EQ(refusal({cut, shot(5)}, "{}"), "Missing data for sequence.");
}

} // namespace
