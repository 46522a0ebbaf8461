#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "bundle_builder.hpp"
#include "bundle_interface/holdfast/console.hpp"
#include "bundle_interface/k7_reader.hpp"
#include "support/file_size_limit.hpp"

namespace {

using namespace bundle_test;
using test_support::file_size_limit;
using testing::HasSubstr;
using testing::Not;

class BundleFile : public testing::Test {
  protected:
    BundleFile() {
        std::string name = testing::TempDir() + "bundleXXXXXX";
        folder_ = mkdtemp(name.data());
        path_ = folder_ / "scan.k7";
        part_ = folder_ / "scan.k7.part";
        Holdfast::Console::setSink([this](const std::string& m) { said_.push_back(m); });
    }
    ~BundleFile() override {
        Holdfast::Console::setSink({});
        std::filesystem::remove_all(folder_);
    }

    Skein::BundlePtr bound() const {
        Skein::BundlePtr bundle(new Skein::Bundle);
        bundle->bindToNew(path_, {});
        return bundle;
    }
    static std::string bytes_of(const std::filesystem::path& file) {
        std::ifstream in(file, std::ios::binary);
        return (std::ostringstream() << in.rdbuf()).str();
    }
    template<class Action>
    static std::string text_of(Action&& action) {
        try {
            action();
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return {};
    }

    std::filesystem::path folder_;
    std::filesystem::path path_;
    std::filesystem::path part_;
    const std::string times_ = "/Slice_0/Shots/StandardCartesianChart3D/GPSTime";
    std::vector<std::string> said_;
};

TEST_F(BundleFile, GrowsAsPartAndGetsItsNameWhenReleased) {
    {
        const auto bundle = bound();
        store(field_of(shots_of(*bundle), "GPSTime"), 0, counting(10));
        EXPECT_TRUE(std::filesystem::exists(part_));
        EXPECT_FALSE(std::filesystem::exists(path_));
    }
    EXPECT_FALSE(std::filesystem::exists(part_));
    EXPECT_TRUE(std::filesystem::exists(path_));
    EXPECT_TRUE(said_.empty());
}

TEST_F(BundleFile, LastHolderReleasesTheBundle) {
    auto* first = new Skein::BundlePtr(bound());
    {
        const Skein::BundlePtr second = *first;
        delete first;
        EXPECT_TRUE(std::filesystem::exists(part_));
    }
    EXPECT_TRUE(std::filesystem::exists(path_));
}

TEST_F(BundleFile, FileOfAnEarlierRunStaysUntilTheRename) {
    std::ofstream(path_) << "earlier";
    const auto bundle = bound();
    bundle->flush();
    EXPECT_EQ(bytes_of(path_), "earlier");
    bundle->finish();
    EXPECT_NE(bytes_of(path_), "earlier");
}

TEST_F(BundleFile, TellsItsSize) {
    const auto bundle = bound();
    EXPECT_GT(bundle->fileSize(), 0U);
    store(field_of(shots_of(*bundle), "GPSTime"), 0, counting(100000));
    EXPECT_GT(bundle->fileSize(), 800000U);
    bundle->finish();
    EXPECT_EQ(bundle->fileSize(), std::filesystem::file_size(path_));
}

TEST_F(BundleFile, TargetThatCannotBeWrittenIsToldWhenBound) {
    Skein::Bundle bundle;
    const std::string path = folder_ / "none" / "scan.k7";
    const std::string text = text_of([&] { bundle.bindToNew(path, {}); });
    EXPECT_THAT(text, HasSubstr(path));
    EXPECT_THAT(text, HasSubstr("No such file or directory"));
}

TEST_F(BundleFile, FolderWithoutPermissionIsToldWhenBound) {
    std::filesystem::permissions(folder_, std::filesystem::perms::owner_read |
                                              std::filesystem::perms::owner_exec);
    // Permissions do not bind the superuser, who becomes somebody else meanwhile.
    const uid_t user = geteuid();
    if (user == 0) {
        ASSERT_EQ(seteuid(65534), 0);
    }
    const std::string text = text_of([&] { bound(); });
    ASSERT_EQ(seteuid(user), 0);
    std::filesystem::permissions(folder_, std::filesystem::perms::owner_all);
    EXPECT_THAT(text, HasSubstr("Permission denied"));
}

TEST_F(BundleFile, DirectoryInItsPlaceIsToldWhenBound) {
    std::filesystem::create_directory(path_);
    EXPECT_THAT(text_of([&] { bound(); }), HasSubstr("is a directory"));
}

TEST_F(BundleFile, FullDiskEndsTheStoreWithActionPathAndCause) {
    const file_size_limit limit(200000);
    const auto bundle = bound();
    const auto field = field_of(shots_of(*bundle), "GPSTime");
    store(field, 0, counting(10000));
    bundle->flush();
    const auto committed = std::filesystem::file_size(part_);
    const std::string text = text_of([&] { store(field, 1, counting(100000)); });
    EXPECT_THAT(text, HasSubstr("Fragment_1"));
    EXPECT_THAT(text, HasSubstr(part_.string()));
    EXPECT_THAT(text, HasSubstr("File too large"));
    EXPECT_TRUE(bundle->failed());
    EXPECT_EQ(std::filesystem::file_size(part_), committed);
}

TEST_F(BundleFile, AfterAFailedStoreEachOperationTellsItAgainAndThePartStays) {
    std::string text;
    {
        const auto bundle = bound();
        const auto field = field_of(shots_of(*bundle), "GPSTime");
        {
            const file_size_limit limit(100000);
            text = text_of([&] { store(field, 0, counting(100000)); });
        }
        ASSERT_FALSE(text.empty());
        EXPECT_EQ(text_of([&] { store(field, 1, counting(1)); }), text);
        EXPECT_EQ(text_of([&] { bundle->flush(); }), text);
        EXPECT_EQ(text_of([&] { bundle->settle(); }), text);
        EXPECT_EQ(text_of([&] { bundle->finish(); }), text);
    }
    EXPECT_THAT(said_, testing::ElementsAre(text));
    EXPECT_TRUE(std::filesystem::exists(part_));
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(BundleFile, FullDiskAtTheFlushKeepsTheLastFlushedState) {
    const auto bundle = bound();
    const auto field = field_of(shots_of(*bundle), "GPSTime");
    bundle->flush();
    const std::string before = bytes_of(part_);
    store(field, 0, counting(1));
    {
        const file_size_limit limit(before.size() + 8);
        EXPECT_THAT(text_of([&] { bundle->flush(); }), HasSubstr("File too large"));
    }
    EXPECT_EQ(bytes_of(part_), before);
}

TEST_F(BundleFile, FullDiskAtTheColumnsLeavesThePartWithEveryFragment) {
    const auto bundle = bound();
    const auto field = field_of(shots_of(*bundle), "GPSTime");
    store(field, 0, counting(10));
    bundle->flush();
    {
        const file_size_limit limit(std::filesystem::file_size(part_) + 8);
        EXPECT_THAT(text_of([&] { bundle->finish(); }), HasSubstr("File too large"));
    }
    EXPECT_FALSE(std::filesystem::exists(path_));
    const Skein::K7Reader file(part_);
    EXPECT_EQ(file.open(times_ + "/Fragment_0").rows(), 10U);
    EXPECT_EQ(file.kindOf("/Slice_0/Shots/GPSTime"), Skein::K7Reader::Kind::none);
}

TEST_F(BundleFile, ColumnWhoseNameIsTakenLeavesAWholeFileWithoutColumnsAndIsTold) {
    {
        const auto bundle = bound();
        const auto grid = shots_of(*bundle);
        store(field_of(grid, "GPSTime"), 0, counting(10));
        store(field_of(grid, "StandardCartesianChart3D"), 0, counting(10));
    }
    ASSERT_THAT(said_, testing::SizeIs(1));
    EXPECT_THAT(said_.front(), HasSubstr(path_.string() + " gets no columns"));
    EXPECT_THAT(said_.front(), HasSubstr("already exists"));
    EXPECT_FALSE(std::filesystem::exists(part_));
    const Skein::K7Reader file(path_);
    EXPECT_EQ(file.open(times_ + "/Fragment_0").rows(), 10U);
    EXPECT_THAT(file.members("/Slice_0/Shots"), testing::ElementsAre("StandardCartesianChart3D"));
}

TEST_F(BundleFile, AbandonedFileStaysAsItsLastFlushLeftIt) {
    std::string before;
    {
        const auto bundle = bound();
        const auto field = field_of(shots_of(*bundle), "GPSTime");
        store(field, 0, counting(10));
        bundle->flush();
        before = bytes_of(part_);
        store(field, 1, counting(10));
        bundle->abandon();
        EXPECT_THAT(text_of([&] { store(field, 2, counting(1)); }), HasSubstr("closed"));
    }
    EXPECT_EQ(bytes_of(part_), before);
    EXPECT_FALSE(std::filesystem::exists(path_));
    EXPECT_TRUE(said_.empty());
}

TEST_F(BundleFile, DiscardedFileLeavesNothingAndTheEarlierOneStays) {
    std::ofstream(path_) << "earlier";
    {
        const auto bundle = bound();
        const auto field = field_of(shots_of(*bundle), "GPSTime");
        bundle->flush();
        bundle->discard();
        EXPECT_FALSE(std::filesystem::exists(part_));
        EXPECT_THAT(text_of([&] { store(field, 0, counting(1)); }), HasSubstr("closed"));
    }
    EXPECT_FALSE(std::filesystem::exists(part_));
    EXPECT_EQ(bytes_of(path_), "earlier");
    EXPECT_TRUE(said_.empty());
}

TEST_F(BundleFile, DiscardAfterTheFinishDoesNothing) {
    const auto bundle = bound();
    bundle->finish();
    const std::string finished = bytes_of(path_);
    bundle->discard();
    EXPECT_EQ(bytes_of(path_), finished);
}

TEST_F(BundleFile, DiscardAfterAFailedStoreRemovesThePart) {
    const auto bundle = bound();
    const auto field = field_of(shots_of(*bundle), "GPSTime");
    {
        const file_size_limit limit(100000);
        EXPECT_FALSE(text_of([&] { store(field, 0, counting(100000)); }).empty());
    }
    bundle->discard();
    EXPECT_FALSE(std::filesystem::exists(part_));
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(BundleFile, FileThatFailsWhileItIsMadeLeavesNoPartAndNoNoise) {
    const file_size_limit limit(100);
    testing::internal::CaptureStderr();
    EXPECT_THAT(text_of([&] { bound(); }), HasSubstr("File too large"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(std::filesystem::exists(part_));
}

TEST_F(BundleFile, FragmentStoredTwiceIsAnError) {
    const auto bundle = bound();
    const auto field = field_of(shots_of(*bundle), "GPSTime");
    store(field, 0, counting(1));
    EXPECT_THAT(text_of([&] { store(field, 0, counting(1)); }), HasSubstr("already exists"));
}

TEST_F(BundleFile, NamesThatAreNoNamesAreRefused) {
    const auto bundle = bound();
    for (const char* name : {"", ".", "a/b"}) {
        EXPECT_THROW((*(*bundle)[0.0])[name], std::runtime_error) << name;
    }
}

TEST_F(BundleFile, SameGridRepresentationAndFieldForTheSameName) {
    const auto bundle = bound();
    const auto grid = shots_of(*bundle);
    EXPECT_EQ(shots_of(*bundle).get(), grid.get());
    EXPECT_EQ(field_of(grid, "Range").get(), field_of(grid, "Range").get());
    EXPECT_NE(field_of(grid, "Range").get(), field_of(grid, "Amplitude").get());
}

TEST_F(BundleFile, UnboundBundleSaysSo) {
    Skein::Bundle bundle;
    EXPECT_THROW(bundle[0.0], std::runtime_error);
    EXPECT_THROW(bundle.flush(), std::runtime_error);
    EXPECT_EQ(bundle.fileSize(), 0U);
}

TEST_F(BundleFile, TwoBundlesInTwoThreadsDoNotDisturbEachOther) {
    const auto work = [this](const std::string& name) {
        Skein::Bundle bundle;
        bundle.bindToNew(folder_ / name, {});
        const auto field = field_of(shots_of(bundle), "GPSTime");
        for (unsigned i = 0; i < 50; ++i) {
            store(field, i, counting(100));
            bundle.flush();
        }
        bundle.finish();
    };
    std::thread other(work, "a.k7");
    work("b.k7");
    other.join();
    EXPECT_EQ(bytes_of(folder_ / "a.k7"), bytes_of(folder_ / "b.k7"));
}

TEST_F(BundleFile, ManyFragmentsAllStand) {
    const auto bundle = bound();
    const auto field = field_of(shots_of(*bundle), "GPSTime");
    for (unsigned i = 0; i < 300; ++i) {
        store(field, i, counting(1));
        bundle->flush();
    }
    EXPECT_THROW(store(field, 0, counting(1)), std::runtime_error);
}

} // namespace
