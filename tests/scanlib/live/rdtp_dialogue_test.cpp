// The dialogue with a peer that keeps to it: requests, replies, chunks, tokens.
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scripted_stream.hpp"

namespace {

using namespace live_test;
using testing::ElementsAre;

std::string request_of(const std::string& uri, const std::string& continuation = "") {
    const std::string reply =
        continuation.empty()
            ? plain_reply
            : "CURRENT encoding=plain; continuation-token=T; continuation-offset=7\n";
    const scripted_stream s({{reply}}, uri, continuation);
    s.connection->open();
    return s.record->addresses.at(0) + " | " + s.record->sent.at(0);
}

TEST(RdtpRequest, UriWithoutAuthorityUsesLoopbackAndPort20001) {
    EXPECT_EQ(request_of("rdtp:/current"),
              "127.0.0.1 20001 | CURRENT encoding=chunked; format=rxp\n");
}

TEST(RdtpRequest, AuthorityGivesTheHostAndBehindAColonThePort) {
    EXPECT_EQ(request_of("rdtp://server/file"),
              "server 20001 | FILE encoding=chunked; format=rxp\n");
    EXPECT_EQ(request_of("rdtp://server:77/file"),
              "server 77 | FILE encoding=chunked; format=rxp\n");
}

TEST(RdtpRequest, QueryGoesOverThePathAndItsKeysGoBeforeTheDefaults) {
    EXPECT_EQ(request_of("rdtp://h:1/current?a=1;encoding=plain;b"),
              "h 1 | CURRENT a=1; b; encoding=plain; format=rxp\n");
}

TEST(RdtpRequest, OneSlashOfThePathIsLeftOut) {
    EXPECT_EQ(request_of("rdtp://h:1//current"), "h 1 | /CURRENT encoding=chunked; format=rxp\n");
}

TEST(RdtpRequest, FragmentIsNotUsed) {
    EXPECT_EQ(request_of("rdtp://h:1/current?a=1#b=2"),
              "h 1 | CURRENT a=1; encoding=chunked; format=rxp\n");
}

TEST(RdtpRequest, ContinuationIsSentAsTokenAndOffset) {
    EXPECT_EQ(request_of("rdtp://h:1/current", "T:7"),
              "h 1 | CURRENT continuation-offset=7; continuation-token=T; encoding=chunked; "
              "format=rxp\n");
}

TEST(RdtpRequest, EmptyHostOrPortIsRefused) {
    for (const char* const uri : {"rdtp://:1/x", "rdtp://host:/x", "rdtp://:/x"}) {
        EXPECT_EQ(failure<std::runtime_error>([&] { scripted_stream({silent}, uri); }),
                  "Invalid address/service syntax.")
            << uri;
    }
}

TEST(RdtpReply, EveryGoodStatusIsTakenInAnyCase) {
    for (const char* const status : {"FILE", "CURRENT", "ACTUAL", "actual"}) {
        const scripted_stream s({{std::string(status) + " encoding=plain\nabcd"}});
        EXPECT_EQ(s.whole(), "abcd") << status;
    }
}

TEST(RdtpReply, NamesTheStream) {
    const scripted_stream named({{plain_reply}});
    EXPECT_EQ(named.connection->id().substr(0, 7), "UNNAMED");
    named.connection->open();
    EXPECT_EQ(named.connection->id(), "scan");
    const scripted_stream unnamed({{"CURRENT encoding=plain\n"}});
    unnamed.connection->open();
    EXPECT_EQ(unnamed.connection->id(), "");
}

TEST(RdtpReply, PlainEncodingHasNoChunkLinesAndEndsWhenThePeerCloses) {
    const scripted_stream s({{plain_reply + "4\nabcEOF\n"}});
    EXPECT_EQ(s.whole(), "4\nabcEOF\n");
    EXPECT_FALSE(s.connection->end_announced());
}

TEST(RdtpReply, WithoutEncodingOrWithAnUnknownOneFails) {
    for (const char* const reply : {"CURRENT id=x\n", "CURRENT encoding=zip\n",
                                    "CURRENT encoding=Chunked\n", "CURRENT encoding\n"}) {
        EXPECT_EQ(failure<std::runtime_error>([&] { scripted_stream({{reply}}).whole(); }),
                  "Unknown encoding!")
            << reply;
    }
}

TEST(RdtpReply, ErrorFailsWithItsTextEvenWhereItIsEmpty) {
    const auto text = [](const std::string& reply) {
        return failure<std::runtime_error>([&] { scripted_stream({{reply}}).whole(); });
    };
    EXPECT_EQ(text("ERROR error-text=No scan here.\n"), "No scan here.");
    EXPECT_EQ(text("error ERROR-TEXT = x \n"), "x");
    EXPECT_EQ(text("ERROR\n"), "");
}

TEST(RdtpReply, OtherStatusIsUnexpected) {
    const auto text = [](const std::string& reply) {
        return failure<std::runtime_error>([&] { scripted_stream({{reply}}).whole(); });
    };
    EXPECT_EQ(text("HTTP/1.1 200 OK\n"), "Unexpected server status: HTTP/1.1");
    EXPECT_EQ(text("\n"), "Unexpected server status: ");
    EXPECT_EQ(text(""), "Unexpected server status: ") << "a peer that closes without a reply";
}

TEST(RdtpChunks, AreJoined) {
    const scripted_stream s({{chunked_reply + "4\nabcd" + "2\nef" + "EOF\n"}});
    EXPECT_EQ(s.whole(), "abcdef");
    EXPECT_TRUE(s.connection->end_announced());
}

TEST(RdtpChunks, AReadEndsWithItsChunk) {
    const scripted_stream s({{chunked_reply + "4\nabcd" + "2\nef" + "EOF\n"}});
    s.connection->open();
    EXPECT_EQ(s.read(3), "abc");
    EXPECT_EQ(s.read(30), "d");
    EXPECT_EQ(s.read(30), "ef");
    EXPECT_EQ(s.read(30), "");
}

TEST(RdtpChunks, LengthZeroGoesOnWithTheNextLine) {
    const scripted_stream s({{chunked_reply + "0\n0 pong\n4\nabcd" + "0 pong=1\n" + "EOF\n"}});
    EXPECT_EQ(s.whole(), "abcd");
}

TEST(RdtpChunks, AcknowledgeIsSentWithTheNextChunkLine) {
    const scripted_stream s(
        {{chunked_reply + "2 acknowledge-token=A\nab" + "2 acknowledge-token=B\ncd" + "0\nEOF\n"}});
    s.connection->open();
    EXPECT_EQ(s.read(8), "ab");
    EXPECT_EQ(s.record->sent.size(), 1u) << "the request alone";
    EXPECT_EQ(s.rest(), "cd");
    EXPECT_THAT(s.record->sent, ElementsAre(testing::_, "ACKNOWLEDGE acknowledge-token=A\n",
                                            "ACKNOWLEDGE acknowledge-token=B\n"));
}

TEST(RdtpChunks, AcknowledgeOfTheLastChunkBeforeTheEndIsNeverSent) {
    const scripted_stream s({{chunked_reply + "2 acknowledge-token=A\nab" + "EOF\n"}});
    EXPECT_EQ(s.whole(), "ab");
    EXPECT_EQ(s.record->sent.size(), 1u);
}

TEST(RdtpChunks, ErrorLineFailsWithItsText) {
    const scripted_stream s({{chunked_reply + "2\nab" + "ERROR error-text=Laser off.\n"}});
    s.connection->open();
    EXPECT_EQ(s.read(8), "ab");
    EXPECT_EQ(failure<std::runtime_error>([&] { s.read(8); }), "Laser off.");
}

TEST(RdtpChunks, OtherLineIsUnexpected) {
    for (const char* const token : {"HELLO", "-1", "+1", "1A", "0X10", "1.5"}) {
        const scripted_stream s({{chunked_reply + token + " a=1\n"}});
        EXPECT_EQ(failure<std::runtime_error>([&] { s.whole(); }),
                  std::string("Unexpected server status: ") + token);
    }
}

TEST(RdtpChunks, PeerThatClosesWithoutEndEndsTheStreamThere) {
    for (const char* const data : {"2\nab", "8\nab", "2\nab8"}) {
        const scripted_stream s({{chunked_reply + data}});
        EXPECT_EQ(s.whole(), "ab") << data;
        EXPECT_FALSE(s.connection->end_announced());
        EXPECT_EQ(s.record->addresses.size(), 1u) << "nothing is resumed";
    }
}

TEST(RdtpContinuation, BeforeAnyTokenIsTheOffsetGivenAtConstruction) {
    EXPECT_EQ(scripted_stream({silent}).connection->continuation(), ":0");
    EXPECT_EQ(scripted_stream({silent}, address, ":5").connection->continuation(), ":5");
    EXPECT_EQ(scripted_stream({silent}, address, "T:5").connection->continuation(), "T:5");
    EXPECT_EQ(scripted_stream({silent}, address, "no colon").connection->continuation(), ":0");
}

TEST(RdtpContinuation, TokenSetsTheOffsetToZeroBeforeItsDataCount) {
    const scripted_stream s({{chunked_reply + "4 continuation-token=T\nabcd" +
                              "2 continuation-token=U\nef" + "2\ngh" + "EOF\n"}});
    s.connection->open();
    EXPECT_EQ(s.connection->continuation(), ":0");
    s.read(3);
    EXPECT_EQ(s.connection->continuation(), "T:3");
    s.read(3);
    EXPECT_EQ(s.connection->continuation(), "T:4");
    s.read(3);
    EXPECT_EQ(s.connection->continuation(), "U:2");
    s.rest();
    EXPECT_EQ(s.connection->continuation(), "U:4");
}

TEST(RdtpContinuation, ReplyMustEchoTokenAndOffset) {
    const std::string start = "CURRENT encoding=plain";
    const auto text = [&](const std::string& echo) {
        const scripted_stream s({{start + echo + "\nabcd"}}, address, "T:7");
        return failure<std::runtime_error>([&] { s.whole(); });
    };
    EXPECT_EQ(text("; continuation-token=T; continuation-offset=7"), "no failure");
    for (const char* const echo : {"", "; continuation-token=T", "; continuation-offset=7",
                                   "; continuation-token=t; continuation-offset=7",
                                   "; continuation-token=T; continuation-offset=8",
                                   "; continuation-token=T; continuation-offset=07"}) {
        EXPECT_EQ(text(echo), "Required continuation missing!") << echo;
    }
}

TEST(RdtpStream, PositionRunsAtTwiceTheBytes) {
    const scripted_stream s({{plain_reply + "abcdef"}});
    s.whole();
    EXPECT_EQ(s.connection->position(), 12u);
}

TEST(RdtpStream, CannotSeek) {
    const scripted_stream s({{plain_reply}});
    EXPECT_EQ(failure<std::runtime_error>([&] { s.connection->seek(0); }),
              "basic_rconnection: stream is not seekable!");
}

TEST(RdtpStream, DataAreReadStraightIntoTheCallersBuffer) {
    const std::string data(1 << 20, 'x');
    const scripted_stream s({{plain_reply + data}}, address, "", ~std::uint64_t{0});
    s.connection->open();
    EXPECT_EQ(s.read(data.size()).size(), data.size());
    EXPECT_EQ(s.record->largest_read, data.size());
}

TEST(RdtpStream, ReadOfNoBytesDoesNotEndIt) {
    const scripted_stream s({{plain_reply + "abcd"}});
    s.connection->open();
    EXPECT_EQ(s.read(0), "");
    EXPECT_EQ(s.rest(), "abcd");
}

} // namespace
