#include "replay_sender.hpp"

#include "socket_address.hpp"

#include "scanlib/stream_words.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <thread>
#include <vector>

#include <sys/prctl.h>
#include <sys/socket.h>

namespace host {

namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t word_bytes = 4;
constexpr std::size_t read_ahead = 1 << 20;
constexpr auto shortest_sleep = 20us;
constexpr int end_marks = 3; ///< one may be lost
constexpr auto end_mark_gap = 50ms;

std::uint32_t word_at(const char* p) {
    std::uint32_t word = 0;
    std::memcpy(&word, p, sizeof word);
    return word;
}

/// Length of the next datagram: up to the last packet start within reach, else as much as fits.
std::size_t datagram_length(const char* data, std::size_t n, std::size_t most) {
    if (n <= most) {
        return n;
    }
    for (std::size_t at = most; at > 0; at -= word_bytes) {
        if (scanlib::is_start_word(word_at(data + at))) {
            return at;
        }
    }
    return most;
}

class sender {
  public:
    sender(const socket_address& to, const replay_pace& pace)
        : socket_(::socket(to.family(), SOCK_DGRAM | SOCK_CLOEXEC, 0)), to_(to), pace_(pace) {
        if (!socket_) {
            throw std::system_error(errno, std::generic_category(), "cannot make a socket");
        }
        // Else short sleeps are rounded up to longer ones, and datagrams come in bursts.
        ::prctl(PR_SET_TIMERSLACK, 1, 0, 0, 0);
    }

    void send(const char* data, std::size_t n, std::uint64_t offset) {
        const auto due = start_ + pace_.due(offset);
        if (due - std::chrono::steady_clock::now() > shortest_sleep) {
            std::this_thread::sleep_until(due);
        }
        const ssize_t k = ::sendto(socket_.get(), data, n, MSG_NOSIGNAL, to_.get(), to_.length());
        if (k < 0 && errno != ECONNREFUSED && errno != ENOBUFS) {
            throw std::system_error(errno, std::generic_category(), "cannot send a datagram");
        }
    }

  private:
    file_handle socket_;
    socket_address to_;
    const replay_pace& pace_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Sends what follows `offset`.
void send_stream(const replay_recording& recording, sender& out, std::uint64_t offset,
                 std::size_t most, sent_datagrams& sent) {
    std::vector<char> data(read_ahead);
    while (const std::size_t n = recording.read(offset, data.data(), data.size())) {
        const bool last = offset + n >= recording.size();
        std::size_t at = 0;
        // A datagram is only cut with all that it could hold in sight.
        while (at < n && (last || n - at > most)) {
            const std::size_t length = datagram_length(data.data() + at, n - at, most);
            out.send(data.data() + at, length, offset + at);
            sent.bytes += length;
            ++sent.datagrams;
            at += length;
        }
        offset += at;
    }
}

/// Where the packets begin: behind the preamble, if there is one.
std::uint64_t first_packet(const replay_recording& recording) {
    std::array<std::uint32_t, scanlib::preamble.size()> words{};
    const std::size_t n = recording.read(0, reinterpret_cast<char*>(words.data()), sizeof words);
    return n == sizeof words && words == scanlib::preamble ? sizeof words : 0;
}

} // namespace

sent_datagrams send_datagrams(const replay_recording& recording, const std::string& host,
                              const std::string& port, const replay_settings& settings) {
    sender out(resolve(host, port, SOCK_DGRAM), settings.pace);
    const std::size_t most =
        std::clamp(settings.chunk_bytes, word_bytes, largest_datagram) / word_bytes * word_bytes;
    sent_datagrams sent;
    send_stream(recording, out, first_packet(recording), most, sent);
    for (int i = 0; i < end_marks; ++i) {
        std::this_thread::sleep_for(end_mark_gap);
        out.send(nullptr, 0, 0);
    }
    return sent;
}

} // namespace host
