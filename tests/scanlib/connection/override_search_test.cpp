#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "scan_folder.hpp"
#include "scanlib/override_text.hpp"

namespace {

namespace fs = std::filesystem;
using test_support::open_scan;
using testing::ElementsAre;
using testing::IsEmpty;

class OverrideSearch : public test_support::scan_folder {
  protected:
    std::string main_ = file("scan.rxp", "main");
};

TEST_F(OverrideSearch, FirstChoiceAloneIsUsed) {
    file("scan.pxp", "first");
    file("scan.override.pxp", "second");
    const open_scan c(main_);
    EXPECT_EQ(c.pxp_, "first");
    EXPECT_EQ(c.report().override_file, path("scan.pxp"));
}

TEST_F(OverrideSearch, SecondChoiceIsUsedWithoutTheFirst) {
    file("scan.override.pxp", "second");
    const open_scan c(main_);
    EXPECT_EQ(c.pxp_, "second");
    EXPECT_EQ(c.report().override_file, path("scan.override.pxp"));
}

TEST_F(OverrideSearch, MissingFilesAreNoFailure) {
    const open_scan c(main_);
    EXPECT_EQ(c.pxp_, "");
    EXPECT_EQ(c.report().override_file, "");
    EXPECT_THAT(c.report().unread, IsEmpty());
}

TEST_F(OverrideSearch, EmptyFirstChoiceEndsTheSearch) {
    file("scan.pxp", "");
    file("scan.override.pxp", "second");
    const open_scan c(main_);
    EXPECT_EQ(c.pxp_, "");
    EXPECT_EQ(c.report().override_file, path("scan.pxp"));
}

TEST_F(OverrideSearch, TextOfTheCallerMakesTheFilesIrrelevant) {
    file("scan.pxp", "first");
    file("scan.override.pxp", "second");
    const open_scan c(main_, "of the caller");
    EXPECT_EQ(c.pxp_, "of the caller");
    EXPECT_EQ(c.report().override_file, "");
}

TEST_F(OverrideSearch, StemInADottedFolderNamesTheFileBesideTheFolder) {
    const std::string main = file("dir.v2/scan", "main");
    file("dir.v2/scan.pxp", "beside the scan");
    file("dir.pxp", "beside the folder");
    EXPECT_EQ(open_scan(main).pxp_, "beside the folder");
}

TEST_F(OverrideSearch, TextIsReadWholeWithEveryByte) {
    std::string text;
    for (std::size_t i = 0; i < 100003; ++i) {
        text += static_cast<char>(i * 31 + i / 256);
    }
    file("scan.pxp", text);
    EXPECT_TRUE(open_scan(main_).pxp_ == text);
}

TEST_F(OverrideSearch, TextBeyondTheLimitIsRefused) {
    fs::resize_file(file("scan.pxp", ""), scanlib::longest_override_text);
    EXPECT_EQ(open_scan(main_).pxp_.size(), scanlib::longest_override_text);
    fs::resize_file(path("scan.pxp"), scanlib::longest_override_text + 1);
    EXPECT_EQ(failure([&] { open_scan c(main_); }),
              "Override file \"" + path("scan.pxp") + "\" is larger than 16777216 bytes!");
}

TEST_F(OverrideSearch, FileThatBreaksWhileItIsReadIsAFailure) {
    // A regular file that opens, but has nothing at its start.
    fs::create_symlink("/proc/self/mem", path("scan.pxp"));
    EXPECT_EQ(failure([&] { open_scan c(main_); }),
              "Could not read override file \"" + path("scan.pxp") + "\"!");
}

TEST_F(OverrideSearch, FileWithoutReadPermissionCountsAsMissingAndIsTold) {
    fs::permissions(file("scan.pxp", "first"), fs::perms::none);
    file("scan.override.pxp", "second");
    const test_support::without_privileges plain;
    const open_scan c(main_);
    EXPECT_EQ(c.pxp_, "second");
    EXPECT_EQ(c.report().override_file, path("scan.override.pxp"));
    EXPECT_THAT(c.report().unread, ElementsAre(path("scan.pxp")));
}

TEST_F(OverrideSearch, FolderAndPipeAreNoOverrideFiles) {
    fs::create_directory(path("scan.pxp"));
    ASSERT_EQ(mkfifo(path("scan.override.pxp").c_str(), 0600), 0);
    const open_scan c(main_);
    EXPECT_EQ(c.pxp_, "");
    EXPECT_THAT(c.report().unread, IsEmpty());
}

} // namespace
