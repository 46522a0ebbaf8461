// A log takes the bytes of a file from the file, on a thread of its own, and must hold what was
// read all the same.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "scan_folder.hpp"
#include "scanlib/rxpstream/rewriting.hpp"
#include "support/file_size_limit.hpp"

namespace {

namespace fs = std::filesystem;
using test_support::file_size_limit;
using test_support::open_scan;

constexpr std::int64_t unlimited = INT64_MAX;

/// More than the log takes at once.
constexpr std::size_t large = 9000000;

class FileLog : public test_support::scan_folder {
  protected:
    static std::string content(const std::string& name) {
        std::ifstream in(name, std::ios::binary);
        std::string bytes(2 * large + 1000000, '\0');
        in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        bytes.resize(static_cast<std::size_t>(in.gcount()));
        return bytes;
    }
    /// In blocks that differ from each other: instrumented builds take long for each step.
    static std::string random_bytes(std::size_t n, unsigned seed = 1) {
        std::mt19937_64 random(seed);
        std::string block(4093, '\0');
        std::generate(block.begin(), block.end(), [&] { return static_cast<char>(random()); });
        std::string bytes;
        for (std::uint64_t number = random(); bytes.size() < n; ++number) {
            std::memcpy(block.data() + 1, &number, sizeof number);
            bytes += block;
        }
        bytes.resize(n);
        return bytes;
    }
    /// What the connection told while all was read, or closed its log.
    struct reading {
        std::string delivered;
        std::string told;
    };
    static reading read_to_the_end(open_scan& c, std::size_t piece = 100000) {
        reading r;
        const auto note = [&](const std::string& reason) {
            r.told += reason == "no failure" ? "" : reason;
        };
        while (!c.end_of_input_) {
            note(failure([&] { r.delivered += read(c, piece); }));
        }
        note(failure([&] { c.close_log(); }));
        return r;
    }
    std::string not_written() const { return "cannot write logfile \"" + log_ + "\""; }

    std::string log_ = path("log");
};

TEST_F(FileLog, HoldsPrefixesAndEveryFileOfASet) {
    file("common.rxo", "common-");
    file("scan.rxo", "own-");
    file("scan.rxp", random_bytes(large));
    file("scan.rxp_001", "one-");
    file("scan.rxp_002", "");
    file("scan.rxp_003", random_bytes(large, 2));
    for (const std::size_t piece : {2732u, 100000u, 5000000u}) {
        open_scan set(path("scan.rxp"));
        set.log(log_, unlimited);
        const reading r = read_to_the_end(set, piece);
        EXPECT_EQ(r.told, "");
        EXPECT_EQ(r.delivered.size(), 7 + 4 + large + 4 + large);
        EXPECT_TRUE(content(log_) == r.delivered) << piece;
    }
}

TEST_F(FileLog, FlushBringsItIntoTheFile) {
    const std::string bytes = random_bytes(large);
    open_scan c(file("scan.rxp", bytes));
    read(c, 10);
    c.log(log_, unlimited);
    read(c, 20);
    c.flush_log();
    EXPECT_EQ(content(log_), bytes.substr(10, 20));
    read(c, 5000000);
    c.flush_log();
    EXPECT_TRUE(content(log_) == bytes.substr(10, 5000020));
    c.close_log();
}

TEST_F(FileLog, LimitWithinWhatIsTakenAtOnceRollsOver) {
    const std::string bytes = random_bytes(large);
    open_scan c(file("scan.rxp", bytes));
    c.log(log_, 3000000);
    EXPECT_EQ(read_to_the_end(c, 70000).told, "");
    // 42 reads fit, the next one does so in part.
    EXPECT_TRUE(content(log_) == bytes.substr(0, 3000000));
    EXPECT_TRUE(content(log_ + "_001") == bytes.substr(43 * 70000, 3000000));
    EXPECT_TRUE(content(log_ + "_002") == bytes.substr(86 * 70000));
    EXPECT_FALSE(fs::exists(log_ + "_003"));
}

TEST_F(FileLog, SourceWhoseNameIsGoneIsLoggedToTheEnd) {
    const std::string bytes = random_bytes(large);
    open_scan c(file("scan.rxp", bytes));
    file("scan.rxp_001", "one");
    c.log(log_, unlimited);
    read(c, 1);
    fs::remove(path("scan.rxp"));
    file("scan.rxp", std::string(large, 'x'));
    EXPECT_EQ(read_to_the_end(c).told, "");
    EXPECT_TRUE(content(log_) == bytes + "one");
}

TEST_F(FileLog, SourceThatIsCutBehindTheReadingIsToldAndNothingOfTheStreamIsLost) {
    const std::string bytes = random_bytes(1000000);
    open_scan c(file("scan.rxp", bytes));
    file("scan.rxp_001", random_bytes(large, 2));
    c.log(log_, unlimited);
    const std::string first = read(c, 900000);
    fs::resize_file(path("scan.rxp"), 500000);
    const reading r = read_to_the_end(c);
    EXPECT_EQ(r.told, not_written());
    EXPECT_TRUE((first + r.delivered).ends_with(random_bytes(large, 2)));
    EXPECT_TRUE(content(log_) == bytes.substr(0, 500000));
}

TEST_F(FileLog, SourceThatGrowsIsLoggedAsFarAsItIsRead) {
    const std::string bytes = random_bytes(large);
    open_scan c(file("scan.rxp", bytes.substr(0, 300000)));
    c.log(log_, unlimited);
    const std::string first = read(c, 200000);
    std::ofstream(path("scan.rxp"), std::ios::binary | std::ios::app) << bytes.substr(300000);
    const reading r = read_to_the_end(c);
    EXPECT_TRUE(first + r.delivered == bytes);
    EXPECT_TRUE(content(log_) == bytes);
}

TEST_F(FileLog, FileThatIsMadeUpWhileItIsReadIsLoggedAsItWasRead) {
    open_scan c("/proc/uptime");
    c.log(log_, unlimited);
    const std::string text = read(c, 3);
    // Read again, it would not be the same.
    for (const std::string same = content("/proc/uptime"); content("/proc/uptime") == same;) {
    }
    const reading r = read_to_the_end(c);
    EXPECT_EQ(r.told, "");
    EXPECT_GT(r.delivered.size(), 3u);
    EXPECT_EQ(content(log_), text + r.delivered);
}

TEST_F(FileLog, LogOverTheFileThatIsReadHoldsWhatWasRead) {
    open_scan c(file("scan.rxp", random_bytes(600000)));
    const std::string first = read(c, 1);
    c.log(path("scan.rxp"), unlimited);
    const reading r = read_to_the_end(c);
    EXPECT_EQ(r.told, "");
    EXPECT_FALSE(r.delivered.empty());
    EXPECT_TRUE(content(path("scan.rxp")) == r.delivered);
}

TEST_F(FileLog, BytesBeyondFourGiBAreLogged) {
    constexpr std::uint64_t far = (std::uint64_t{5} << 30) + 7;
    const std::string bytes = random_bytes(large);
    const std::string name = file("scan.rxp", "");
    fs::resize_file(name, far);
    std::ofstream(name, std::ios::binary | std::ios::app) << bytes;
    open_scan c(name);
    c.seek(far - 3);
    c.log(log_, unlimited);
    EXPECT_EQ(read_to_the_end(c).told, "");
    EXPECT_TRUE(content(log_) == std::string(3, '\0') + bytes);
}

TEST_F(FileLog, DiskThatFillsUpFailsOnceAndNothingIsLost) {
    const std::string bytes = random_bytes(2 * large);
    open_scan c(file("scan.rxp", bytes));
    reading r;
    {
        const file_size_limit full(5000000);
        c.log(log_, unlimited);
        r = read_to_the_end(c);
    }
    EXPECT_EQ(r.told, not_written());
    EXPECT_TRUE(r.delivered == bytes);
    EXPECT_TRUE(content(log_) == bytes.substr(0, 5000000));
}

TEST_F(FileLog, DestructionClosesIt) {
    const std::string bytes = random_bytes(large);
    {
        open_scan c(file("scan.rxp", bytes));
        c.log(log_, unlimited);
        rest(c, 1000000);
    }
    EXPECT_TRUE(content(log_) == bytes);
}

TEST_F(FileLog, HeaderRegionIsLoggedAsFromAnySource) {
    using namespace rewriting;
    bytes stream = framed({header(), gap(1), shot(5)}, true);
    for (std::uint32_t n = 0; n < 200; ++n) {
        const bytes more = framed({shot(n)});
        stream.insert(stream.end(), more.begin(), more.end());
    }
    const std::string pxp = packets_text(entry(R"("ID":[175,0])", new_gap));
    const auto log_of = [&](scanlib::basic_rconnection& c) {
        c.pxp(pxp);
        c.log(log_, unlimited);
        const std::string delivered = rest(c, 100);
        c.close_log();
        EXPECT_GT(delivered.size(), stream.size());
        return content(log_);
    };
    const auto in_memory = std::make_shared<test_support::memory_rconnection>(stream);
    const auto in_a_file =
        std::make_shared<open_scan>(file("scan.rxp", {stream.begin(), stream.end()}));
    const std::string expected = log_of(*in_memory);
    EXPECT_GT(expected.size(), stream.size());
    EXPECT_EQ(log_of(*in_a_file), expected);
}

using ConcurrentFileLog = FileLog;

TEST_F(ConcurrentFileLog, AnyReadsSeeksFlushesAndPushedBackBytesAreLoggedInTheirOrder) {
    std::mt19937 random(7);
    unsigned seed = 0;
    const auto below = [&](std::uint64_t n) { return random() % n; };
    std::string whole;
    for (const char* name : {"scan.rxp", "scan.rxp_001", "scan.rxp_002"}) {
        whole += content(file(name, random_bytes(1 + below(3000000), ++seed)));
    }
    for (int round = 0; round < 4; ++round) {
        open_scan c(path("scan.rxp"));
        c.log(log_, unlimited);
        std::string delivered;
        for (int step = 0; step < 300 && !c.end_of_input_; ++step) {
            switch (below(30)) {
            case 0:
                c.seek(below(whole.size()));
                break;
            case 1:
                c.flush_log();
                ASSERT_TRUE(content(log_) == delivered);
                break;
            case 2:
                c.push_back("pushed back", 11);
                break;
            default:
                delivered += read(c, 1 + below(below(20) == 0 ? 1000000 : 3000));
            }
        }
        c.close_log();
        ASSERT_TRUE(content(log_) == delivered) << round;
    }
}

} // namespace
