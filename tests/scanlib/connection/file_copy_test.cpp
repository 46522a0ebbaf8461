#include "file_copy.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "scan_folder.hpp"

namespace {

using scanlib::copy_range;
using scanlib::copy_way;

constexpr copy_way first_way = copy_way::within_file_systems;

/// A descriptor that is closed at the end.
class descriptor {
  public:
    explicit descriptor(int number) : number_(number) {}
    descriptor(const std::string& path, int flags) : number_(open(path.c_str(), flags, 0600)) {}
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;
    ~descriptor() { close(number_); }
    operator int() const { return number_; }

  private:
    int number_;
};

class FileCopy : public test_support::scan_folder {
  protected:
    FileCopy() {
        for (std::size_t i = 0; i < bytes_.size(); ++i) {
            bytes_[i] = static_cast<char>(i * i >> 7);
        }
        source_ = file("source", bytes_);
    }
    std::string target() const {
        std::ifstream in(path("target"), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    std::string source_;
    std::string bytes_ = std::string(300000, '\0');
    static constexpr int anew = O_WRONLY | O_CREAT | O_TRUNC;
};

TEST_F(FileCopy, EveryWayAppendsTheSameBytes) {
    const descriptor from(source_, O_RDONLY);
    for (const copy_way begun_with :
         {first_way, copy_way::within_kernel, copy_way::through_memory}) {
        const descriptor to(path("target"), anew);
        copy_way way = begun_with;
        EXPECT_TRUE(copy_range(from, 17, 200000, to, way));
        EXPECT_TRUE(copy_range(from, 0, 5, to, way));
        EXPECT_GE(way, begun_with);
        EXPECT_EQ(target(), bytes_.substr(17, 200000) + bytes_.substr(0, 5));
    }
}

TEST_F(FileCopy, ReadingPositionOfTheSourceStaysWhereItIs) {
    const descriptor from(source_, O_RDONLY);
    for (copy_way way : {first_way, copy_way::within_kernel, copy_way::through_memory}) {
        const descriptor to(path("target"), anew);
        ASSERT_EQ(lseek(from, 11, SEEK_SET), 11);
        EXPECT_TRUE(copy_range(from, 100, 1000, to, way));
        EXPECT_EQ(lseek(from, 0, SEEK_CUR), 11);
    }
}

TEST_F(FileCopy, TargetThatTakesBytesOfMemoryOnlyGetsThemSo) {
    const descriptor from(source_, O_RDONLY);
    const descriptor to(path("target"), anew | O_APPEND);
    copy_way way = first_way;
    EXPECT_TRUE(copy_range(from, 1, 100000, to, way));
    EXPECT_EQ(way, copy_way::through_memory);
    EXPECT_EQ(target(), bytes_.substr(1, 100000));
}

TEST_F(FileCopy, PipeGetsTheBytes) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const descriptor out(ends[0]);
    const descriptor in(ends[1]);
    copy_way way = first_way;
    EXPECT_TRUE(copy_range(descriptor(source_, O_RDONLY), 7, 1000, in, way));
    EXPECT_NE(way, first_way);
    std::string got(2000, '\0');
    got.resize(static_cast<std::size_t>(::read(out, got.data(), got.size())));
    EXPECT_EQ(got, bytes_.substr(7, 1000));
}

TEST_F(FileCopy, SourceThatIsTooShortFailsBehindWhatItHas) {
    const descriptor from(source_, O_RDONLY);
    for (copy_way way : {first_way, copy_way::within_kernel, copy_way::through_memory}) {
        const descriptor to(path("target"), anew);
        EXPECT_FALSE(copy_range(from, 299000, 1001, to, way));
        EXPECT_EQ(target(), bytes_.substr(299000));
    }
}

TEST_F(FileCopy, TargetThatTakesNothingFails) {
    const descriptor from(source_, O_RDONLY);
    const descriptor full("/dev/full", O_WRONLY);
    for (copy_way way : {first_way, copy_way::within_kernel, copy_way::through_memory}) {
        EXPECT_FALSE(copy_range(from, 0, 1000, full, way));
    }
}

} // namespace
