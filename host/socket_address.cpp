#include "socket_address.hpp"

#include <cstring>
#include <memory>
#include <stdexcept>

#include <netdb.h>
#include <netinet/in.h>

namespace host {

socket_address resolve(const std::string& host, const std::string& port, int type) {
    addrinfo wanted{};
    wanted.ai_socktype = type;
    addrinfo* found = nullptr;
    const int error = ::getaddrinfo(host.c_str(), port.c_str(), &wanted, &found);
    if (error != 0) {
        throw std::runtime_error("no address " + host + ":" + port + ": " + ::gai_strerror(error));
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
    socket_address address;
    address.length_ = found->ai_addrlen;
    std::memcpy(&address.storage_, found->ai_addr, found->ai_addrlen);
    return address;
}

bool split_address(const std::string& text, std::string& host, std::string& port) {
    const std::size_t colon = text.rfind(':');
    if (colon != std::string::npos) {
        host = text.substr(0, colon);
        if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
            host = host.substr(1, host.size() - 2);
        }
    }
    port = text.substr(colon == std::string::npos ? 0 : colon + 1);
    return !host.empty() && !port.empty();
}

std::uint16_t local_port(int socket) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return 0;
    }
    // Both families have the port at the same place.
    return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
}

} // namespace host
