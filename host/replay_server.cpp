#include "replay_server.hpp"

#include "replay_session.hpp"
#include "socket_address.hpp"

#include <cerrno>
#include <system_error>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace host {

namespace {

constexpr std::size_t most_clients = 64; ///< at once; others are turned away

file_handle listen_at(const std::string& host, const std::string& port) {
    const socket_address address = resolve(host, port, SOCK_STREAM);
    file_handle socket(::socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int yes = 1;
    // A server that is started again must not wait for its old connections to fade.
    if (!socket || ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
        ::bind(socket.get(), address.get(), address.length()) != 0 ||
        ::listen(socket.get(), static_cast<int>(most_clients)) != 0) {
        throw std::system_error(errno, std::generic_category(),
                                "cannot listen at " + host + ":" + port);
    }
    return socket;
}

} // namespace

replay_server::replay_server(std::shared_ptr<const replay_recording> recording,
                             const std::string& host, const std::string& port,
                             replay_settings settings)
    : recording_(std::move(recording))
    , settings_(std::move(settings))
    , listener_(listen_at(host, port))
    , port_(local_port(listener_.get()))
    , acceptor_([this] { accept_clients(); }) {}

replay_server::~replay_server() {
    ended_ = true;
    ::shutdown(listener_.get(), SHUT_RDWR);
    acceptor_.join();
    for (client& c : list_) {
        c.session->end();
        c.thread.join();
    }
}

void replay_server::accept_clients() {
    while (!ended_) {
        file_handle socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (socket) {
            const int yes = 1;
            // The end of a chunk must not wait for the client to confirm what came before it.
            ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
            admit(std::move(socket));
        } else if (!ended_ && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        } else if (errno != EINTR && errno != ECONNABORTED) {
            return;
        }
    }
}

void replay_server::admit(file_handle socket) {
    forget_finished();
    const std::lock_guard lock(mutex_);
    if (list_.size() >= most_clients) {
        return;
    }
    ++clients_;
    client& c = list_.emplace_back();
    c.session = std::make_unique<replay_session>(*recording_, settings_, std::move(socket));
    c.thread = std::thread([session = c.session.get()] { session->run(); });
}

void replay_server::forget_finished() {
    const std::lock_guard lock(mutex_);
    list_.remove_if([](client& c) {
        if (!c.session->finished()) {
            return false;
        }
        c.thread.join();
        return true;
    });
}

} // namespace host
