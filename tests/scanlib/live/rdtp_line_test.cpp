#include "scanlib/rdtp_line.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using scanlib::parse_rdtp_line;
using scanlib::write_rdtp_line;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(RdtpLine, TokenIsInCapitalsAndKeysInSmallLettersAndValuesKeepTheirCase) {
    const auto line = parse_rdtp_line("current Format=RXP; ID=Scan One\n");
    EXPECT_EQ(line.token, "CURRENT");
    EXPECT_THAT(line.parameters, ElementsAre(Pair("format", "RXP"), Pair("id", "Scan One")));
}

TEST(RdtpLine, KeysAndValuesAreTrimmedOfBlanksAndTabs) {
    const auto line = parse_rdtp_line("X \t a\t =\t 1 \t;\t b = 2 ;");
    EXPECT_THAT(line.parameters, ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST(RdtpLine, ValuesAndWholeParametersMayBeEmpty) {
    const auto line = parse_rdtp_line("X a=;b;c= ;;; d");
    EXPECT_THAT(line.parameters,
                ElementsAre(Pair("a", ""), Pair("b", ""), Pair("c", ""), Pair("d", "")));
    EXPECT_THAT(parse_rdtp_line("").parameters, IsEmpty());
    EXPECT_EQ(parse_rdtp_line("").token, "");
}

TEST(RdtpLine, CarriageReturnsCountAsBlanks) {
    const auto line = parse_rdtp_line("X\r\na=1\r\n");
    EXPECT_EQ(line.token, "X");
    EXPECT_THAT(line.parameters, ElementsAre(Pair("a", "1")));
}

TEST(RdtpLine, ValueMayHoldEqualsSigns) {
    EXPECT_EQ(parse_rdtp_line("X a=b=c").value("a"), "b=c");
}

TEST(RdtpLine, TokenEndsAtABlankOnly) {
    EXPECT_EQ(parse_rdtp_line("12;a=1 b=2").token, "12;A=1");
    EXPECT_EQ(parse_rdtp_line(" X a=1").token, "");
}

TEST(RdtpLine, OfAKeyThatIsThereTwiceTheLastValueCounts) {
    EXPECT_EQ(parse_rdtp_line("X a=1; A=2").value("a"), "2");
}

TEST(RdtpLine, MissingParameterIsEmpty) {
    EXPECT_EQ(parse_rdtp_line("X a=1").value("b"), "");
}

TEST(RdtpLine, IsWrittenInTheOrderOfKeysWithEmptyValuesAsKeysAlone) {
    EXPECT_EQ(write_rdtp_line({"VERB", {{"format", "rxp"}, {"encoding", "chunked"}, {"x", ""}}}),
              "VERB encoding=chunked; format=rxp; x\n");
}

} // namespace
