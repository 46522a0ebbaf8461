#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "scan_folder.hpp"

namespace {

namespace fs = std::filesystem;
using test_support::open_scan;
using testing::ElementsAre;
using testing::IsEmpty;

/// main-, one-, two-, three
class DamagedFileSet : public test_support::scan_folder {
  protected:
    DamagedFileSet() {
        file("scan.rxp_001", "one-");
        file("scan.rxp_002", "two-");
        file("scan.rxp_003", "three");
    }
    std::string main_ = file("scan.rxp", "main-");
};

TEST_F(DamagedFileSet, ContinuationThatVanishesEndsTheStreamAndIsToldWithWhatFollows) {
    open_scan c(main_);
    EXPECT_EQ(read(c, 100), "main-");
    fs::remove(main_ + "_002");
    EXPECT_EQ(rest(c), "one-");
    EXPECT_TRUE(c.end_of_input_);
    EXPECT_THAT(c.report().unread, ElementsAre(main_ + "_002", main_ + "_003"));
    ASSERT_EQ(c.report().files.data.size(), 2u);
    EXPECT_EQ(c.report().files.data.back().name, main_ + "_001");
}

TEST_F(DamagedFileSet, ContinuationWithoutReadPermissionEndsTheStreamAndIsTold) {
    fs::permissions(main_ + "_002", fs::perms::none);
    const test_support::without_privileges plain;
    open_scan c(main_);
    EXPECT_EQ(c.size(), 18u) << "it counts while its turn has not come";
    EXPECT_EQ(rest(c), "main-one-");
    EXPECT_THAT(c.report().unread, ElementsAre(main_ + "_002", main_ + "_003"));
}

TEST_F(DamagedFileSet, UnreadableContinuationThatAppearedSinceTheOpeningIsTold) {
    open_scan c(main_);
    fs::permissions(file("scan.rxp_004", "four"), fs::perms::none);
    const test_support::without_privileges plain;
    EXPECT_EQ(rest(c), "main-one-two-three");
    EXPECT_THAT(c.report().unread, ElementsAre(main_ + "_004"));
}

TEST_F(DamagedFileSet, ContinuationThatIsAFolderOrAPipeEndsTheSet) {
    fs::remove(main_ + "_002");
    fs::create_directory(main_ + "_002");
    open_scan folder(main_);
    EXPECT_EQ(folder.size(), 9u);
    EXPECT_EQ(rest(folder), "main-one-");
    fs::remove(main_ + "_002");
    ASSERT_EQ(mkfifo((main_ + "_002").c_str(), 0600), 0);
    open_scan pipe(main_);
    EXPECT_EQ(rest(pipe), "main-one-");
    EXPECT_THAT(pipe.report().unread, IsEmpty());
}

TEST_F(DamagedFileSet, ContinuationThatBreaksWhileItIsReadIsAFailure) {
    fs::remove(main_ + "_002");
    fs::create_symlink("/proc/self/mem", main_ + "_002");
    open_scan c(main_);
    EXPECT_EQ(read(c, 100), "main-");
    EXPECT_EQ(read(c, 100), "one-");
    EXPECT_EQ(failure([&] { read(c, 100); }),
              "file_rconnection::more_input: Error reading from file!");
}

TEST_F(DamagedFileSet, PrefixThatBreaksWhileItIsReadIsAFailure) {
    fs::create_symlink("/proc/self/mem", path("common.rxo"));
    open_scan c(main_);
    EXPECT_EQ(failure([&] { read(c, 100); }),
              "file_rconnection::more_input: Error reading from file!");
}

TEST_F(DamagedFileSet, PrefixWithoutReadPermissionCountsAsMissingAndIsTold) {
    fs::permissions(file("common.rxo", "common-"), fs::perms::none);
    file("scan.rxo", "own-");
    const test_support::without_privileges plain;
    open_scan c(main_);
    EXPECT_EQ(rest(c), "own-main-one-two-three");
    EXPECT_THAT(c.report().unread, ElementsAre(path("common.rxo")));
}

TEST_F(DamagedFileSet, PrefixThatIsAFolderOrAPipeCountsAsMissing) {
    fs::create_directory(path("common.rxo"));
    ASSERT_EQ(mkfifo(path("scan.rxo").c_str(), 0600), 0);
    open_scan c(main_);
    EXPECT_EQ(read(c, 100), "main-");
    EXPECT_THAT(c.report().unread, IsEmpty());
}

TEST_F(DamagedFileSet, FileThatShrinksWhileItIsReadHandsOverToTheNext) {
    const std::string longer(600000, 'x');
    file("scan.rxp", longer);
    open_scan c(main_);
    EXPECT_EQ(read(c, 1), "x");
    fs::resize_file(main_, 10);
    const std::string left = rest(c, 600000);
    EXPECT_TRUE(left.ends_with("xone-two-three"));
    EXPECT_LT(left.size(), longer.size());
}

} // namespace
