#include "commit_file.hpp"

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include "support/file_size_limit.hpp"

namespace {

using Skein::CommitFile;

class CommitFileTest : public testing::Test {
  protected:
    CommitFileTest() : path_(testing::TempDir() + "commit_file_" + std::to_string(getpid())) {}
    ~CommitFileTest() override { std::filesystem::remove(path_); }

    char byteAt(std::streamoff at) const {
        std::ifstream in(path_, std::ios::binary);
        in.seekg(at);
        return static_cast<char>(in.get());
    }

    const std::string path_;
};

TEST_F(CommitFileTest, StructureInSpaceNeverUsedGoesBeforeWhatRefersToIt) {
    CommitFile file(path_);
    file.allocateStructure(CommitFile::head_size);
    const std::uint64_t old = file.allocateStructure(100);
    const std::uint64_t unused = file.allocateStructure(100);
    ASSERT_TRUE(file.writeStructure(old, "a", 1));
    ASSERT_TRUE(file.commit() && file.settle());
    ASSERT_TRUE(file.writeStructure(old, "b", 1));
    ASSERT_TRUE(file.writeStructure(unused, "c", 1));
    {
        // The writes end before the later place.
        const test_support::file_size_limit limit(unused);
        EXPECT_FALSE(file.commit() && file.settle());
    }
    EXPECT_EQ(byteAt(static_cast<std::streamoff>(old)), 'a');
}

TEST_F(CommitFileTest, StructureThatWasCommittedIsChangedLast) {
    CommitFile file(path_);
    file.allocateStructure(CommitFile::head_size);
    const std::uint64_t first = file.allocateStructure(100);
    const std::uint64_t second = file.allocateStructure(100);
    ASSERT_TRUE(file.writeStructure(first, "a", 1) && file.writeStructure(second, "a", 1));
    ASSERT_TRUE(file.commit() && file.settle());
    ASSERT_TRUE(file.writeStructure(first, "b", 1) && file.writeStructure(second, "b", 1));
    const std::uint64_t added = file.allocateStructure(100);
    ASSERT_TRUE(file.writeStructure(added, "c", 1));
    {
        const test_support::file_size_limit limit(second);
        EXPECT_FALSE(file.commit() && file.settle());
    }
    EXPECT_EQ(byteAt(static_cast<std::streamoff>(first)), 'a');
}

/// Lets the process make no threads while it lives: no memory holds a stack of theirs.
class NoThreads {
  public:
    NoThreads() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t huge = {};
        pthread_attr_init(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << 60);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
    ~NoThreads() {
        pthread_setattr_default_np(&before_);
        pthread_attr_destroy(&before_);
    }

  private:
    pthread_attr_t before_ = {};
};

TEST_F(CommitFileTest, WithoutAThreadNothingStaysOpen) {
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = descriptors();
    {
        const NoThreads none;
        EXPECT_THROW(CommitFile file(path_), std::system_error);
    }
    EXPECT_EQ(descriptors(), before);
    EXPECT_FALSE(std::filesystem::exists(path_));
}

} // namespace
