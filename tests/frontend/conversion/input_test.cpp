#include "frontend/conversion.hpp"

#include <cstdint>

#include <gtest/gtest.h>

namespace {

Riegl::Input record(std::uint32_t frag_size, bool grids, std::uint32_t length) {
    Riegl::Input input;
    input.FragSize = frag_size;
    input.ExportFWF = grids;
    input.ExportOPP = grids;
    input.Exported_FWF_LENGTH = length;
    return input;
}

TEST(InputSpeak, TellsEachMemberOnALine) {
    Riegl::Input input = record(4294967295, true, 0);
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
    EXPECT_EQ(record(7, false, 8).speak(), "FragSize: 7 \n"
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
