// Peers that do not keep to the dialogue.
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scripted_stream.hpp"

namespace {

using namespace live_test;
using testing::HasSubstr;
using testing::StartsWith;

std::string failure_of(const std::string& bytes) {
    return failure<std::runtime_error>(
        [&] { scripted_stream({{bytes}}, address, "", 4096).whole(); });
}

TEST(RdtpHostile, LineWithoutEndIsRefused) {
    EXPECT_EQ(failure_of(std::string(1 << 20, 'x')),
              "rdtp_connection: a line is longer than 65536 bytes");
    EXPECT_EQ(failure_of(chunked_reply + std::string(1 << 20, '1')),
              "rdtp_connection: a line is longer than 65536 bytes");
}

TEST(RdtpHostile, NoMoreOfALineWithoutEndIsReadThanItsLimit) {
    const scripted_stream s({{std::string(10 << 20, 'x')}}, address, "", ~std::uint64_t{0});
    failure<std::runtime_error>([&] { s.connection->open(); });
    EXPECT_LE(s.record->reads * s.record->largest_read, 65536u + 256u);
}

TEST(RdtpHostile, LineOfTheGreatestLengthIsTaken) {
    const std::string start = "CURRENT encoding=plain; a=";
    EXPECT_EQ(failure_of(start + std::string(65536 - start.size() - 1, 'x') + "\n"), "no failure");
    EXPECT_NE(failure_of(start + std::string(65536 - start.size(), 'x') + "\n"), "no failure");
}

TEST(RdtpHostile, ChunkLengthBeyond64BitsIsRefused) {
    EXPECT_EQ(failure_of(chunked_reply + "18446744073709551616\nab"),
              "rdtp_connection: chunk length is no 64-bit number: 18446744073709551616");
    EXPECT_EQ(failure_of(chunked_reply + std::string(60000, '9') + "\n"),
              "rdtp_connection: chunk length is no 64-bit number: " + std::string(40, '9'));
}

TEST(RdtpHostile, GreatestChunkLengthIsTaken) {
    const scripted_stream s({{chunked_reply + "18446744073709551615\nab"}});
    EXPECT_EQ(s.whole(), "ab");
}

TEST(RdtpHostile, BinaryJunkIsAnUnexpectedStatus) {
    std::mt19937 random(1);
    for (int i = 0; i < 200; ++i) {
        std::string junk(1 + random() % 300, ' ');
        for (char& c : junk) {
            c = static_cast<char>(random());
        }
        EXPECT_THAT(failure_of(junk), StartsWith("Unexpected server status: "));
        const std::string in_data = failure_of(chunked_reply + "2\nab" + "x" + junk);
        EXPECT_THAT(in_data, StartsWith("Unexpected server status: X"));
    }
}

TEST(RdtpHostile, WrongEchoOfTheContinuationIsRefused) {
    const scripted_stream s(
        {{"CURRENT encoding=chunked; continuation-token=T; continuation-offset=18446744073709551616"
          "\n4\nabcd"}},
        address, "T:18446744073709551615");
    EXPECT_EQ(failure<std::runtime_error>([&] { s.connection->open(); }),
              "Required continuation missing!");
}

TEST(RdtpHostile, ContinuationTextsThatAreNoneAreTakenAsFarAsTheyGo) {
    const auto taken = [](const std::string& text) {
        return scripted_stream({silent}, address, text).connection->continuation();
    };
    EXPECT_EQ(taken("T:"), "T:0");
    EXPECT_EQ(taken("T:x"), "T:0");
    EXPECT_EQ(taken("T:-1"), "T:0");
    EXPECT_EQ(taken("T:12x"), "T:12");
    EXPECT_EQ(taken("T:99999999999999999999"), "T:18446744073709551615");
    EXPECT_EQ(taken("T:1:2"), "T:1");
}

} // namespace
