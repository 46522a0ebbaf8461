#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "bundle_interface/bundle_builder.hpp"
#include "bundle_interface/k7_reader.hpp"

namespace {

constexpr std::size_t rows = 40000;

/// Writes a file whose chunks are of one row, in a process of its own: it takes the memory that
/// reading must not take.
void write_small_chunks(const std::string& path) {
    const pid_t writer = fork();
    if (writer == 0) {
        const Holdfast::StrongPtr<Skein::StorageTransformations> storage(
            new Skein::StorageTransformations);
        storage->ChunkRows = 1;
        Skein::Bundle bundle;
        bundle.bindToNew(path, storage);
        const auto field = bundle_test::field_of(bundle_test::shots_of(bundle), "GPSTime");
        bundle_test::store(field, 0, bundle_test::counting(rows));
        bundle.finish();
        std::_Exit(0);
    }
    int status = 1;
    ASSERT_EQ(waitpid(writer, &status, 0), writer);
    ASSERT_EQ(status, 0);
}

/// KiB that the process had at most so far.
long peak_memory() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST(K7ReaderMemory, ManySmallChunksTakeABoundedAmount) {
    const std::string path =
        testing::TempDir() + "k7_reader_memory_" + std::to_string(getpid()) + ".k7";
    write_small_chunks(path);
    std::vector<double> values(rows);
    const long before = peak_memory();
    {
        const Skein::K7Reader file(path);
        const std::string chart = Skein::K7Reader::chartOf("/Slice_0/Shots");
        file.open(Skein::K7Reader::fragmentPath(chart + "/GPSTime", 0))
            .read(0, rows, values.data());
    }
    EXPECT_LT(peak_memory() - before, 50 * 1024);
    for (std::size_t i = 0; i < rows; ++i) {
        ASSERT_EQ(values[i], static_cast<double>(i));
    }
    std::filesystem::remove(path);
}

} // namespace
