#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "scanlib/connection.hpp"

namespace scanlib {

/// Receives a live stream as UDP datagrams on a local address:
///
///     rddp://PORT     rddp://ADDRESS:PORT
///
/// The bytes of each datagram are stream bytes, delivered as they arrive; what is lost or out of
/// order is not noticed here. The stream begins with a preamble, though none is sent, so that it
/// can be joined at any moment. An empty datagram ends it.
///
/// All work is done on the thread that calls `open` and `read`. `position` runs at twice the bytes
/// delivered.
class rddp_rconnection : public basic_rconnection {
  public:
    /// The address is 0.0.0.0, port 20001, where the URI has none; `continuation` is not used.
    /// Throws std::runtime_error ("Invalid address/service syntax.").
    rddp_rconnection(const std::string& uri, const std::string& continuation,
                     const std::string& pxp);
    ~rddp_rconnection() override;

    /// Binds the socket. Throws std::system_error naming the step ("handle_resolve", "open",
    /// "bind", "get_option"); failures of the name service are boost::system::system_error.
    ///
    /// `read` throws std::system_error ("handle_receive_from") and `cancelled`.
    void open() override;
    /// Closes the socket.
    void close() override;

    /// Ends the stream behind the datagram at hand, or behind the next while one is waited for. May
    /// be called from another thread.
    void stop() override;
    /// Makes a read that waits, and all later ones, throw `cancelled`. May be called from another
    /// thread.
    void cancel() override;

    /// The local address; empty before `open`.
    std::string local_address() const;
    /// The local port, for a URI whose port is 0; 0 before `open`.
    std::uint16_t local_port() const;

  protected:
    std::uint64_t more_input(char* dst, std::uint64_t n) override;

  private:
    class transfer;
    std::unique_ptr<transfer> transfer_;
};

} // namespace scanlib
