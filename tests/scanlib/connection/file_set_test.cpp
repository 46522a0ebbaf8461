#include "scanlib/file_set.hpp"

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scan_folder.hpp"

namespace {

namespace fs = std::filesystem;
using scanlib::file_set_names;
using test_support::open_scan;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> names_of(const std::vector<scanlib::file_part>& parts) {
    std::vector<std::string> names;
    for (const auto& part : parts) {
        names.push_back(part.name);
    }
    return names;
}

TEST(FileSetNames, StemNamesReplaceTheExtensionAndContinuationsAppendToIt) {
    const file_set_names names("scans/day.1/scan.rxp");
    EXPECT_EQ(names.stem(), "scans/day.1/scan");
    EXPECT_EQ(names.first_override(), "scans/day.1/scan.pxp");
    EXPECT_EQ(names.second_override(), "scans/day.1/scan.override.pxp");
    EXPECT_EQ(names.common_prefix(), "scans/day.1/common.rxo");
    EXPECT_EQ(names.own_prefix(), "scans/day.1/scan.rxo");
    EXPECT_EQ(names.continuation(0), "scans/day.1/scan.rxp");
    EXPECT_EQ(names.continuation(1), "scans/day.1/scan.rxp_001");
    EXPECT_EQ(names.continuation(42), "scans/day.1/scan.rxp_042");
}

TEST(FileSetNames, NumbersBeyond999TakeMoreDigits) {
    const file_set_names names("x.rxp");
    EXPECT_EQ(names.continuation(999), "x.rxp_999");
    EXPECT_EQ(names.continuation(1000), "x.rxp_1000");
    EXPECT_EQ(names.continuation(4294967295), "x.rxp_4294967295");
}

TEST(FileSetNames, WithoutAFolderTheCommonPrefixStandsAlone) {
    EXPECT_EQ(file_set_names("scan.rxp").common_prefix(), "common.rxo");
    EXPECT_EQ(file_set_names("a\\b\\scan.rxp").common_prefix(), "a\\b\\common.rxo");
    EXPECT_EQ(file_set_names("a\\b/c\\scan.rxp").common_prefix(), "a\\b/c\\common.rxo");
}

TEST(FileSetNames, WithoutADotTheStemIsThePath) {
    const file_set_names names("folder/scan");
    EXPECT_EQ(names.stem(), "folder/scan");
    EXPECT_EQ(names.first_override(), "folder/scan.pxp");
    EXPECT_EQ(names.continuation(1), "folder/scan_001");
}

TEST(FileSetNames, DotOfAFolderCutsTheStemThere) {
    const file_set_names names("dir.v2/scan");
    EXPECT_EQ(names.stem(), "dir");
    EXPECT_EQ(names.first_override(), "dir.pxp");
    EXPECT_EQ(names.common_prefix(), "common.rxo");
    EXPECT_EQ(names.continuation(1), "dir.v2/scan_001");
}

class FileSet : public test_support::scan_folder {};

TEST_F(FileSet, EndsAtTheFirstMissingNumber) {
    const std::string main = file("scan.rxp", "main-");
    file("scan.rxp_001", "one");
    file("scan.rxp_003", "three");
    open_scan c(main);
    EXPECT_EQ(c.size(), 8u);
    EXPECT_EQ(read(c, 100), "main-");
    EXPECT_EQ(read(c, 100), "one");
    EXPECT_FALSE(c.end_of_input_);
    EXPECT_EQ(read(c, 100), "");
    EXPECT_TRUE(c.end_of_input_);
    EXPECT_THAT(c.report().unread, IsEmpty()) << "a missing file is no failure";
}

TEST_F(FileSet, FileThatAppearedSinceTheOpeningIsReadAndDoesNotCountInTheSize) {
    const std::string main = file("scan.rxp", "main-");
    file("scan.rxp_002", "two");
    open_scan c(main);
    file("scan.rxp_001", "one-");
    EXPECT_EQ(rest(c), "main-one-two");
    EXPECT_EQ(c.size(), 5u);
    EXPECT_EQ(c.position(), 12u);
    EXPECT_THAT(names_of(c.report().files.data), ElementsAre(main, main + "_001", main + "_002"));
}

TEST_F(FileSet, CallDeliversBytesFromOneFileOnly) {
    const std::string main = file("scan.rxp", "abc");
    file("scan.rxp_001", "de");
    file("scan.rxo", "xy");
    open_scan c(main);
    EXPECT_EQ(read(c, 100), "xy");
    EXPECT_EQ(read(c, 2), "ab");
    EXPECT_EQ(read(c, 2), "c");
    EXPECT_EQ(read(c, 2), "de");
    EXPECT_EQ(c.position(), 7u);
}

TEST_F(FileSet, PrefixesComeInFrontCommonFirstAndDoNotCountInTheSize) {
    const std::string main = file("scan.rxp", "main");
    file("common.rxo", "common-");
    file("scan.rxo", "own-");
    open_scan c(main);
    EXPECT_EQ(c.size(), 4u);
    EXPECT_EQ(rest(c), "common-own-main");
    EXPECT_EQ(c.position(), 15u);
    EXPECT_THAT(names_of(c.report().files.prefixes),
                ElementsAre(path("common.rxo"), path("scan.rxo")));
    EXPECT_EQ(c.report().files.size(), 15u);
}

TEST_F(FileSet, EmptyPrefixIsPassedOver) {
    const std::string main = file("scan.rxp", "main");
    file("common.rxo", "");
    file("scan.rxo", "");
    open_scan c(main);
    EXPECT_EQ(read(c, 100), "main");
}

TEST_F(FileSet, EmptyMainFileOpensAndTheNextReadTriesTheFirstContinuation) {
    const std::string main = file("scan.rxp", "");
    open_scan alone(main);
    EXPECT_EQ(read(alone, 10), "");
    EXPECT_TRUE(alone.end_of_input_);
    file("scan.rxp_001", "one");
    open_scan c(main);
    EXPECT_EQ(c.size(), 3u);
    EXPECT_EQ(read(c, 10), "one");
}

TEST_F(FileSet, EmptyContinuationIsPassedOver) {
    const std::string main = file("scan.rxp", "main-");
    file("scan.rxp_001", "");
    file("scan.rxp_002", "");
    file("scan.rxp_003", "three");
    open_scan c(main);
    EXPECT_EQ(rest(c), "main-three");
}

TEST_F(FileSet, ReadOfNothingTakesNothingAndEndsNothing) {
    const std::string main = file("scan.rxp", "main");
    file("scan.rxo", "own-");
    file("scan.rxp_001", "-one");
    open_scan c(main);
    std::string all;
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(read(c, 0), "");
        all += read(c, 1);
    }
    EXPECT_EQ(all, "own-main-one");
}

TEST_F(FileSet, LongFilesComeWholeWhateverTheSizeOfTheReads) {
    const file_set_names names(path("scan.rxp"));
    std::string all;
    std::uint32_t number = 0;
    for (const std::size_t size : {300001u, 262144u, 3u, 700000u}) {
        std::string content(size, '\0');
        for (std::size_t i = 0; i < size; ++i) {
            content[i] = static_cast<char>((all.size() + i) * 7 + i / 251);
        }
        file(fs::path(names.continuation(number++)).filename(), content);
        all += content;
    }
    for (const std::size_t step : {1000u, 4096u, 262144u, 1000000u}) {
        open_scan c(names.main_file());
        EXPECT_TRUE(rest(c, step) == all) << step;
    }
}

TEST_F(FileSet, NamesAreUtf8) {
    const std::string main = file("\xc3\xa9t\xc3\xa9/\xe6\xb8\xac\xe9\x87\x8f.rxp", "main-");
    file("\xc3\xa9t\xc3\xa9/\xe6\xb8\xac\xe9\x87\x8f.rxp_001", "one");
    file("\xc3\xa9t\xc3\xa9/\xe6\xb8\xac\xe9\x87\x8f.rxo", "own-");
    file("\xc3\xa9t\xc3\xa9/common.rxo", "common-");
    open_scan c(main);
    EXPECT_EQ(rest(c), "common-own-main-one");
}

TEST_F(FileSet, ContinuationGivenAsMainFileBeginsASetOfItsOwn) {
    file("scan.rxp", "main-");
    const std::string one = file("scan.rxp_001", "one-");
    file("scan.rxp_002", "two");
    open_scan c(one);
    EXPECT_EQ(rest(c), "one-");
}

TEST_F(FileSet, CancelledSetFailsEvenWhilePrefixesAreRead) {
    const std::string main = file("scan.rxp", "main");
    file("scan.rxo", "own-");
    open_scan c(main);
    c.cancel();
    EXPECT_EQ(failure([&] { read(c, 1); }), "file_rconnection::more_input: Operation canceled!");
}

TEST_F(FileSet, FoundSetTellsTheFilesThatAreThereAndTheirSizes) {
    const std::string main = file("scan.rxp", "main");
    file("scan.rxp_001", "");
    file("scan.rxp_003", "three");
    file("scan.rxo", "own");
    const scanlib::file_set found = scanlib::find_file_set(main);
    EXPECT_THAT(names_of(found.prefixes), ElementsAre(path("scan.rxo")));
    EXPECT_THAT(names_of(found.data), ElementsAre(main, main + "_001"));
    EXPECT_EQ(found.size(), 7u);
    EXPECT_EQ(scanlib::find_file_set(path("missing.rxp")).size(), 0u);
}

} // namespace
