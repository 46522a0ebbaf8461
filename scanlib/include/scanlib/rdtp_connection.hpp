#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "scanlib/connection.hpp"

namespace scanlib {

class rdtp_link;
class rdtp_transfer;

/// Reads a live stream over TCP, from an instrument or any server of the same protocol:
///
///     rdtp://HOST:PORT/VERB?key=value;key=value
///
/// One line asks, one line replies, then the stream follows, plain or in counted chunks. A chunk's
/// line may carry a continuation token; once there is one, a link that breaks is made anew and the
/// stream goes on at the very byte, after waits of 1, 2, ... 6, 6 s and at most 52 attempts.
///
/// All work is done on the thread that calls `open` and `read`. A peer that closes the connection
/// ends the stream. `position` runs at twice the bytes delivered.
class rdtp_rconnection : public basic_rconnection {
  public:
    /// Nothing is sent yet. The address is 127.0.0.1, port 20001, where the URI has none.
    /// `continuation` is what `continuation()` returned on an earlier connection, or empty. Throws
    /// std::runtime_error ("Invalid address/service syntax.").
    rdtp_rconnection(const std::string& uri, const std::string& continuation,
                     const std::string& pxp);

    /// The same over another link, for tests: a controlled clock, or no network at all.
    rdtp_rconnection(const std::string& uri, const std::string& continuation,
                     const std::string& pxp, std::unique_ptr<rdtp_link> link);
    ~rdtp_rconnection() override;

    /// Connects, sends the request and reads the reply, which names the stream. Throws what `read`
    /// throws of the reply, and std::system_error naming the step ("handle_resolve",
    /// "handle_connect", "handle_send", "handle_async_read_some").
    ///
    /// `read` throws std::runtime_error ("Unexpected server status: ", "Unknown encoding!",
    /// "Required continuation missing!", the server's own text), `cancelled`, and std::system_error
    /// ("rdtp_connection read" where nothing can be resumed, "rdtp_connection retry_open" where
    /// resuming was given up). Failures of the name service are boost::system::system_error.
    void open() override;
    /// Closes the socket.
    void close() override;

    /// The token, ":", and the bytes received since it was issued. Bytes that `stop` cut off count
    /// as received.
    std::string continuation() override;

    /// Whether the server has said that the stream is at its end. One that closes the connection
    /// without a word may have broken off; plain streams always end so.
    bool end_announced() const noexcept;

    /// Ends the stream behind the data on their way, one word before the start of a packet. Takes
    /// effect with the next data. May be called from another thread.
    void stop() override;
    /// Makes a read that waits, and all later ones, throw `cancelled`. May be called from another
    /// thread.
    void cancel() override;

  protected:
    std::uint64_t more_input(char* dst, std::uint64_t n) override;

  private:
    std::unique_ptr<rdtp_transfer> transfer_;
};

} // namespace scanlib
