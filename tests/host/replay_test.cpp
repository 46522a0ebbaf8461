#include "replay_server.hpp"

#include "replay_sender.hpp"
#include "socket_address.hpp"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "scanlib/connection.hpp"
#include "scanlib/rddp_connection.hpp"

namespace {

using namespace std::chrono_literals;
using host::replay_pace;
using host::replay_recording;
using host::replay_server;
using testing::HasSubstr;

/// A recording of made-up bytes and a server for it.
class Replay : public testing::Test {
  protected:
    Replay() {
        std::filesystem::create_directories(folder_);
        for (std::size_t i = 0; i < bytes_.size(); ++i) {
            bytes_[i] = static_cast<char>(i * 7 / 3);
        }
        std::ofstream(path(), std::ios::binary) << bytes_;
        recording_ = std::make_shared<const replay_recording>(path());
    }
    ~Replay() override { std::filesystem::remove_all(folder_); }

    std::string path() const { return (folder_ / "scan one.rxp").string(); }
    std::unique_ptr<replay_server> serve(host::replay_settings settings) const {
        return std::make_unique<replay_server>(recording_, "127.0.0.1", "0", std::move(settings));
    }
    static std::shared_ptr<scanlib::basic_rconnection>
    connect(const replay_server& server, const std::string& continuation = "") {
        std::shared_ptr<scanlib::basic_rconnection> c(scanlib::basic_rconnection::create(
            "rdtp://127.0.0.1:" + std::to_string(server.port()) + "/current", continuation, ""));
        c->open();
        return c;
    }
    static std::string rest(scanlib::basic_rconnection& c) {
        std::string all;
        std::vector<char> block(10000);
        while (const auto k = c.read(block.data(), block.size())) {
            all.append(block.data(), k);
        }
        return all;
    }

    std::string bytes_ = std::string(300'000, ' ');
    std::shared_ptr<const replay_recording> recording_;

  private:
    std::filesystem::path folder_ =
        std::filesystem::path(TEST_BINARY_DIR) / ("replay_test_" + std::to_string(::getpid()));
};

class ConcurrentReplay : public Replay {};

TEST_F(Replay, NamesTheStreamAfterTheRecording) {
    const auto server = serve({});
    EXPECT_EQ(connect(*server)->id(), "scan one");
}

TEST_F(Replay, AnyContinuationOfAClientIsTheRest) {
    const auto server = serve({777, {}});
    const auto first = connect(*server);
    std::vector<char> block(5000);
    std::uint64_t at = 0;
    for (int i = 0; i < 20; ++i) {
        at += first->read(block.data(), block.size());
        EXPECT_EQ(rest(*connect(*server, first->continuation())), bytes_.substr(at));
    }
}

TEST_F(Replay, FilesOfASetAreOneStream) {
    const auto put = [&](const char* name, const std::string& text) {
        std::ofstream(std::filesystem::path(path()).parent_path() / name, std::ios::binary) << text;
    };
    put("common.rxo", "before all");
    put("scan one.rxo", "before");
    put("scan one.rxp_001", std::string(5000, 'x'));
    put("scan one.rxp_002", "the end");
    put("scan one.rxp_004", "no part of it");
    recording_ = std::make_shared<const replay_recording>(path());
    const std::string all = "before allbefore" + bytes_ + std::string(5000, 'x') + "the end";
    EXPECT_EQ(recording_->size(), all.size());
    const auto server = serve({777, {}});
    EXPECT_EQ(rest(*connect(*server)), all);
    EXPECT_EQ(rest(*connect(*server, recording_->token_at(5) + ":300020")), all.substr(300025));
    std::string middle(20, ' ');
    EXPECT_EQ(recording_->read(7, middle.data(), middle.size()), middle.size());
    EXPECT_EQ(middle, all.substr(7, 20));
    EXPECT_EQ(recording_->read(all.size() - 3, middle.data(), middle.size()), 3u);
}

TEST_F(Replay, TokenOfAnotherRecordingIsRefused) {
    const auto server = serve({});
    try {
        connect(*server, "0123456789abcdef-0:5");
        FAIL();
    } catch (const std::runtime_error& e) {
        EXPECT_THAT(e.what(), HasSubstr("none of this recording"));
    }
}

TEST_F(Replay, PlaceOfATokenIsItsOffsetWithinTheRecording) {
    EXPECT_EQ(recording_->place_of(recording_->token_at(77)), 77u);
    EXPECT_EQ(recording_->place_of(recording_->token_at(bytes_.size())), bytes_.size());
    EXPECT_EQ(recording_->place_of(recording_->token_at(bytes_.size() + 1)), std::nullopt);
    EXPECT_EQ(recording_->place_of(recording_->token_at(77) + "x"), std::nullopt);
    EXPECT_EQ(recording_->place_of("77"), std::nullopt);
}

TEST_F(Replay, PortInUseAndUnknownHostAreTold) {
    const auto server = serve({});
    const std::string port = std::to_string(server->port());
    EXPECT_THROW(replay_server(recording_, "127.0.0.1", port, {}), std::system_error);
    EXPECT_THROW(replay_server(recording_, "127.0.0.1", "no-such-service", {}), std::runtime_error);
}

TEST_F(Replay, MissingRecordingIsTold) {
    EXPECT_THROW(replay_recording(path() + "x"), std::system_error);
}

TEST_F(ConcurrentReplay, SeveralClientsGetTheWholeRecordingWithEverySizeOfChunk) {
    for (const std::uint64_t chunk : {100u, 4096u, 1u << 20}) {
        const auto server = serve({chunk, {}});
        std::vector<std::thread> clients;
        std::vector<std::string> received(4);
        for (std::string& all : received) {
            clients.emplace_back([&] { all = rest(*connect(*server)); });
        }
        for (std::size_t i = 0; i < clients.size(); ++i) {
            clients[i].join();
            EXPECT_EQ(received[i], bytes_);
        }
        EXPECT_EQ(server->clients(), 4u);
    }
}

TEST_F(ConcurrentReplay, EndOfTheServerEndsSlowTransfers) {
    auto server = serve({1000, replay_pace(10000)});
    const auto client = connect(*server);
    char block[1000];
    EXPECT_GT(client->read(block, sizeof block), 0u);
    const auto begin = std::chrono::steady_clock::now();
    server.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    EXPECT_LT(rest(*client).size(), bytes_.size() - sizeof block);
}

TEST_F(ConcurrentReplay, ClientThatGoesAwayDoesNotDisturbOthers) {
    const auto server = serve({1000, {}});
    for (int i = 0; i < 10; ++i) {
        char byte = 0;
        connect(*server)->read(&byte, 1);
    }
    EXPECT_EQ(rest(*connect(*server)), bytes_);
}

TEST_F(ConcurrentReplay, ClientBeyondTheLimitIsTurnedAwayUntilAnotherLeaves) {
    const auto server = serve({});
    const auto address = host::resolve("127.0.0.1", std::to_string(server->port()), SOCK_STREAM);
    // Clients that ask for nothing yet.
    const auto join = [&] {
        host::file_handle socket(::socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(::connect(socket.get(), address.get(), address.length()), 0);
        return socket;
    };
    std::vector<host::file_handle> clients;
    while (clients.size() < 64) {
        clients.push_back(join());
    }
    char byte = 0;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(::recv(join().get(), &byte, 1, 0), 0) << "closed without a word";
    }
    EXPECT_EQ(server->clients(), 64u);

    clients.pop_back();
    std::string received;
    for (int i = 0; i < 500 && received.empty(); ++i) {
        std::this_thread::sleep_for(10ms);
        try {
            received = rest(*connect(*server));
        } catch (const std::exception&) {
            continue; // the server has not noticed yet
        }
    }
    EXPECT_EQ(received, bytes_);
}

TEST_F(ConcurrentReplay, DatagramsAreTheRecordingWithoutItsPreamble) {
    const auto receiver = std::make_shared<scanlib::rddp_rconnection>("rddp://127.0.0.1:0", "", "");
    receiver->open();
    std::string received;
    std::thread reader([&] { received = rest(*receiver); });
    const auto sent = host::send_datagrams(
        *recording_, "127.0.0.1", std::to_string(receiver->local_port()), {1000, replay_pace(5e6)});
    reader.join();
    EXPECT_EQ(sent.bytes, bytes_.size()) << "this recording has none";
    EXPECT_EQ(received.substr(16), bytes_);
    EXPECT_GE(sent.datagrams, bytes_.size() / 1000);
}

TEST(ReplayPace, IsUnlimitedByDefault) {
    EXPECT_TRUE(replay_pace().unlimited());
    EXPECT_EQ(replay_pace().due(1'000'000'000), 0ns);
}

TEST(ReplayPace, RateSpreadsBytesEvenly) {
    EXPECT_EQ(replay_pace(1000.0).due(0), 0ns);
    EXPECT_EQ(replay_pace(1000.0).due(2500), 2500ms);
}

TEST(ReplayPace, BytesBetweenMarksComeEvenlyAndThoseBehindTheLastAtOnce) {
    const replay_pace pace({{100, 1.0}, {300, 2.0}, {300, 3.0}, {400, 4.0}});
    EXPECT_EQ(pace.due(0), 0ns);
    EXPECT_EQ(pace.due(50), 500ms);
    EXPECT_EQ(pace.due(200), 1500ms);
    EXPECT_EQ(pace.due(350), 3500ms);
    EXPECT_EQ(pace.due(1000), 4s);
}

TEST(ReplayPace, TimesBeyondAllMeasureAreBounded) {
    EXPECT_LT(replay_pace(1e-9).due(~std::uint64_t{0}), std::chrono::hours(24 * 400));
}

TEST(SocketAddress, IsSplitAtItsLastColon) {
    struct {
        const char* text;
        const char* host;
        const char* port;
        bool good;
    } const cases[] = {{"1", "here", "1", true},      {"h:1", "h", "1", true},
                       {"[::1]:5", "::1", "5", true}, {"h:", "h", "", false},
                       {":1", "", "1", false},        {"", "here", "", false}};
    for (const auto& c : cases) {
        std::string host = "here";
        std::string port;
        EXPECT_EQ(host::split_address(c.text, host, port), c.good) << c.text;
        EXPECT_EQ(host, c.host);
        EXPECT_EQ(port, c.port);
    }
}

} // namespace
