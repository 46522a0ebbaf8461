#include "frontend/conversion.hpp"

#include <gtest/gtest.h>

namespace {

TEST(InputSpeak, TellsEachMemberOnALine) {
    Riegl::Input input;
    input.FragSize = 4294967295;
    input.ExportFWF = true;
    input.ExportOPP = true;
    input.Exported_FWF_LENGTH = 0;
    input.OutDir = "some/folder";
    input.TimeRange =
        Holdfast::StrongPtr<Skein::DataRange<double>>(new Skein::DataRange<double>(0.5, 1e9));
    EXPECT_EQ(input.speak(), "FragSize: 4294967295 \n"
                             "ExportFWF?  Yes \n"
                             "ExportOPP?  Yes \n"
                             "Exported_FWF_LENGTH: 0 \n"
                             "OutDir: some/folder \n"
                             "TimeRange: " +
                                 std::to_string(*input.TimeRange) + "\n");
}

TEST(InputSpeak, NoTakesOneBlankAndAMissingRangeIsTold) {
    Riegl::Input input;
    input.FragSize = 7;
    input.ExportFWF = false;
    input.ExportOPP = false;
    input.Exported_FWF_LENGTH = 8;
    EXPECT_EQ(input.speak(), "FragSize: 7 \n"
                             "ExportFWF? No \n"
                             "ExportOPP? No \n"
                             "Exported_FWF_LENGTH: 8 \n"
                             "OutDir:  \n"
                             "TimeRange:  no range available (no fwf-print)\n");
}

TEST(Input, CopySharesTheReferencesAndOwnsItsTexts) {
    Riegl::Input input;
    input.TimeRange =
        Holdfast::StrongPtr<Skein::DataRange<double>>(new Skein::DataRange<double>(1, 2));
    input.Errors = "first";
    Riegl::Input copy = input;
    copy.Errors += " second";
    copy.TimeRange->max = 3;
    EXPECT_EQ(input.Errors, "first");
    EXPECT_EQ(input.TimeRange->max, 3);
}

} // namespace
