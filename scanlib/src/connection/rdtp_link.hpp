#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace scanlib {

/// What a live transfer needs of the network. All but `stop` and `cancel` is for the reading
/// thread, and throws `cancelled` once `cancel` has taken effect.
///
/// A failure is std::system_error of the system's category, with the name of the step as its text;
/// one of the name service is boost::system::system_error.
class rdtp_link {
  public:
    rdtp_link() = default;
    rdtp_link(const rdtp_link&) = delete;
    rdtp_link& operator=(const rdtp_link&) = delete;
    virtual ~rdtp_link() = default;

    virtual void connect(const std::string& host, const std::string& port) = 0;
    virtual void send(const std::string& text) = 0;
    /// Up to `n` bytes; 0 once the peer has closed the connection.
    virtual std::uint64_t read_some(char* dst, std::uint64_t n) = 0;
    /// The same, but none behind the first line feed.
    virtual std::uint64_t read_line_part(char* dst, std::uint64_t n) = 0;
    virtual void wait(std::chrono::seconds time) = 0;
    virtual void close() noexcept = 0;

    /// Whether `stop` has taken effect.
    virtual bool stop_requested() const noexcept = 0;

    /// From any thread: take effect on the reading thread with its next or present operation.
    virtual void stop() = 0;
    virtual void cancel() = 0;
};

/// How long a wait of so many seconds takes; tests make it shorter.
using wait_length = std::function<std::chrono::nanoseconds(std::chrono::seconds)>;

/// A link over a TCP socket. Waits take their time where `length` is empty.
std::unique_ptr<rdtp_link> make_tcp_link(wait_length length = {});

} // namespace scanlib
