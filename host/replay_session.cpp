#include "replay_session.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>

#include <poll.h>
#include <sys/sendfile.h>
#include <sys/socket.h>

namespace host {

namespace {

using namespace std::chrono_literals;

constexpr auto longest_pause = 1s; ///< without a sign of life
constexpr int request_timeout = 30'000;
constexpr int closing_timeout = 10'000;
constexpr std::uint64_t chunks_per_acknowledge = 16;
constexpr std::size_t open_acknowledges = 4;
constexpr const char* token_key = "continuation-token";
constexpr const char* offset_key = "continuation-offset";
constexpr const char* acknowledge_key = "acknowledge-token";

/// Whether there is something to receive, or an end, within so many milliseconds; -1 for no limit.
bool readable(int socket, int milliseconds) {
    pollfd wanted{socket, POLLIN, 0};
    return ::poll(&wanted, 1, milliseconds) > 0;
}

/// A transfer that its client breaks off is no reason to end the process.
void block_broken_pipes() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

std::optional<std::uint64_t> whole_number(const std::string& text) {
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

} // namespace

void replay_session::run() noexcept {
    block_broken_pipes();
    try {
        const auto line = readable(socket_.get(), request_timeout) ? read_line() : std::nullopt;
        if (line && serve_request(*line) && send_stream()) {
            finish_sending();
        }
    } catch (...) {
        // Out of memory: this client goes without, the others are served on.
    }
    ::shutdown(socket_.get(), SHUT_RDWR);
    finished_ = true;
}

void replay_session::end() {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    ending_.notify_all();
    ::shutdown(socket_.get(), SHUT_RDWR);
}

/// The next line, without its line feed; nothing once the client has gone or sends no lines.
std::optional<std::string> replay_session::read_line() {
    std::array<char, 512> part;
    std::size_t feed = received_.find('\n');
    while (feed == std::string::npos) {
        const ssize_t k = ::recv(socket_.get(), part.data(), part.size(), 0);
        if (k <= 0 || received_.size() > scanlib::longest_rdtp_line) {
            return std::nullopt;
        }
        received_.append(part.data(), static_cast<std::size_t>(k));
        feed = received_.find('\n');
    }
    std::string line = received_.substr(0, feed);
    received_.erase(0, feed + 1);
    return line;
}

bool replay_session::refuse(const std::string& reason) {
    if (send_text(scanlib::write_rdtp_line({"ERROR", {{"error-text", reason}}}), false)) {
        finish_sending();
    }
    return false;
}

bool replay_session::serve_request(const std::string& text) {
    const scanlib::rdtp_line request = scanlib::parse_rdtp_line(text);
    if (request.token != "CURRENT" && request.token != "ACTUAL" && request.token != "FILE") {
        return refuse("unknown request: current, actual or file is served here");
    }
    if (request.value("format") != "rxp") {
        return refuse("unknown format: rxp is served here");
    }
    const std::string encoding = request.value("encoding");
    if (encoding != "chunked" && encoding != "plain") {
        return refuse("unknown encoding: chunked or plain is served here");
    }
    chunked_ = encoding == "chunked";
    scanlib::rdtp_line reply{request.token,
                             {{"format", "rxp"}, {"encoding", encoding}, {"id", recording_.id()}}};
    return find_start(request, reply) && send_text(scanlib::write_rdtp_line(reply), true);
}

/// Moves to where the request wants to go on, and tells so in the reply.
bool replay_session::find_start(const scanlib::rdtp_line& request, scanlib::rdtp_line& reply) {
    const std::string token = request.value(token_key);
    if (token.empty()) {
        return true;
    }
    const auto place = recording_.place_of(token);
    const auto offset = whole_number(request.value(offset_key));
    if (!place || !offset || *offset > recording_.size() - *place) {
        return refuse("continuation token or offset is none of this recording");
    }
    position_ = *place + *offset;
    reply.parameters[token_key] = token;
    reply.parameters[offset_key] = request.value(offset_key);
    return true;
}

bool replay_session::send_stream() {
    zero_ = std::chrono::steady_clock::now() - settings_.pace.due(position_);
    while (position_ < recording_.size()) {
        const std::uint64_t length = std::min(settings_.chunk_bytes, recording_.size() - position_);
        if (!wait_until_due(position_ + length) || !send_chunk(length)) {
            return false;
        }
    }
    return !chunked_ || send_text("EOF\n", false);
}

bool replay_session::send_chunk(std::uint64_t length) {
    if (chunked_) {
        scanlib::rdtp_line line{std::to_string(length),
                                {{token_key, recording_.token_at(position_)}}};
        if (++chunks_ % chunks_per_acknowledge == 0) {
            unanswered_.push_back(std::to_string(chunks_));
            line.parameters[acknowledge_key] = unanswered_.back();
        }
        if (!send_text(scanlib::write_rdtp_line(line), true)) {
            return false;
        }
    }
    return send_data(length) && await_acknowledges(open_acknowledges);
}

/// Waits until at most `allowed` acknowledges are open.
bool replay_session::await_acknowledges(std::size_t allowed) {
    while (unanswered_.size() > allowed || (!unanswered_.empty() && readable(socket_.get(), 0))) {
        const auto text = read_line();
        if (!text) {
            return false;
        }
        const auto line = scanlib::parse_rdtp_line(*text);
        // One token answers all before it; one of an earlier transfer answers nothing.
        const auto found =
            std::find(unanswered_.begin(), unanswered_.end(), line.value(acknowledge_key));
        if (line.token == "ACKNOWLEDGE" && found != unanswered_.end()) {
            unanswered_.erase(unanswered_.begin(), found + 1);
        }
    }
    return true;
}

/// Waits until the byte at `offset` is due. Returns whether to go on.
bool replay_session::wait_until_due(std::uint64_t offset) {
    if (settings_.pace.unlimited()) {
        return true;
    }
    const auto due = zero_ + settings_.pace.due(offset);
    std::unique_lock lock(mutex_);
    while (!ended_) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= due) {
            return true;
        }
        ending_.wait_until(lock, std::min(due, now + longest_pause));
        if (chunked_ && std::chrono::steady_clock::now() < due) {
            lock.unlock();
            if (!send_text("0 pong\n", false)) {
                return false;
            }
            lock.lock();
        }
    }
    return false;
}

bool replay_session::send_text(const std::string& text, bool more_follows) {
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t k = ::send(socket_.get(), text.data() + sent, text.size() - sent,
                                 more_follows ? MSG_MORE : 0);
        if (k <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(k);
    }
    return true;
}

bool replay_session::send_data(std::uint64_t length) {
    const std::uint64_t end = position_ + length;
    while (position_ < end) {
        const replay_recording::piece piece = recording_.at(position_);
        auto at = static_cast<off_t>(piece.offset);
        const ssize_t k = ::sendfile(socket_.get(), piece.descriptor, &at,
                                     std::min(end - position_, piece.bytes));
        if (k <= 0) {
            return false;
        }
        position_ += static_cast<std::uint64_t>(k);
    }
    return true;
}

/// Waits for the client to close. A socket closed with something unread in it would take back what
/// the client has not read yet.
void replay_session::finish_sending() {
    ::shutdown(socket_.get(), SHUT_WR);
    std::array<char, 512> rest;
    while (readable(socket_.get(), closing_timeout) &&
           ::recv(socket_.get(), rest.data(), rest.size(), 0) > 0) {
    }
}

} // namespace host
