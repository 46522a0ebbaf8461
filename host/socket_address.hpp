#pragma once

#include <cstdint>
#include <string>

#include <sys/socket.h>

namespace host {

/// An address of a socket.
class socket_address {
  public:
    const sockaddr* get() const noexcept { return reinterpret_cast<const sockaddr*>(&storage_); }
    socklen_t length() const noexcept { return length_; }
    int family() const noexcept { return storage_.ss_family; }

  private:
    friend socket_address resolve(const std::string& host, const std::string& port, int type);
    sockaddr_storage storage_{};
    socklen_t length_ = 0;
};

/// The first address of a host and port, for sockets of `type`. Throws std::runtime_error, naming
/// both, when there is none.
socket_address resolve(const std::string& host, const std::string& port, int type);

/// Splits "HOST:PORT", or "PORT" alone, at its last ":"; `host` keeps its value without one. Square
/// brackets around the host are taken off. Returns whether there is a port.
bool split_address(const std::string& text, std::string& host, std::string& port);

/// The port that a socket is bound to.
std::uint16_t local_port(int socket);

} // namespace host
