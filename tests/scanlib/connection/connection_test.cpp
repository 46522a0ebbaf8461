#include "scanlib/connection.hpp"

#include <functional>
#include <memory>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "support/memory_connections.hpp"

namespace {

using scanlib::basic_rconnection;

std::string failure(const std::function<void()>& f) {
    try {
        f();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "no failure";
}

/// Lets a test push bytes back.
class pushing : public test_support::memory_rconnection {
  public:
    using basic_rconnection::push_back;
    using memory_rconnection::memory_rconnection;
};

TEST(Connection, DefaultIdIsTheTimeInUtc) {
    const test_support::memory_rconnection c({});
    EXPECT_TRUE(std::regex_match(c.id(), std::regex("UNNAMED_\\d{6}_\\d{6}"))) << c.id();
}

TEST(Connection, ReadWriteConnectionsExistForNoScheme) {
    EXPECT_EQ(failure([] { scanlib::basic_connection::create("file:x"); }),
              "Cannot create read-write connection from uri: file:x");
}

TEST(Connection, BaseCannotSeek) {
    class plain : public basic_rconnection {
      public:
        plain() : basic_rconnection("") {}

      protected:
        std::uint64_t more_input(char*, std::uint64_t) override { return 0; }
    } c;
    EXPECT_EQ(failure([&] { c.seek(0); }), "basic_rconnection: stream is not seekable!");
    EXPECT_EQ(c.continuation(), "");
}

TEST(Connection, PushedBackBytesComeFirstAndAreCountedByThePosition) {
    pushing c({'c', 'd', 'e'});
    c.push_back("ab", 2);
    char text[8] = {};
    EXPECT_EQ(c.read(text, 8), 2u) << "a read delivers from one source only";
    EXPECT_EQ(c.read(text + 2, 6), 3u);
    EXPECT_STREQ(text, "abcde");
    EXPECT_EQ(c.position(), 5u);
    c.push_back("xyz", 3);
    EXPECT_EQ(c.read(text, 2), 2u);
    EXPECT_EQ(c.read(text + 2, 2), 1u);
    EXPECT_EQ(std::string(text, 3), "xyz");
}

TEST(Connection, ReadAllGathersAcrossShortReadsAndStopsAtTheEnd) {
    test_support::memory_rconnection c({'a', 'b', 'c', 'd', 'e'}, 2);
    char text[8] = {};
    EXPECT_EQ(&c.read_all(text, 3), &c);
    EXPECT_EQ(c.gcount(), 3u);
    c.read_all(text, 8);
    EXPECT_EQ(c.gcount(), 2u);
}

TEST(Connection, ReadAllAfterTheEndThrowsAndReadReturnsZero) {
    test_support::memory_rconnection c({'a'});
    char text[4];
    while (c.read(text, 4) != 0) {
    }
    const auto reads = c.reads();
    EXPECT_EQ(c.read(text, 4), 0u);
    EXPECT_EQ(c.reads(), reads) << "nothing is fetched after the end";
    EXPECT_EQ(failure([&] { c.read_all(text, 1); }),
              "basic_rconnection: attempt to read beyond end of input!");
}

TEST(Connection, ExceptionTextJoinsItsPartsWithColons) {
    const scanlib::scanlib_exception bare("message", "", 7);
    EXPECT_STREQ(bare.what(), "message");
    const scanlib::scanlib_exception full("Bad preamble.", "scanlib/src/rxpmarker", 12);
    EXPECT_TRUE(std::regex_match(
        full.what(),
        std::regex("ostrel-[^ ]+\\.[^ ]+ : .+ : scanlib/src/rxpmarker : 12 : Bad preamble\\.")))
        << full.what();
    EXPECT_STREQ(scanlib::cancelled().what(), "Operation canceled");
}

} // namespace
