// Processes of the host: what a signal does that meets one before it has begun, and how work in one
// of its own can fail.

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <list>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include "contained_run.hpp"
#include "exit_code.hpp"
#include "interrupts.hpp"
#include "job_pool.hpp"

namespace {

using host::exit_code;
using testing::HasSubstr;

constexpr std::uint64_t enough = 60; // seconds

volatile std::sig_atomic_t raised_in_child = 0;

/// Lets a signal meet each new process before anything else happens there.
class signal_at_fork {
  public:
    explicit signal_at_fork(int signal) {
        [[maybe_unused]] static const int once = ::pthread_atfork(nullptr, nullptr, [] {
            if (raised_in_child != 0) {
                std::raise(raised_in_child);
            }
        });
        raised_in_child = signal;
    }
    signal_at_fork(const signal_at_fork&) = delete;
    signal_at_fork& operator=(const signal_at_fork&) = delete;
    ~signal_at_fork() { raised_in_child = 0; }
};

TEST(Processes, SignalThatMeetsANewJobIsNotTakenForOneOfItsParent) {
    const auto ignore = [](int) {};
    host::job_pool pool({ignore, ignore}, {[](std::size_t, std::uint64_t) {}, [] {}});
    {
        const signal_at_fork meet(SIGINT);
        ASSERT_EQ(pool.start(7, [](std::size_t, const auto& report) { report.result("done"); }),
                  "");
    }
    std::list<host::job_end> ended;
    while (ended.empty()) {
        ended = pool.wait();
    }
    EXPECT_EQ(ended.front().result, "done");
    EXPECT_EQ(pool.signals(), 0);
}

TEST(Processes, SignalThatMeetsContainedWorkIsNotTakenForOneOfItsParent) {
    const host::interrupts watch([](int) {}, [](int) {});
    host::contained_result result;
    {
        const signal_at_fork meet(SIGTERM);
        result = host::run_contained(enough, [](std::string&) { return exit_code::good; });
    }
    EXPECT_EQ(result.failure, "") << "the parent says when its work ends";
    std::raise(SIGINT); // comes behind whatever was passed on
    while (watch.last() != SIGINT) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(watch.count(), 1);
}

TEST(ContainedRun, WorkWithoutEndIsEndedAndToldOf) {
    const auto result = host::run_contained(1, [](std::string&) -> exit_code {
        for (std::atomic<int> turns = 0;; ++turns) {
        }
    });
    EXPECT_EQ(result.code, exit_code::input_damaged);
    EXPECT_EQ(result.told, "");
    EXPECT_THAT(result.failure, HasSubstr("does not end with it in 1 s"));
}

TEST(ContainedRun, TimeForAFileGrowsWithItsSize) {
    const std::string name = ::testing::TempDir() + "contained_run_size";
    std::ofstream(name).put('x');
    const std::uint64_t little = host::most_seconds(name);
    std::filesystem::resize_file(name, std::uint64_t{10} << 30U);
    EXPECT_GE(little, 60U);
    EXPECT_EQ(host::most_seconds(name) - little, 10240U);
    std::filesystem::remove(name);
    EXPECT_EQ(host::most_seconds(name), little) << "reading tells that it is not there";
}

TEST(ContainedRun, TellsWhatTheWorkTells) {
    const auto result = host::run_contained(enough, [](std::string& told) {
        told = "some";
        return exit_code::output_failed;
    });
    EXPECT_EQ(result.told, "some");
    EXPECT_EQ(result.failure, "");
    EXPECT_EQ(result.code, exit_code::output_failed);
}

TEST(ContainedRun, WorkThatTellsNothingHasNotFailed) {
    const auto result = host::run_contained(enough, [](std::string&) { return exit_code::good; });
    EXPECT_EQ(result.told + result.failure, "");
}

TEST(ContainedRun, WorkThatIsGivenUpTellsWhyAndNothingElse) {
    const auto memory = host::run_contained(enough, [](std::string& told) -> exit_code {
        told = "half";
        throw std::bad_alloc();
    });
    EXPECT_EQ(memory.code, exit_code::input_damaged);
    EXPECT_EQ(memory.told, "");
    EXPECT_THAT(memory.failure, HasSubstr("memory"));
    const auto other = host::run_contained(
        enough, [](std::string&) -> exit_code { throw std::runtime_error("odd state"); });
    EXPECT_EQ(other.code, exit_code::internal_failure);
    EXPECT_THAT(other.failure, HasSubstr("odd state"));
}

} // namespace
