// Links that break: what is resumed, after which waits, and what is given up.
#include <cerrno>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scripted_stream.hpp"

namespace {

using namespace live_test;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string with_token = chunked_reply + "8 continuation-token=T\nab";

std::string reply_at(const std::string& token, int offset) {
    return "CURRENT encoding=chunked; continuation-token=" + token +
           "; continuation-offset=" + std::to_string(offset) + "\n";
}

scripted_connection refused(int error = ECONNREFUSED) {
    return {"", error, true};
}

std::vector<int> seconds(const link_record& record) {
    std::vector<int> all;
    for (const auto wait : record.waits) {
        all.push_back(static_cast<int>(wait.count()));
    }
    return all;
}

TEST(RdtpResume, GoesOnAtTheVeryByteWithTokenAndOffset) {
    const scripted_stream s(
        {{with_token, ECONNRESET}, {reply_at("T", 2) + "2\ncd" + "4\nefgh" + "EOF\n"}});
    EXPECT_EQ(s.whole(), "abcdefgh");
    EXPECT_EQ(s.record->sent.at(1), "CURRENT continuation-offset=2; continuation-token=T; "
                                    "encoding=chunked; format=rxp\n");
    EXPECT_THAT(seconds(*s.record), ElementsAre(1));
    EXPECT_THAT(s.record->addresses, ElementsAre("host 1", "host 1")) << "it is looked up anew";
}

TEST(RdtpResume, LinkThatBreaksInsideALineIsResumed) {
    const scripted_stream s({{with_token + "cdefgh" + "4 continuation-tok", ECONNRESET},
                             {reply_at("T", 8) + "2 continuation-token=U\nij" + "EOF\n"}});
    EXPECT_EQ(s.whole(), "abcdefghij");
    EXPECT_EQ(s.connection->continuation(), "U:2");
}

TEST(RdtpResume, ReplyMustEchoTokenAndOffset) {
    const scripted_stream s({{with_token, ECONNRESET}, {chunked_reply + "2\ncd"}});
    s.connection->open();
    EXPECT_EQ(s.read(8), "ab");
    EXPECT_EQ(failure<std::runtime_error>([&] { s.read(8); }), "Required continuation missing!");
}

TEST(RdtpResume, ReplyThatBreaksOffIsAskedForAgain) {
    const scripted_stream s(
        {{with_token, ECONNRESET}, {"CURR", ECONNRESET}, {reply_at("T", 2) + "2\ncd" + "EOF\n"}});
    EXPECT_EQ(s.whole(), "abcd");
    EXPECT_THAT(seconds(*s.record), ElementsAre(1, 1));
}

TEST(RdtpResume, WaitsGrowToSixSeconds) {
    for (std::size_t attempts = 1; attempts <= 6; ++attempts) {
        std::vector<scripted_connection> script(attempts, refused());
        script.front() = {with_token, ECONNRESET};
        script.push_back({reply_at("T", 2) + "2\ncd" + "EOF\n"});
        const scripted_stream s(script);
        EXPECT_EQ(s.whole(), "abcd");
        std::vector<int> expected = {1, 2, 3, 4, 5, 6};
        expected.resize(attempts);
        EXPECT_EQ(seconds(*s.record), expected);
    }
}

TEST(RdtpResume, GivesUpAfter52Attempts) {
    const scripted_stream s({{with_token, ECONNRESET}, refused(EHOSTUNREACH)});
    s.connection->open();
    EXPECT_EQ(s.read(8), "ab");
    try {
        s.read(8);
        FAIL();
    } catch (const std::system_error& e) {
        EXPECT_THAT(e.what(), HasSubstr("rdtp_connection retry_open"));
        EXPECT_EQ(e.code().value(), EHOSTUNREACH);
    }
    std::vector<int> expected(52, 6);
    for (int i = 0; i < 5; ++i) {
        expected[static_cast<std::size_t>(i)] = i + 1;
    }
    EXPECT_EQ(seconds(*s.record), expected);
    EXPECT_EQ(s.connection->continuation(), "T:2") << "it can be taken up later";
}

TEST(RdtpResume, EachBrokenLinkHasItsOwnAttempts) {
    std::vector<scripted_connection> script(40, refused());
    script.front() = {with_token, ECONNRESET};
    script.push_back({reply_at("T", 2) + "2\ncd", ECONNRESET});
    script.insert(script.end(), 40, refused());
    script.push_back({reply_at("T", 4) + "2\nef" + "EOF\n"});
    EXPECT_EQ(scripted_stream(script).whole(), "abcdef");
}

TEST(RdtpResume, WithoutATokenTheReadFails) {
    const scripted_stream s({{chunked_reply + "8\nab", ECONNRESET}});
    s.connection->open();
    EXPECT_EQ(s.read(8), "ab");
    try {
        s.read(8);
        FAIL();
    } catch (const std::system_error& e) {
        EXPECT_THAT(e.what(), HasSubstr("rdtp_connection read"));
        EXPECT_EQ(e.code().value(), ECONNRESET);
        EXPECT_EQ(e.code().category(), std::system_category());
    }
    EXPECT_TRUE(s.record->waits.empty());
}

TEST(RdtpResume, FailureOfTheNameServiceIsNotRetried) {
    const scripted_stream reading({{with_token, scripted_link::no_such_host}});
    reading.connection->open();
    reading.read(8);
    EXPECT_THAT(failure<boost::system::system_error>([&] { reading.read(8); }),
                HasSubstr("rdtp_connection read"));
    const scripted_stream retrying(
        {{with_token, ECONNRESET}, refused(scripted_link::no_such_host)});
    retrying.connection->open();
    retrying.read(8);
    EXPECT_THAT(failure<boost::system::system_error>([&] { retrying.read(8); }),
                HasSubstr("rdtp_connection retry_open"));
    EXPECT_EQ(retrying.record->waits.size(), 1u);
}

TEST(RdtpResume, OpenIsNotRetried) {
    const scripted_stream s({refused()}, address, "T:7");
    EXPECT_THAT(failure<std::system_error>([&] { s.connection->open(); }),
                HasSubstr("handle_connect"));
    EXPECT_EQ(s.record->addresses.size(), 1u);
}

TEST(RdtpResume, EveryPlaceToBreakAtGivesTheSameStream) {
    // Two chunks whose tokens differ; the link breaks after each byte of what is sent once there is
    // a token, and the peer goes on from what is asked for.
    const std::string data = "abcdefghijkl";
    const std::string first = chunked_reply + "6 continuation-token=0\n";
    const std::string sent = first + "abcdef" + "6 continuation-token=6\n" + "ghijkl" + "EOF\n";
    for (std::size_t n = first.size(); n < sent.size(); ++n) {
        const std::size_t second = sent.find("=6\n") + 3;
        const bool token_is_six = n >= second;
        const std::size_t delivered = token_is_six ? std::min(n - second, std::size_t{6})
                                                   : std::min(n - first.size(), std::size_t{6});
        const std::size_t place = delivered + (token_is_six ? 6 : 0);
        const std::string reply = reply_at(token_is_six ? "6" : "0", static_cast<int>(delivered));
        const std::string rest = data.substr(place);
        const scripted_stream s({{sent.substr(0, n), ECONNRESET},
                                 {reply + std::to_string(rest.size()) + "\n" + rest + "EOF\n"}});
        EXPECT_EQ(s.whole(), data) << "broken behind byte " << n;
    }
}

} // namespace
