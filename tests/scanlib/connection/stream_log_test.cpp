#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "file_size_limit.hpp"
#include "scanlib/file_connection.hpp"
#include "support/memory_connections.hpp"

namespace {

namespace fs = std::filesystem;
using test_support::file_size_limit;
using test_support::memory_rconnection;

std::string failure(const std::function<void()>& f) {
    try {
        f();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "no failure";
}

std::string content(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

class StreamLog : public testing::Test {
  protected:
    void SetUp() override {
        folder_ = fs::path(TEST_BINARY_DIR) / "stream_log_test" /
                  testing::UnitTest::GetInstance()->current_test_info()->name();
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        log_ = (folder_ / "log").string();
    }
    void TearDown() override { fs::remove_all(folder_); }

    /// Bytes 0, 1, 2, ... as the stream.
    static std::shared_ptr<memory_rconnection> counting(std::size_t n) {
        std::vector<unsigned char> bytes(n);
        std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
        return std::make_shared<memory_rconnection>(bytes);
    }
    static std::string range(unsigned begin, unsigned end) {
        std::string text;
        for (; begin < end; ++begin) {
            text += static_cast<char>(begin);
        }
        return text;
    }
    static std::string read(memory_rconnection& c, std::size_t n) {
        std::string text(n, '\0');
        text.resize(c.read(text.data(), n));
        return text;
    }
    fs::path extension(const char* ending) const { return log_ + ending; }

    fs::path folder_;
    std::string log_;
};

constexpr std::int64_t unlimited = INT64_MAX;

TEST_F(StreamLog, HoldsWhatIsRead) {
    const auto c = counting(100);
    read(*c, 10);
    c->log(log_, unlimited);
    read(*c, 40);
    read(*c, 100);
    c->close_log();
    EXPECT_EQ(content(log_), range(10, 100));
}

TEST_F(StreamLog, FlushBringsItIntoTheFile) {
    const auto c = counting(100);
    c->log(log_, unlimited);
    read(*c, 30);
    c->flush_log();
    EXPECT_EQ(content(log_), range(0, 30));
    c->close_log();
    c->flush_log();
}

TEST_F(StreamLog, AClosedLogTakesNoMore) {
    const auto c = counting(100);
    c->log(log_, unlimited);
    read(*c, 30);
    c->close_log();
    c->close_log();
    read(*c, 30);
    EXPECT_EQ(content(log_), range(0, 30));
}

TEST_F(StreamLog, DestructionClosesIt) {
    counting(100)->log(log_, unlimited);
    {
        const auto c = counting(100);
        c->log(log_, unlimited);
        read(*c, 30);
    }
    EXPECT_EQ(content(log_), range(0, 30));
}

TEST_F(StreamLog, RestOfAReadBeyondTheLimitGoesNowhere) {
    const auto c = counting(100);
    c->log(log_, 10);
    EXPECT_EQ(read(*c, 25), range(0, 25));
    EXPECT_EQ(read(*c, 4), range(25, 29));
    c->close_log();
    EXPECT_EQ(content(log_), range(0, 10));
    EXPECT_EQ(content(extension("_001")), range(25, 29));
}

TEST_F(StreamLog, ReadThatFillsTheLimitExactlyDoesNotRollOver) {
    const auto c = counting(100);
    c->log(log_, 10);
    read(*c, 10);
    EXPECT_FALSE(fs::exists(extension("_001")));
    read(*c, 5);
    read(*c, 5);
    c->close_log();
    EXPECT_EQ(content(log_), range(0, 10));
    EXPECT_EQ(content(extension("_001")), range(15, 20));
}

TEST_F(StreamLog, ExtensionsCountOn) {
    const auto c = counting(100);
    c->log(log_, 10);
    for (int i = 0; i < 4; ++i) {
        read(*c, 25);
    }
    c->close_log();
    EXPECT_EQ(content(extension("_001")), range(25, 35));
    EXPECT_EQ(content(extension("_003")), range(75, 85));
    EXPECT_EQ(content(extension("_004")), "");
}

TEST_F(StreamLog, NewLogBeginsAfreshAndRemovesEarlierExtensionsOnly) {
    for (const char* name : {"log_001", "log_998", "log_01", "log_0001", "log_0x1", "log.001",
                             "xlog_001", "log_001x", "other_001"}) {
        std::ofstream(folder_ / name) << "earlier";
    }
    fs::create_directories(folder_ / "log_777/kept");
    const auto c = counting(100);
    c->log(log_, 10);
    read(*c, 25);
    c->log(log_, 20);
    EXPECT_FALSE(fs::exists(extension("_001")));
    EXPECT_FALSE(fs::exists(extension("_998")));
    for (const char* name : {"log_01", "log_0001", "log_0x1", "log.001", "xlog_001", "log_001x",
                             "other_001", "log_777"}) {
        EXPECT_TRUE(fs::exists(folder_ / name)) << name;
    }
    read(*c, 25);
    read(*c, 5);
    c->close_log();
    EXPECT_EQ(content(log_), range(25, 45));
    EXPECT_EQ(content(extension("_001")), range(50, 55));
}

TEST_F(StreamLog, RelativePathStaysWhereItWas) {
    const fs::path before = fs::current_path();
    fs::current_path(folder_);
    const auto c = counting(100);
    c->log("log", 10);
    fs::create_directory(folder_ / "elsewhere");
    fs::current_path(folder_ / "elsewhere");
    read(*c, 25);
    read(*c, 5);
    c->close_log();
    fs::current_path(before);
    EXPECT_EQ(content(extension("_001")), range(25, 30));
}

TEST_F(StreamLog, FolderThatDoesNotExistFails) {
    const auto c = counting(100);
    EXPECT_EQ(failure([&] { c->log((folder_ / "no/log").string(), 10); }), "cannot create logfile");
    EXPECT_EQ(read(*c, 5), range(0, 5));
}

TEST_F(StreamLog, ExtensionThatCannotBeCreatedFailsAndNothingIsLost) {
    const auto c = counting(100);
    c->log(log_, 10);
    fs::create_directories(extension("_001") / "in the way");
    EXPECT_EQ(failure([&] { read(*c, 25); }), "cannot create logfile extension");
    EXPECT_EQ(c->position(), 0u);
    EXPECT_EQ(read(*c, 7), range(0, 7));
    EXPECT_EQ(read(*c, 30), range(7, 25));
    EXPECT_EQ(read(*c, 5), range(25, 30));
    EXPECT_EQ(c->position(), 30u);
    EXPECT_EQ(content(log_), range(0, 10));
}

TEST_F(StreamLog, DiskThatFillsUpFailsOnceAndNothingIsLost) {
    constexpr std::size_t size = 2000000;
    constexpr std::size_t piece = 100000;
    const auto c = counting(size);
    const std::string whole = read(*counting(size), size);
    std::string delivered;
    std::string told;
    {
        const file_size_limit full(600000);
        c->log(log_, unlimited);
        while (delivered.size() < size) {
            std::string part;
            const std::string reason = failure([&] { part = read(*c, piece); });
            told += reason == "no failure" ? "" : reason;
            delivered += part;
        }
        const std::string at_the_end = failure([&] { c->close_log(); });
        told += at_the_end == "no failure" ? "" : at_the_end;
    }
    EXPECT_EQ(told, "cannot write logfile \"" + log_ + "\"");
    EXPECT_EQ(delivered, whole);
    EXPECT_EQ(content(log_), whole.substr(0, content(log_).size()));
}

TEST_F(StreamLog, ConcurrentWriterLeavesEveryFileWhole) {
    constexpr std::size_t size = 6000000;
    std::mt19937 random(2);
    std::vector<unsigned char> bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<unsigned char>(random()); });
    const std::string whole(bytes.begin(), bytes.end());
    const auto c = std::make_shared<memory_rconnection>(bytes);
    c->log(log_, 2500000);
    std::size_t at = 0;
    std::size_t second = 0; // first byte behind the read that did not fit the log
    for (std::size_t n = 1; at < size; n = n % 5000 + 1) {
        at += read(*c, n).size();
        second = second == 0 && at > 2500000 ? at : second;
        if (n == 2000) {
            c->flush_log();
        }
    }
    c->close_log();
    EXPECT_EQ(content(log_), whole.substr(0, 2500000));
    EXPECT_EQ(content(extension("_001")), whole.substr(second, 2500000));
}

TEST_F(StreamLog, DiskThatIsFullAtTheEndIsToldByClose) {
    const auto c = counting(5000);
    c->log(log_, unlimited);
    read(*c, 5000);
    const file_size_limit full(1000);
    EXPECT_EQ(failure([&] { c->close_log(); }), "cannot write logfile \"" + log_ + "\"");
}

} // namespace
