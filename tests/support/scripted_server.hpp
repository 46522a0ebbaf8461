#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace test_support {

/// The accepted end of a connection to a scripted server.
class scripted_peer {
  public:
    explicit scripted_peer(int socket) : socket_(socket) {}
    scripted_peer(const scripted_peer&) = delete;
    scripted_peer& operator=(const scripted_peer&) = delete;
    ~scripted_peer() { close(); }

    /// The next line with its line feed; what there is once the client has gone.
    std::string line() const {
        std::string text;
        char c = 0;
        while (::recv(socket_, &c, 1, 0) == 1) {
            text += c;
            if (c == '\n') {
                break;
            }
        }
        return text;
    }
    void send(const std::string& text) const {
        for (std::size_t sent = 0; sent < text.size();) {
            const ssize_t k = ::send(socket_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
            if (k <= 0) {
                return;
            }
            sent += static_cast<std::size_t>(k);
        }
    }
    /// Waits until the client closes.
    void wait_for_end() const {
        while (!line().empty()) {
        }
    }
    /// Closes without an orderly end.
    void reset() {
        const linger at_once{1, 0};
        ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        close();
    }
    void close() {
        if (socket_ >= 0) {
            ::close(socket_);
            socket_ = -1;
        }
    }

  private:
    int socket_;
};

/// A server on a free loopback port whose connections each run the next function of a script, one
/// after the other, on a thread of its own. Behind the script nobody is accepted.
class scripted_server {
  public:
    using session = std::function<void(scripted_peer&)>;

    explicit scripted_server(std::vector<session> script)
        : script_(std::move(script)), listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            ::listen(listener_, 8) != 0 ||
            ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            throw std::runtime_error("no scripted server");
        }
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { run(); });
    }
    scripted_server(const scripted_server&) = delete;
    scripted_server& operator=(const scripted_server&) = delete;
    ~scripted_server() {
        ::shutdown(listener_, SHUT_RDWR);
        thread_.join();
        ::close(listener_);
    }

    std::string uri(const std::string& rest = "/current") const {
        return "rdtp://127.0.0.1:" + std::to_string(port_) + rest;
    }

  private:
    void run() {
        for (const session& play : script_) {
            scripted_peer peer(::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
            play(peer);
        }
    }

    std::vector<session> script_;
    int listener_;
    std::uint16_t port_ = 0;
    std::thread thread_;
};

} // namespace test_support
