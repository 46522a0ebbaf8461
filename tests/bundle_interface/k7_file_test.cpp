#include "k7_file.hpp"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using Skein::K7File;

TEST(ConcurrentK7File, IsSettledByOneThreadWhileAnotherWritesAndAbandonsIt) {
    const std::string path = testing::TempDir() + "k7_file_" + std::to_string(getpid());
    for (int round = 0; round < 100; ++round) {
        K7File file(path, nullptr);
        std::atomic<bool> closed{false};
        std::thread other([&] {
            while (!closed.load(std::memory_order_relaxed)) {
                file.settle();
            }
        });
        file.setWriteBehind(true);
        file.flush();
        file.abandon();
        closed.store(true, std::memory_order_relaxed);
        other.join();
        EXPECT_FALSE(file.failed());
        file.discard();
    }
    EXPECT_FALSE(std::filesystem::exists(path + ".part"));
}

} // namespace
