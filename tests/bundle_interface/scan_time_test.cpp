#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bundle_interface/pulsekit.hpp"
#include "bundle_interface/rdb2skein.hpp"

namespace {

using Holdfast::Chunk;
using Holdfast::StrongPtr;
using PulseKit::Chronometry;

TEST(Chronometry, ReadsDateAndTimeAtTheStartOfAName) {
    const Chronometry c("190209_124210_Scanner_1.rxp");
    EXPECT_EQ(c.date, 20190209);
    EXPECT_EQ(c.time, 124210);
    EXPECT_EQ(c.year, 2019);
    EXPECT_EQ(c.month, 2);
    EXPECT_EQ(c.day, 9);
    EXPECT_EQ(c.seconds_of_day, 45730);
    EXPECT_EQ(c.date_code, 17936);
    EXPECT_EQ(c.ddmmyyyy('.'), "09.02.2019");
}

TEST(Chronometry, NameOrDateThatDoesNotFitGivesZeros) {
    for (const char* name :
         {"", "scan.rxp", "190209-124210.rxp", "190230_124210.rxp", "190209_244210.rxp",
          "190209_126010.rxp", "190209_12421", "190009_124210"}) {
        const Chronometry c(name);
        EXPECT_EQ(c.date, 0) << name;
        EXPECT_EQ(c.time, 0) << name;
        EXPECT_EQ(c.date_code, 0) << name;
        EXPECT_EQ(c.ddmmyyyy('-'), "00-00-0000") << name;
    }
}

TEST(LeapSeconds, ChangeOnTheirDays) {
    EXPECT_EQ(Riegl::leapSecondsOn(4198), 0);
    EXPECT_EQ(Riegl::leapSecondsOn(4199), 1);
    EXPECT_EQ(Riegl::leapSecondsOn(Chronometry("161231_000000").date_code), 17);
    EXPECT_EQ(Riegl::leapSecondsOn(Chronometry("170101_000000").date_code), 18);
    EXPECT_EQ(Riegl::leapSecondsOn(Chronometry("200318_000000").date_code), 18);
}

class ModifyGPSTime : public testing::Test {
  protected:
    double first_after(int date_code, const std::string& column, bool leap_flag) {
        const StrongPtr<Chunk<double>> times(new Chunk<double>(2));
        (*times)[0] = 1000.5;
        Riegl::modifyGPSTime(error_, date_code, times, column, leap_flag);
        return (*times)[0];
    }
    std::string error_;
};

TEST_F(ModifyGPSTime, LeavesTheValuesWithTheFlag) {
    EXPECT_EQ(first_after(17936, "GPSTime", true), 1000.5);
    EXPECT_EQ(first_after(0, "GPSTime", true), 1000.5);
    EXPECT_EQ(error_, "");
}

TEST_F(ModifyGPSTime, AddsTheLeapSecondsOfTheDateWithoutIt) {
    EXPECT_EQ(first_after(17936, "GPSTime", false), 1018.5);
    EXPECT_EQ(error_, "");
}

TEST_F(ModifyGPSTime, LeavesOtherColumnsAlone) {
    EXPECT_EQ(first_after(17936, "SBL_Time", false), 1000.5);
    EXPECT_EQ(first_after(0, "Range", false), 1000.5);
    EXPECT_EQ(error_, "");
}

TEST_F(ModifyGPSTime, ReportsAnUnknownDate) {
    EXPECT_EQ(first_after(0, "GPSTime", false), 1000.5);
    EXPECT_THAT(error_, testing::HasSubstr("date"));
}

TEST_F(ModifyGPSTime, ReportsAColumnOfAnotherType) {
    const StrongPtr<Chunk<float>> times(new Chunk<float>(2));
    Riegl::modifyGPSTime(error_, 17936, times, "GPSTime", false);
    EXPECT_THAT(error_, testing::HasSubstr("64-bit"));
}

TEST(ScanAttributes, GridsThatAreNotThereAreLeftOut) {
    Riegl::AttributesForFWFProcessing attributes;
    const StrongPtr<Skein::Grid> none;
    EXPECT_EQ(attributes.addAttributeToK7File(none, none, {}, {}, -1), "");
}

} // namespace
