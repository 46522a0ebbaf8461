#include "scanlib/rewriter.hpp"

#include <gtest/gtest.h>

#include "rewriting.hpp"

namespace {

using namespace rewriting;

const std::string replace_gap_1 = entry(R"("ID":[152,0],"contentID":[[0,"1"]])", new_gap);

TEST(Rewriter, ReplacesThePacketThatMatchesIdAndContent) {
    EXPECT_EQ(rewritten({header(), gap(2), gap(1), shot(5)}, packets_text(replace_gap_1)),
              (packets{header(), gap(2), made_gap, shot(5)}));
}

TEST(Rewriter, EachEntryAppliesToOnePacketOnly) {
    EXPECT_EQ(rewritten({header(), gap(1), gap(1), shot(5)}, packets_text(replace_gap_1)),
              (packets{header(), made_gap, gap(1), shot(5)}));
}

TEST(Rewriter, FirstEntryThatMatchesIsTaken) {
    const std::string any_gap = entry(R"("ID":[152,0])", R"("ID":[58,0],"content":["7","[]"])");
    EXPECT_EQ(
        rewritten({header(), gap(1), gap(1), shot(5)}, packets_text(replace_gap_1 + "," + any_gap)),
        (packets{header(), made_gap, blob({7}), shot(5)}));
    EXPECT_EQ(rewritten({header(), gap(2), shot(5)}, packets_text(replace_gap_1 + "," + any_gap)),
              (packets{header(), blob({7}), made_gap, shot(5)}))
        << "a mismatch moves on, also where the ID matched; what is left is appended";
}

TEST(Rewriter, ReplacementMayBeOfAnotherKindAndLength) {
    const std::string longer =
        entry(R"("ID":[152,0])", R"("ID":[58,0],"content":["7","[1, 2, 4294967295]"])");
    EXPECT_EQ(rewritten({header(), gap(1), shot(5)}, packets_text(longer)),
              (packets{header(), blob({7, 1, 2, 0xFFFFFFFF}), shot(5)}));
}

TEST(Rewriter, EmptyNewPacketDeletesTheFirstMatchAndNoOther) {
    const packets all{header(), gap(1), gap(1), shot(5)};
    const packets less{header(), gap(1), shot(5)};
    EXPECT_EQ(rewritten(all, packets_text(entry(R"("ID":[152,0])", ""))), less);
    EXPECT_EQ(rewritten(all, packets_text(R"({"existing_packet_identification":{"ID":[152,0]}})")),
              less)
        << "absent";
    EXPECT_EQ(rewritten(all, packets_text(R"({"existing_packet_identification":{"ID":[152,0]},
                                              "new_packet":""})")),
              less)
        << "a text has no children";
}

TEST(Rewriter, NegativeOrUnreadableVersionMeansAnyVersion) {
    const packets all{header(), {{10001, 4}, words(4)}, shot(5)};
    for (const char* id : {"[10001,-1]", R"([10001,"any"])", "[10001,1.5]", "[10001]"}) {
        EXPECT_EQ(rewritten(all, packets_text(entry(R"("ID":)" + std::string(id), ""))),
                  (packets{header(), shot(5)}))
            << id;
    }
    EXPECT_EQ(rewritten(all, packets_text(entry(R"("ID":[10001,3])", ""))), all);
}

TEST(Rewriter, EntryWithoutReadableIdMatchesNothing) {
    const packets all{header(), {{0, 9}, {}}, gap(1), shot(5)};
    for (const char* identification : {"", R"("ID":[])", R"("ID":["x",0])", R"("ID":[-152,-1])",
                                       R"("ID":[152.5,0])", R"("ID":152)"}) {
        EXPECT_EQ(rewritten(all, packets_text(entry(identification, ""))), all) << identification;
    }
}

TEST(Rewriter, NumbersAreReadFromTextsToo) {
    EXPECT_EQ(rewritten({header(), gap(1), shot(5)},
                        packets_text(entry(R"("ID":["152"," 0 "],"contentID":[["0","1"]])",
                                           R"("ID":["152","0"],"content":[99,2.0])"))),
              (packets{header(), made_gap, shot(5)}));
}

TEST(Rewriter, NegativeOrUnreadableIndexIsSkipped) {
    const std::string skipping =
        entry(R"("ID":[152,0],"contentID":[[-1,"5"],["x","5"],[],[0.5,"5"],[0,"1"]])", new_gap);
    EXPECT_EQ(rewritten({header(), gap(1), shot(5)}, packets_text(skipping)),
              (packets{header(), made_gap, shot(5)}));
}

TEST(Rewriter, IndexBeyondTheFieldsFails) {
    const packets all{header(), gap(1), shot(5)};
    EXPECT_EQ(refusal(all, packets_text(entry(R"("ID":[152,0],"contentID":[[2,""]])", ""))),
              "error: bad contentID in pxp file");
    EXPECT_EQ(refusal(all, verified_text(R"({"ID":[152,0],"contentID":[[2,""]]})", "")),
              "error: bad contentID in pxp file");
}

TEST(Rewriter, PairsAreComparedUpToTheFirstMismatch) {
    const packets all{header(), gap(1), shot(5)};
    EXPECT_EQ(
        rewritten(all, packets_text(entry(R"("ID":[152,0],"contentID":[[0,"9"],[2,""]])", ""))),
        all)
        << "the bad index is never reached";
}

TEST(Rewriter, FieldsOfAnUnknownKindAreItsWordsInHexadecimal) {
    const packets all{header(), {{175, 0}, {0xAB, 0}}, shot(5)};
    EXPECT_EQ(
        rewritten(all, packets_text(entry(R"("ID":[175,0],"contentID":[[0,"0xab"],[1,"0"]])", ""))),
        (packets{header(), shot(5)}));
}

TEST(Rewriter, TextFieldsKeepTheirQuotes) {
    const packets all{header(), gap(1), shot(5)};
    const packets replaced{header({}, "S1", "new"), gap(1), shot(5)};
    const std::string new_header = R"("ID":[1,0],"content":["\"T1\"","\"new\"","\"S1\"","[]"])";
    EXPECT_EQ(
        rewritten(all, packets_text(entry(R"("ID":[1,0],"contentID":[[2,"\"S1\""]])", new_header))),
        replaced);
    EXPECT_EQ(rewritten(all, packets_text(entry(R"("ID":[1,0],"contentID":[[2,"S1"]])", ""))), all);
}

TEST(Rewriter, HeaderWithAnotherSerialNumberOrTypeFails) {
    const packets all{header(), shot(5)};
    const auto with = [](const std::string& type, const std::string& serial) {
        return packets_text(entry(R"("ID":[1,0])", R"("ID":[1,0],"content":["\")" + type +
                                                       R"(\"","\"B2\"","\")" + serial +
                                                       R"(\"","[{0, 58}]"])"));
    };
    EXPECT_EQ(refusal(all, with("T1", "S2")),
              "error: cannot modify serial number or instrument type");
    EXPECT_EQ(refusal(all, with("T2", "S1")),
              "error: cannot modify serial number or instrument type");
    EXPECT_EQ(rewritten(all, with("T1", "S1")), (packets{header({{58, 0}}, "S1", "B2"), shot(5)}));
}

TEST(Rewriter, HeadersAreComparedUpToTheFirstZeroByte) {
    packet dirty = header();
    dirty.body[3] = 0xDEADBEEF;
    EXPECT_EQ(rewritten({dirty, shot(5)}, packets_text(entry(R"("ID":[1,0])", R"("ID":[1,0],
                            "content":["\"T1\"","\"B1\"","\"S1\"","[]"])"))),
              (packets{header(), shot(5)}));
}

TEST(Rewriter, OnlyAHeaderCanBecomeAHeader) {
    EXPECT_EQ(
        refusal({header(), gap(1), shot(5)}, packets_text(entry(R"("ID":[152,0])", R"("ID":[1,0],
                          "content":["\"T1\"","\"B1\"","\"S1\"","[]"])"))),
        "error: cannot replace arbitrary package with a header package");
}

TEST(Rewriter, UnknownNewKindFails) {
    const packets all{header(), gap(1), shot(5)};
    for (const char* id : {"[175,0]", "[152,1]", "[0,0]", "[152,-1]", "[\"x\",0]", "[]", "[152]"}) {
        EXPECT_EQ(
            refusal(all, packets_text(entry(R"("ID":[152,0])", R"("ID":)" + std::string(id)))),
            "error: unknown id for new packet in pxp file")
            << id;
    }
}

TEST(Rewriter, ContentThatCannotBeReadFails) {
    const packets all{header(), gap(1), shot(5)};
    for (const char* content :
         {R"(["1"])", R"(["x","2.0"])", R"(["4294967296","2.0"])", "[]", R"([["1"],"2.0"])"}) {
        EXPECT_EQ(refusal(all, packets_text(entry(R"("ID":[152,0])", R"("ID":[152,0],"content":)" +
                                                                         std::string(content)))),
                  "override: content does not match packet id")
            << content;
    }
}

TEST(Rewriter, FirstKeyOfSeveralCounts) {
    EXPECT_EQ(rewritten({header(), gap(1), shot(5)},
                        R"({"packets":[)" + entry(R"("ID":[152,0])", new_gap) + R"(],"packets":[)" +
                            entry(R"("ID":[10,0])", "") + "]}"),
              (packets{header(), made_gap, shot(5)}));
}

TEST(Rewriter, ListsMayBeObjectsAndUnknownKeysArePassedOver) {
    EXPECT_EQ(rewritten({header(), gap(1), shot(5)},
                        R"({"by":"me","packets":{"first":)" +
                            entry(R"("note":1,"ID":{"a":152,"b":0})", new_gap) + "}}"),
              (packets{header(), made_gap, shot(5)}));
}

TEST(Rewriter, TextWithoutListsChangesNothing) {
    const packets all{header(), gap(1), shot(5)};
    for (const char* pxp : {"{}", "[]", "\"text\"", R"({"packets":7,"file_verification":""})"}) {
        EXPECT_EQ(rewritten(all, pxp), all) << pxp;
    }
}

TEST(Rewriter, MalformedTextFailsInTheParser) {
    EXPECT_NE(refusal({header(), shot(5)}, "{\"packets\": [").find("(1): expected"),
              std::string::npos);
}

TEST(Rewriter, PacketsAreReencodedWithTheCodesOfTheHeader) {
    const packets all{header({{152, 0}}), gap(1), shot(5)};
    auto decoder = streams::decoder(rewritten_bytes(framed(all), "{}"), false);
    const auto frames = streams::decode_all(decoder);
    EXPECT_EQ(frames.at(1), (words{0xFFFFFF01, 1, 0x3F800000}));
}

} // namespace
