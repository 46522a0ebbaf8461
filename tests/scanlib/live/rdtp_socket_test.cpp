// The same over real sockets, with the clock of the retries in the test's hands.
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <boost/system/system_error.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rdtp_link.hpp"
#include "scanlib/rdtp_connection.hpp"
#include "support/scripted_server.hpp"

namespace {

using namespace std::chrono_literals;
using scanlib::rdtp_rconnection;
using test_support::scripted_peer;
using test_support::scripted_server;
using testing::HasSubstr;

const std::string reply = "CURRENT encoding=chunked; id=scan\n";
const std::string resumed_reply =
    "CURRENT encoding=chunked; continuation-token=T; continuation-offset=2\n";

/// Sends a text and waits for the client to go.
scripted_server::session serving(const std::string& text) {
    return [text](scripted_peer& peer) {
        peer.line();
        peer.send(text);
        peer.wait_for_end();
    };
}

/// Sends a text and breaks the link.
scripted_server::session breaking(const std::string& text) {
    return [text](scripted_peer& peer) {
        peer.line();
        peer.send(text);
        peer.reset();
    };
}

std::shared_ptr<rdtp_rconnection> connect(const std::string& uri,
                                          std::chrono::nanoseconds wait = 0ns) {
    return std::make_shared<rdtp_rconnection>(
        uri, "", "", scanlib::make_tcp_link([wait](std::chrono::seconds) { return wait; }));
}

std::string rest(rdtp_rconnection& c) {
    std::string all;
    char block[64];
    while (const auto k = c.read(block, sizeof block)) {
        all.append(block, k);
    }
    return all;
}

template<class Exception, class Action>
std::string failure(Action action) {
    try {
        action();
    } catch (const Exception& e) {
        return e.what();
    }
    return "no failure";
}

TEST(RdtpSocket, LinesAndDataArriveWhole) {
    const scripted_server server({serving(reply + "4 acknowledge-token=A\nabcd2\nefEOF\n")});
    const auto c = connect(server.uri());
    c->open();
    EXPECT_EQ(c->id(), "scan");
    EXPECT_EQ(rest(*c), "abcdef");
}

TEST(RdtpSocket, LinesThatArriveByteByByteAreTheSame) {
    const scripted_server server({[](scripted_peer& peer) {
        peer.line();
        for (const char c : reply + "4\nabcd12\nefghijklmnopEOF\n") {
            peer.send(std::string(1, c));
            std::this_thread::sleep_for(200us);
        }
        peer.wait_for_end();
    }});
    const auto c = connect(server.uri());
    c->open();
    EXPECT_EQ(rest(*c), "abcdefghijklmnop");
}

TEST(RdtpSocket, AcknowledgeReachesTheServerBeforeItSendsMore) {
    std::string acknowledge;
    {
        const scripted_server server({[&](scripted_peer& peer) {
            peer.line();
            peer.send(reply + "2 acknowledge-token=A\nab2\n");
            acknowledge = peer.line();
            peer.send("cdEOF\n");
            peer.wait_for_end();
        }});
        const auto c = connect(server.uri());
        c->open();
        EXPECT_EQ(rest(*c), "abcd");
    }
    EXPECT_EQ(acknowledge, "ACKNOWLEDGE acknowledge-token=A\n");
}

TEST(RdtpSocket, PeerThatClosesEndsTheStream) {
    const scripted_server server({[](scripted_peer& peer) {
        peer.line();
        peer.send(reply + "8\nabcd");
    }});
    const auto c = connect(server.uri());
    c->open();
    EXPECT_EQ(rest(*c), "abcd");
}

TEST(RdtpSocket, BrokenLinkIsResumed) {
    const scripted_server server(
        {breaking(reply + "8 continuation-token=T\nab"), serving(resumed_reply + "4\ncdefEOF\n")});
    const auto c = connect(server.uri());
    c->open();
    EXPECT_EQ(rest(*c), "abcdef");
}

TEST(RdtpSocket, BrokenLinkWithoutTokenFails) {
    const scripted_server server({breaking(reply + "8\nab")});
    const auto c = connect(server.uri());
    c->open();
    EXPECT_THAT(failure<std::system_error>([&] { rest(*c); }),
                HasSubstr("rdtp_connection read: Connection reset by peer"));
}

TEST(RdtpSocket, NobodyThereFailsToConnect) {
    std::string uri;
    { uri = scripted_server({}).uri(); }
    EXPECT_EQ(failure<std::system_error>([&] { connect(uri)->open(); }),
              "handle_connect: Connection refused");
}

TEST(RdtpSocket, UnknownPortNameFailsToResolve) {
    EXPECT_THAT(failure<boost::system::system_error>(
                    [] { connect("rdtp://127.0.0.1:no-such-service/x")->open(); }),
                HasSubstr("handle_resolve"));
}

TEST(RdtpSocket, ReadBeforeOpenFails) {
    EXPECT_THAT(failure<std::system_error>([] {
                    char c = 0;
                    connect("rdtp://127.0.0.1:1/x")->read(&c, 1);
                }),
                HasSubstr("rdtp_connection read"));
}

TEST(ConcurrentRdtp, CancelEndsAReadThatWaits) {
    const scripted_server server({serving(reply + "8\nabcd")});
    const auto c = connect(server.uri());
    c->open();
    char block[8];
    EXPECT_EQ(c->read(block, 8), 4u);
    std::thread other([&] {
        std::this_thread::sleep_for(20ms);
        c->cancel();
        c->cancel();
    });
    EXPECT_EQ(failure<scanlib::cancelled>([&] { c->read(block, 8); }), "Operation canceled");
    other.join();
    EXPECT_EQ(failure<scanlib::cancelled>([&] { c->read(block, 8); }), "Operation canceled");
}

TEST(ConcurrentRdtp, CancelEndsTheWaitBeforeARetry) {
    const scripted_server server({breaking(reply + "8 continuation-token=T\nab")});
    const auto c = connect(server.uri(), 1h);
    c->open();
    char block[8];
    EXPECT_EQ(c->read(block, 8), 2u);
    std::thread other([&] {
        std::this_thread::sleep_for(20ms);
        c->cancel();
    });
    EXPECT_EQ(failure<scanlib::cancelled>([&] { c->read(block, 8); }), "Operation canceled");
    other.join();
}

TEST(ConcurrentRdtp, CancelBeforeOpenEndsIt) {
    const auto c = connect("rdtp://127.0.0.1:1/x");
    std::thread([&] { c->cancel(); }).join();
    // The request takes effect when the context runs.
    EXPECT_EQ(failure<scanlib::cancelled>([&] { c->open(); }), "Operation canceled");
}

TEST(ConcurrentRdtp, TwoCancelsActOnce) {
    const scripted_server server({serving(reply + "8\nabcd")});
    const auto c = connect(server.uri());
    c->open();
    std::thread first([&] { c->cancel(); });
    std::thread second([&] { c->cancel(); });
    first.join();
    second.join();
    char block[8];
    const auto text = [&] {
        return failure<scanlib::cancelled>([&] {
            while (c->read(block, 8) != 0) {
            }
        });
    };
    EXPECT_EQ(text(), "Operation canceled");
    EXPECT_EQ(text(), "Operation canceled");
}

TEST(ConcurrentRdtp, StopEndsALongStreamShortlyBeforeAPacket) {
    const std::string packet = "\x01\xFF\xFF\xFF"
                               "abcdefghijklmnopqrst";
    std::promise<void> under_way;
    const scripted_server server({[&](scripted_peer& peer) {
        peer.line();
        peer.send("CURRENT encoding=plain\n");
        std::string packets;
        for (int i = 0; i < 100; ++i) {
            packets += packet;
        }
        for (int i = 0; i < 20000; ++i) {
            peer.send(packets);
        }
    }});
    const auto c = connect(server.uri());
    c->open();
    std::thread other([&] {
        under_way.get_future().wait();
        c->stop();
    });
    std::vector<char> block(1000);
    std::uint64_t total = c->read(block.data(), block.size());
    under_way.set_value();
    while (const auto k = c->read(block.data(), block.size())) {
        total += k;
    }
    other.join();
    // One word before a packet, or at the block's start where that lies behind it.
    EXPECT_LE((total + 4) % packet.size(), 4u) << total;
    EXPECT_LT(total, 20000u * 100u * packet.size());
}

TEST(ConcurrentRdtp, StopDuringAReadThatWaitsTakesEffectWithTheNextData) {
    std::promise<void> stopped;
    const std::string words = "abcdefgh\x01\xFF\xFF\xFFijkl";
    const scripted_server server({[&](scripted_peer& peer) {
        peer.line();
        peer.send("CURRENT encoding=plain\n");
        stopped.get_future().wait();
        peer.send(words);
        peer.wait_for_end();
    }});
    const auto c = connect(server.uri());
    c->open();
    std::thread other([&] {
        std::this_thread::sleep_for(20ms);
        c->stop();
        stopped.set_value();
    });
    EXPECT_EQ(rest(*c), "abcd");
    other.join();
}

} // namespace
