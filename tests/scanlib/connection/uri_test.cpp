#include "uri.hpp"

#include <stdexcept>

#include <gtest/gtest.h>

namespace {

using scanlib::parse_uri;
using scanlib::scheme_of;

TEST(Uri, SchemeStandsBeforeTheFirstColonOnly) {
    EXPECT_EQ(scheme_of("rdtp://host/scan"), "rdtp");
    EXPECT_EQ(scheme_of("file:a:b"), "file");
    EXPECT_EQ(scheme_of("a/b:c"), "");
    EXPECT_EQ(scheme_of("scan.rxp"), "");
    EXPECT_EQ(scheme_of("a?b:c"), "");
}

TEST(Uri, FivePartsEachOfWhichMayBeEmpty) {
    const auto all = parse_uri("rdtp://host:20001/path/x?a=b&c#frag");
    EXPECT_EQ(all.scheme, "rdtp");
    EXPECT_EQ(all.authority, "host:20001");
    EXPECT_EQ(all.path, "/path/x");
    EXPECT_EQ(all.query, "a=b&c");
    EXPECT_EQ(all.fragment, "frag");
    const auto path = parse_uri("file:dir/scan.rxp");
    EXPECT_EQ(path.authority, "");
    EXPECT_EQ(path.path, "dir/scan.rxp");
    const auto bare = parse_uri("#f");
    EXPECT_EQ(bare.scheme + bare.authority + bare.path + bare.query, "");
    EXPECT_EQ(bare.fragment, "f");
    EXPECT_EQ(parse_uri("").path, "");
    EXPECT_EQ(parse_uri("x://h?q#f?g").query, "q");
}

TEST(Uri, PathOfAnotherSchemeIsRefused) {
    EXPECT_EQ(scanlib::path_of_file_uri("file:/a/b"), "/a/b");
    try {
        scanlib::path_of_file_uri("http://x");
        FAIL();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Expected \"file:\" scheme, got \"http:\".");
    }
}

} // namespace
