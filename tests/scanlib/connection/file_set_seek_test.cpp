#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "scan_folder.hpp"

namespace {

namespace fs = std::filesystem;
using test_support::open_scan;

class FileSetSeek : public test_support::scan_folder {
  protected:
    std::string main_ = file("scan.rxp", "0123");
    std::string one_ = file("scan.rxp_001", "4567");
    std::string two_ = file("scan.rxp_002", "89");
};

TEST_F(FileSetSeek, OffsetsAreThoseOfTheFilesPutTogether) {
    open_scan c(main_);
    const std::string whole = "0123456789";
    for (const std::uint64_t at : {9u, 0u, 5u, 1u, 4u, 8u, 3u, 7u}) {
        c.seek(at);
        EXPECT_EQ(c.position(), at);
        EXPECT_EQ(read(c, 1), whole.substr(at, 1));
        EXPECT_EQ(c.position(), at + 1);
    }
    c.seek(2);
    EXPECT_EQ(rest(c), "23456789");
}

TEST_F(FileSetSeek, ToTheExactEndOfAFileStaysInItAndTheNextReadMovesOn) {
    open_scan c(main_);
    c.seek(4);
    fs::remove(one_);
    file("scan.rxp_001", "new!");
    EXPECT_EQ(read(c, 10), "new!") << "the continuation was not open before";
    c.seek(8);
    EXPECT_EQ(read(c, 10), "89");
}

TEST_F(FileSetSeek, ToTheTotalSizeIsValidAndBeyondIsNot) {
    open_scan c(main_);
    c.seek(10);
    EXPECT_EQ(c.position(), 10u);
    EXPECT_EQ(failure([&] { c.seek(11); }), "trying to seek beyond eof");
    EXPECT_EQ(failure([&] { c.seek(~std::uint64_t{0}); }), "trying to seek beyond eof");
    EXPECT_EQ(c.position(), 10u);
    EXPECT_EQ(read(c, 1), "");
}

TEST_F(FileSetSeek, AfterTheEndOfTheInputBringsNothingBack) {
    open_scan c(main_);
    rest(c);
    c.seek(0);
    EXPECT_EQ(c.position(), 0u);
    EXPECT_EQ(read(c, 1), "");
}

TEST_F(FileSetSeek, ToTheStartDoesNotReplayPrefixes) {
    file("common.rxo", "common-");
    file("scan.rxo", "own-");
    open_scan c(main_);
    EXPECT_EQ(rest(c, 7).substr(0, 11), "common-own-");
    open_scan again(main_);
    read(again, 7);
    read(again, 4);
    EXPECT_EQ(read(again, 2), "01");
    again.seek(0);
    EXPECT_EQ(read(again, 4), "0123");
}

TEST_F(FileSetSeek, LeavesPrefixBytesNotReadYetInFront) {
    file("common.rxo", "common-");
    file("scan.rxo", "own-");
    open_scan c(main_);
    EXPECT_EQ(read(c, 3), "com");
    c.seek(5);
    EXPECT_EQ(read(c, 100), "mon-");
    EXPECT_EQ(read(c, 100), "own-");
    EXPECT_EQ(read(c, 100), "567");
    EXPECT_EQ(c.position(), 5u + 4 + 4 + 3);
}

TEST_F(FileSetSeek, LeavesPushedBackBytesInFront) {
    open_scan c(main_);
    c.push_back("ab", 2);
    c.seek(9);
    EXPECT_EQ(read(c, 100), "ab");
    EXPECT_EQ(read(c, 100), "9");
}

TEST_F(FileSetSeek, IntoAFileThatVanishedMakesTheNextReadFail) {
    open_scan c(main_);
    fs::remove(one_);
    c.seek(6);
    EXPECT_EQ(c.position(), 6u);
    EXPECT_EQ(failure([&] { read(c, 1); }),
              "file_rconnection::more_input: Error reading from file!");
    c.seek(9);
    EXPECT_EQ(read(c, 10), "9") << "the other files are still there";
}

TEST_F(FileSetSeek, DoesNotReachFilesThatAppearedSinceTheOpening) {
    open_scan c(main_);
    file("scan.rxp_003", "ab");
    EXPECT_EQ(failure([&] { c.seek(11); }), "trying to seek beyond eof");
    c.seek(10);
    EXPECT_EQ(read(c, 10), "ab") << "reading does";
}

TEST_F(FileSetSeek, EmptyFilesOfTheSetHoldNoOffset) {
    file("scan.rxp_001", "");
    open_scan c(main_);
    c.seek(4);
    EXPECT_EQ(read(c, 10), "89");
    c.seek(5);
    EXPECT_EQ(read(c, 10), "9");
}

/// A set of random files, and what their bytes are together.
struct random_set {
    std::vector<std::uint64_t> ends; ///< of each file in the whole
    std::string whole;

    /// Where a read at `at` must stop at the latest: the end of the file that has that byte.
    std::uint64_t reach(std::uint64_t at) const {
        return *std::upper_bound(ends.begin(), ends.end(), at);
    }
};

TEST_F(FileSetSeek, SeeksAndReadsOfAnySetSliceTheFilesPutTogether) {
    std::mt19937 random(5);
    const auto below = [&](std::uint64_t n) { return random() % n; };
    for (int round = 0; round < 60; ++round) {
        const std::string name = "set" + std::to_string(round);
        random_set set;
        const std::size_t count = 1 + below(5);
        const scanlib::file_set_names names(name);
        for (std::uint32_t i = 0; i < count; ++i) {
            // Empty ones, short ones, and some beyond the buffer of the connection.
            std::string content(below(3) == 0 ? 0 : below(round % 10 == 0 ? 400000 : 60), '\0');
            std::generate(content.begin(), content.end(),
                          [&] { return static_cast<char>(random()); });
            file(names.continuation(i), content);
            set.whole += content;
            set.ends.push_back(set.whole.size());
        }
        open_scan c(path(name));
        ASSERT_EQ(c.size(), set.whole.size());
        std::uint64_t at = 0;
        for (int step = 0; step < 200; ++step) {
            if (below(2) == 0) {
                at = below(set.whole.size() + 1);
                c.seek(at);
            }
            if (at == set.whole.size()) {
                continue; // a read would end the input for good
            }
            const std::uint64_t n = 1 + below(below(4) == 0 ? 300000 : 20);
            const std::string got = read(c, n);
            const std::uint64_t most = std::min(n, set.reach(at) - at);
            ASSERT_TRUE(!got.empty() && got.size() <= most) << round << ' ' << step;
            ASSERT_TRUE(got == set.whole.substr(at, got.size())) << round << ' ' << step;
            at += got.size();
            ASSERT_EQ(c.position(), at);
        }
        c.seek(at);
        ASSERT_TRUE(rest(c, 1000) == set.whole.substr(at)) << round;
        ASSERT_TRUE(c.end_of_input_);
    }
}

} // namespace
