// Datagrams on loopback.
#include <array>
#include <chrono>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "scanlib/rddp_connection.hpp"
#include "scanlib/rxpmarker.hpp"

namespace {

using namespace std::chrono_literals;
using scanlib::rddp_rconnection;
using testing::HasSubstr;

std::string preamble_bytes() {
    const std::array<std::uint32_t, 4> words = {0x00000010, 0x0B000000, 0x67656952, 0x534D4C6C};
    return {reinterpret_cast<const char*>(words.data()), sizeof words};
}

/// A bound receiver and a socket that sends to it.
class Rddp : public testing::Test {
  protected:
    Rddp() : connection_(std::make_shared<rddp_rconnection>("rddp://127.0.0.1:0", "", "")) {
        connection_->open();
    }
    ~Rddp() override { ::close(socket_); }

    void send(const std::string& datagram) const {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        to.sin_port = htons(connection_->local_port());
        ASSERT_EQ(::sendto(socket_, datagram.data(), datagram.size(), 0,
                           reinterpret_cast<const sockaddr*>(&to), sizeof to),
                  static_cast<ssize_t>(datagram.size()));
    }
    std::string read(std::uint64_t n) const {
        std::string text(n, ' ');
        text.resize(connection_->read(text.data(), n));
        return text;
    }
    void skip_preamble() const { EXPECT_EQ(read(100).size(), 16u); }

    std::shared_ptr<rddp_rconnection> connection_;

  private:
    int socket_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

template<class Exception, class Action>
std::string failure(Action action) {
    try {
        action();
    } catch (const Exception& e) {
        return e.what();
    }
    return "no failure";
}

TEST_F(Rddp, FirstReadIsThePreambleBeforeAnyDatagramHasArrived) {
    EXPECT_EQ(read(5), preamble_bytes().substr(0, 5));
    EXPECT_EQ(read(100), preamble_bytes().substr(5));
}

TEST_F(Rddp, DatagramIsDeliveredInPiecesWithoutFurtherReceives) {
    skip_preamble();
    send("abcdefgh");
    EXPECT_EQ(read(3), "abc");
    EXPECT_EQ(read(3), "def");
    EXPECT_EQ(read(3), "gh") << "a read never waits for the next one while bytes are left";
}

TEST_F(Rddp, DatagramsAreDeliveredInTheOrderOfTheirArrival) {
    skip_preamble();
    for (const char* const datagram : {"one", "two", "three"}) {
        send(datagram);
    }
    EXPECT_EQ(read(100), "one");
    EXPECT_EQ(read(100), "two");
    EXPECT_EQ(read(100), "three");
    EXPECT_EQ(connection_->position(), 2 * (16u + 11u)) << "it runs at twice the bytes";
    EXPECT_EQ(connection_->gcount(), 5u);
}

TEST_F(Rddp, LargestDatagramArrivesWhole) {
    skip_preamble();
    const std::string large(65507, 'x');
    send(large);
    EXPECT_EQ(read(100000), large);
}

TEST_F(Rddp, EmptyDatagramEndsTheStream) {
    skip_preamble();
    send("abcd");
    send("");
    send("efgh");
    EXPECT_EQ(read(100), "abcd");
    EXPECT_EQ(read(100), "");
    EXPECT_EQ(read(100), "");
    EXPECT_THAT(failure<std::runtime_error>([&] {
                    char c = 0;
                    connection_->read_all(&c, 1);
                }),
                HasSubstr("beyond end of input"));
}

TEST_F(Rddp, ReadOfNoBytesDoesNotEndIt) {
    EXPECT_EQ(read(0), "");
    skip_preamble();
}

TEST_F(Rddp, FramingFindsThePacketsOfAStreamThatItJoins) {
    send("\x01\xFF\xFF\xFF"
         "abcdefgh"
         "\x02\xFF\xFF\xFF");
    send("ijkl\x03\xFF\xFF\xFF");
    send("");
    scanlib::decoder_rxpmarker decoder(connection_, scanlib::decoder_capacity,
                                       scanlib::decoder_headroom, true);
    scanlib::basic_buffer packet;
    std::vector<std::size_t> sizes;
    for (decoder.get(packet); !decoder.packet_truncated(); decoder.get(packet)) {
        sizes.push_back(packet.size());
    }
    EXPECT_THAT(sizes, testing::ElementsAre(3, 2));
}

/// A packet of a number that no other has; no word of it looks like a start but the first.
std::string packet_of(std::uint32_t number, std::size_t words) {
    std::vector<std::uint32_t> all(words, number);
    all.front() = 0xFFFFFF01u;
    return {reinterpret_cast<const char*>(all.data()), words * 4};
}

TEST_F(Rddp, FramingFindsEveryPacketBehindLossAndReorderingThatLeftItWhole) {
    std::mt19937 random(1);
    std::string stream;
    std::vector<std::size_t> begins; // of each packet, and the end
    for (std::uint32_t number = 0; number < 2000; ++number) {
        begins.push_back(stream.size());
        stream += packet_of(number, 2 + random() % 9);
    }
    begins.push_back(stream.size());
    // Datagrams know nothing of packets; of each ten one is lost, and one comes before its elder.
    std::vector<std::pair<std::size_t, std::size_t>> datagrams;
    for (std::size_t at = 0; at < stream.size();) {
        const std::size_t n = std::min<std::size_t>(4 * (1 + random() % 60), stream.size() - at);
        if (at == 0 || random() % 10 != 0) {
            datagrams.emplace_back(at, at + n);
        }
        at += n;
    }
    for (std::size_t i = 2; i + 1 < datagrams.size(); i += 10) {
        std::swap(datagrams[i], datagrams[i + 1]);
    }
    std::set<std::uint32_t> whole;
    for (std::size_t i = 0; i < datagrams.size();) {
        std::size_t j = i;
        while (j + 1 < datagrams.size() && datagrams[j + 1].first == datagrams[j].second) {
            ++j;
        }
        // A packet with the next one's start in the same unbroken stretch must arrive.
        for (std::uint32_t p = 0; p + 2 < begins.size(); ++p) {
            if (begins[p] >= datagrams[i].first && begins[p + 1] + 4 <= datagrams[j].second) {
                whole.insert(p);
            }
        }
        i = j + 1;
    }
    for (const auto& [begin, end] : datagrams) {
        send(stream.substr(begin, end - begin));
    }
    send("");
    scanlib::decoder_rxpmarker decoder(connection_, scanlib::decoder_capacity,
                                       scanlib::decoder_headroom, true);
    scanlib::basic_buffer packet;
    for (decoder.get(packet); !decoder.packet_truncated(); decoder.get(packet)) {
        const std::uint32_t number = packet.size() > 1 ? packet.begin()[1] : 0;
        const std::string words(reinterpret_cast<const char*>(packet.begin()), packet.size() * 4);
        if (words == stream.substr(begins[number], begins[number + 1] - begins[number])) {
            whole.erase(number);
        }
    }
    EXPECT_THAT(whole, testing::IsEmpty());
}

TEST_F(Rddp, StopWithoutAnythingToWaitForEndsBehindTheDatagramAtHand) {
    skip_preamble();
    send("abcdefgh");
    EXPECT_EQ(read(4), "abcd");
    connection_->stop();
    EXPECT_EQ(read(100), "efgh");
    // The request takes effect when the context runs, which is with the next receive.
    send("ijkl");
    EXPECT_EQ(read(100), "ijkl");
    EXPECT_EQ(read(100), "");
}

TEST(RddpUri, ReadBeforeOpenAndBehindCloseFails) {
    rddp_rconnection c("rddp://127.0.0.1:0", "", "");
    std::array<char, 100> block;
    const auto read = [&] { c.read(block.data(), block.size()); };
    EXPECT_EQ(failure<std::system_error>(read), "handle_receive_from: Bad file descriptor");
    c.open();
    c.close();
    read(); // the preamble
    EXPECT_EQ(c.gcount(), 16u);
    EXPECT_EQ(failure<std::system_error>(read), "handle_receive_from: Bad file descriptor");
}

TEST(RddpUri, PortInUseFailsToBind) {
    rddp_rconnection first("rddp://127.0.0.1:0", "", "");
    first.open();
    rddp_rconnection second("rddp://127.0.0.1:" + std::to_string(first.local_port()), "", "");
    EXPECT_EQ(failure<std::system_error>([&] { second.open(); }), "bind: Address already in use");
}

TEST(RddpUri, WithoutAuthorityListensAtPort20001OfAnyAddress) {
    rddp_rconnection c("rddp:", "", "");
    // Another program may have the port; then binding fails, and it was that port.
    const std::string text = failure<std::system_error>([&] { c.open(); });
    if (text == "no failure") {
        EXPECT_EQ(c.local_port(), 20001);
    } else {
        EXPECT_EQ(text, "bind: Address already in use");
    }
}

TEST(RddpUri, AuthorityWithoutColonIsThePort) {
    rddp_rconnection c("rddp://0", "", "");
    c.open();
    EXPECT_GT(c.local_port(), 0);
    EXPECT_EQ(c.local_address(), "0.0.0.0");
}

TEST(RddpUri, EmptyHostOrPortIsRefused) {
    for (const char* const uri : {"rddp://:1", "rddp://127.0.0.1:", "rddp://:"}) {
        EXPECT_EQ(failure<std::runtime_error>([&] { rddp_rconnection(uri, "", ""); }),
                  "Invalid address/service syntax.")
            << uri;
    }
}

TEST(RddpUri, UnknownPortNameFailsToResolve) {
    rddp_rconnection c("rddp://no-such-service", "", "");
    EXPECT_THAT(failure<std::runtime_error>([&] { c.open(); }), HasSubstr("handle_resolve"));
}

TEST(RddpUri, ContinuationIsNotUsed) {
    EXPECT_EQ(rddp_rconnection("rddp://0", "T:5", "").continuation(), "");
}

class ConcurrentRddp : public Rddp {};

TEST_F(ConcurrentRddp, StopDuringAReceiveTakesEffectBehindTheNextDatagram) {
    skip_preamble();
    std::thread other([&] {
        std::this_thread::sleep_for(20ms);
        connection_->stop();
        send("abcd");
    });
    EXPECT_EQ(read(100), "abcd");
    EXPECT_EQ(read(100), "");
    other.join();
}

TEST_F(ConcurrentRddp, CancelEndsAReceive) {
    skip_preamble();
    std::thread other([&] {
        std::this_thread::sleep_for(20ms);
        connection_->cancel();
        connection_->cancel();
    });
    EXPECT_EQ(failure<scanlib::cancelled>([&] { read(100); }), "Operation canceled");
    other.join();
    EXPECT_EQ(failure<scanlib::cancelled>([&] { read(100); }), "Operation canceled");
}

TEST(RddpFailures, NoSocketLeftIsToldOnOpening) {
    rddp_rconnection connection("rddp://127.0.0.1:0", "", "");
    // The type check of an instrumented build takes descriptors for each class that it has not seen
    // yet: let it see those of a failure.
    rddp_rconnection elsewhere("rddp://192.0.2.1:0", "", "");
    EXPECT_EQ(failure<std::system_error>([&] { elsewhere.open(); }),
              "bind: Cannot assign requested address");
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const std::string text = failure<std::system_error>([&] { connection.open(); });
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(text, "open: Too many open files");
}

} // namespace
