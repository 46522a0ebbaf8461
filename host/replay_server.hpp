#pragma once

#include "replay_recording.hpp"

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace host {

struct replay_settings {
    std::uint64_t chunk_bytes = 65536; ///< data of one chunk, at least 1
    replay_pace pace;
};

class replay_session;

/// Serves a recording over TCP as an instrument serves its live stream: to several clients at once,
/// each from the start or from where its continuation token says. Runs on threads of its own from
/// construction to destruction, which ends all transfers.
class replay_server {
  public:
    /// Listens at the address; port 0 chooses a free one. Throws std::system_error when that fails.
    replay_server(std::shared_ptr<const replay_recording> recording, const std::string& host,
                  const std::string& port, replay_settings settings);
    replay_server(const replay_server&) = delete;
    replay_server& operator=(const replay_server&) = delete;
    ~replay_server();

    std::uint16_t port() const noexcept { return port_; }

    /// Clients that were accepted so far.
    std::uint64_t clients() const noexcept { return clients_; }

  private:
    struct client {
        std::unique_ptr<replay_session> session;
        std::thread thread;
    };
    void accept_clients();
    void admit(file_handle socket);
    void forget_finished();

    std::shared_ptr<const replay_recording> recording_;
    replay_settings settings_;
    file_handle listener_;
    std::uint16_t port_ = 0;
    std::atomic<std::uint64_t> clients_{0};
    std::atomic<bool> ended_{false};
    std::mutex mutex_; ///< of the list
    std::list<client> list_;
    std::thread acceptor_;
};

} // namespace host
