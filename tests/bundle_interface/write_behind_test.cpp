#include "write_behind.hpp"

#include "bundle_interface/holdfast/chunk.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using Skein::WriteBehind;

/// A file without a name that goes when the test ends.
class Scratch {
  public:
    Scratch() {
        char name[] = "/tmp/write_behind_XXXXXX";
        descriptor_ = ::mkstemp(name);
        ::unlink(name);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch() { ::close(descriptor_); }

    int descriptor() const { return descriptor_; }
    std::vector<std::byte> content() const {
        std::vector<std::byte> bytes(static_cast<std::size_t>(::lseek(descriptor_, 0, SEEK_END)));
        EXPECT_EQ(::pread(descriptor_, bytes.data(), bytes.size(), 0),
                  static_cast<ssize_t>(bytes.size()));
        return bytes;
    }

  private:
    int descriptor_ = -1;
};

std::vector<std::byte> noise(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::uint32_t> words(count / 4 + 1);
    std::generate(words.begin(), words.end(), random);
    std::vector<std::byte> bytes(count);
    std::memcpy(bytes.data(), words.data(), count);
    return bytes;
}

TEST(ConcurrentWriteBehind, BytesArriveWholeAndLaterOnesWin) {
    Scratch file;
    const auto large = noise(5'000'001, 1);
    const auto small = noise(77, 2);
    auto expected = large;
    std::copy(small.begin(), small.end(), expected.begin() + 1'048'570);
    {
        WriteBehind behind(file.descriptor());
        ASSERT_TRUE(behind.write(0, large.data(), large.size()));
        ASSERT_TRUE(behind.write(1'048'570, small.data(), small.size()));
        ASSERT_TRUE(behind.drain());
        EXPECT_EQ(file.content(), expected);
    }
    EXPECT_EQ(file.content(), expected);
}

TEST(ConcurrentWriteBehind, TheCallersBufferMayChangeAtOnce) {
    Scratch file;
    WriteBehind behind(file.descriptor());
    std::vector<std::byte> expected;
    for (unsigned i = 0; i < 200; ++i) {
        auto bytes = noise(300'000, i);
        ASSERT_TRUE(behind.write(expected.size(), bytes.data(), bytes.size()));
        expected.insert(expected.end(), bytes.begin(), bytes.end());
        std::fill(bytes.begin(), bytes.end(), std::byte{0});
    }
    ASSERT_TRUE(behind.drain());
    EXPECT_EQ(file.content(), expected);
}

TEST(ConcurrentWriteBehind, MoreThanMayWaitPassesThrough) {
    Scratch file;
    WriteBehind behind(file.descriptor());
    const auto bytes = noise(WriteBehind::most_waiting / 4, 3);
    for (unsigned i = 0; i < 12; ++i) {
        ASSERT_TRUE(behind.write(i * bytes.size(), bytes.data(), bytes.size()));
    }
    ASSERT_TRUE(behind.drain());
    EXPECT_EQ(file.content().size(), 12 * bytes.size());
}

TEST(ConcurrentWriteBehind, MarksTellWhatIsDone) {
    Scratch file;
    WriteBehind behind(file.descriptor());
    EXPECT_EQ(behind.reached(99), 99u);
    const auto bytes = noise(3'000'000, 4);
    for (std::uint64_t i = 1; i <= 5; ++i) {
        ASSERT_TRUE(behind.resize(i * 100));
        ASSERT_TRUE(behind.mark(i));
    }
    ASSERT_TRUE(behind.drain());
    EXPECT_EQ(behind.reached(99), 5u);
    EXPECT_EQ(file.content().size(), 500u);
}

TEST(ConcurrentWriteBehind, LentBytesAreGivenBackFromTheirStartAsTheyAreWritten) {
    Scratch file;
    WriteBehind behind(file.descriptor());
    std::vector<std::byte> expected;
    auto lent = noise(7'000'001, 8);
    for (unsigned round = 0; round < 4; ++round) {
        expected.insert(expected.end(), lent.begin(), lent.end());
        const auto loan = std::make_shared<Holdfast::Loan>(lent.size(), round % 2 == 0);
        ASSERT_TRUE(behind.lend(expected.size() - lent.size(), lent.data(), loan));
        // The owner goes on in the same memory behind the writer.
        const auto next = noise(lent.size(), 9 + round);
        for (std::size_t i = 0; i < lent.size(); i += 10'000) {
            const std::size_t end = std::min(i + 10'000, lent.size());
            ASSERT_GE(loan->await(end), end);
            std::copy(next.begin() + static_cast<std::ptrdiff_t>(i),
                      next.begin() + static_cast<std::ptrdiff_t>(end),
                      lent.begin() + static_cast<std::ptrdiff_t>(i));
        }
        EXPECT_TRUE(loan->ended());
    }
    ASSERT_TRUE(behind.drain());
    EXPECT_TRUE(file.content() == expected);
}

TEST(ConcurrentWriteBehind, UrgentLoansPassOtherBytesButNoMark) {
    // All go to the same place, so that the last one carried out shows.
    const std::vector<std::byte> busy(std::size_t{200} << 20);
    const auto early = noise(1000, 2);
    const auto plain = noise(1000, 3);
    const auto urgent = noise(1000, 4);
    const auto loan_of = [](const auto& bytes, bool hurry) {
        return std::make_shared<Holdfast::Loan>(bytes.size(), hurry);
    };
    Scratch file;
    WriteBehind behind(file.descriptor());
    // Meanwhile the others queue up.
    ASSERT_TRUE(behind.lend(5000, busy.data(), loan_of(busy, true)));
    ASSERT_TRUE(behind.write(0, early.data(), early.size()));
    ASSERT_TRUE(behind.mark(1));
    ASSERT_TRUE(behind.lend(0, plain.data(), loan_of(plain, false)));
    ASSERT_TRUE(behind.lend(0, urgent.data(), loan_of(urgent, true)));
    ASSERT_TRUE(behind.drain());
    const auto content = file.content();
    EXPECT_TRUE(std::equal(plain.begin(), plain.end(), content.begin()));
}

TEST(ConcurrentWriteBehind, LentBytesAreGivenBackBehindAFailureToo) {
    WriteBehind behind(-1);
    constexpr std::size_t size = 3'000'000;
    std::vector<Holdfast::Buffer> owners;
    for (int i = 0; i < 5; ++i) {
        owners.emplace_back(size);
        behind.lend(0, owners.back().data(), owners.back().lend(size, i == 2));
    }
    for (Holdfast::Buffer& owner : owners) {
        EXPECT_EQ(owner.await(size), size);
        EXPECT_FALSE(owner.lent());
    }
    EXPECT_FALSE(behind.drain());
    EXPECT_EQ(behind.error(), "write: Bad file descriptor");
}

TEST(ConcurrentWriteBehind, NothingHappensBehindAFailure) {
    Scratch file;
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    rlimit tight = limit;
    tight.rlim_cur = 1'000'000;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
    {
        WriteBehind behind(file.descriptor());
        const auto bytes = noise(600'000, 5);
        EXPECT_TRUE(behind.write(0, bytes.data(), bytes.size()));
        EXPECT_TRUE(behind.mark(1));
        ASSERT_TRUE(behind.drain());
        behind.write(600'000, bytes.data(), bytes.size());
        behind.mark(2);
        EXPECT_FALSE(behind.drain());
        EXPECT_EQ(behind.reached(0), 1u);
        EXPECT_EQ(behind.error(), "write: File too large");
        EXPECT_FALSE(behind.write(0, noise(10, 6).data(), 10));
        EXPECT_FALSE(behind.resize(0));
        EXPECT_FALSE(behind.mark(3));
        EXPECT_EQ(behind.reached(0), 1u);
        EXPECT_EQ(file.content().size(), 1'000'000u);
    }
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    std::signal(SIGXFSZ, before);
}

TEST(ConcurrentWriteBehind, AClosedDescriptorIsAnErrorAndNotACrash) {
    WriteBehind behind(-1);
    const auto bytes = noise(10, 7);
    behind.write(0, bytes.data(), bytes.size());
    EXPECT_FALSE(behind.drain());
    EXPECT_EQ(behind.error(), "write: Bad file descriptor");
}

} // namespace
