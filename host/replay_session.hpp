#pragma once

#include "replay_server.hpp"

#include "scanlib/rdtp_line.hpp"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <optional>
#include <string>

namespace host {

/// One client of a replay server: its request, the reply, and the stream.
///
/// Every chunk line carries a continuation token. Every 16th asks to be acknowledged; with 4 of
/// these unanswered the session waits. A line of length 0 with "pong" fills longer pauses.
class replay_session {
  public:
    replay_session(const replay_recording& recording, const replay_settings& settings,
                   file_handle socket)
        : recording_(recording), settings_(settings), socket_(std::move(socket)) {}

    /// Serves the client until the stream's end or its own.
    void run() noexcept;

    /// Ends a `run` on another thread.
    void end();

    bool finished() const noexcept { return finished_; }

  private:
    std::optional<std::string> read_line();
    bool serve_request(const std::string& text);
    bool find_start(const scanlib::rdtp_line& request, scanlib::rdtp_line& reply);
    bool refuse(const std::string& reason);
    bool send_stream();
    bool send_chunk(std::uint64_t length);
    bool wait_until_due(std::uint64_t offset);
    bool await_acknowledges(std::size_t allowed);
    bool send_text(const std::string& text, bool more_follows);
    bool send_data(std::uint64_t length);
    void finish_sending();

    const replay_recording& recording_;
    const replay_settings& settings_;
    file_handle socket_;
    std::string received_; ///< behind the last line
    bool chunked_ = true;
    std::uint64_t position_ = 0;
    std::uint64_t chunks_ = 0;
    std::deque<std::string> unanswered_;
    std::chrono::steady_clock::time_point zero_; ///< when the recording's first byte was due
    std::mutex mutex_;
    std::condition_variable ending_;
    bool ended_ = false;
    std::atomic<bool> finished_{false};
};

} // namespace host
