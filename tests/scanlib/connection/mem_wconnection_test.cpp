#include "scanlib/mem_wconnection.hpp"

#include <regex>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(MemoryConnection, TwoWritesLeaveTheirBytesInOrder) {
    std::vector<char> bytes;
    scanlib::mem_wconnection c(bytes);
    EXPECT_EQ(c.write("abc", 3), 3);
    EXPECT_EQ(c.write("defgh", 5), 5);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "abcdefgh");
}

TEST(MemoryConnection, WriteOfNothingLeavesTheVectorUnchanged) {
    std::vector<char> bytes{'x'};
    scanlib::mem_wconnection c(bytes);
    EXPECT_EQ(c.write("abc", 0), 0);
    EXPECT_EQ(c.write("abc", -2), -2);
    EXPECT_EQ(bytes, (std::vector<char>{'x'}));
}

TEST(MemoryConnection, HasTheDefaultName) {
    std::vector<char> bytes;
    const scanlib::mem_wconnection c(bytes);
    EXPECT_TRUE(std::regex_match(c.id(), std::regex("UNNAMED_\\d{6}_\\d{6}"))) << c.id();
}

} // namespace
