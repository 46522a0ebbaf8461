#include "authority.hpp"

#include <stdexcept>

namespace scanlib {

void split_authority(const std::string& authority, lone_part lone, std::string& host,
                     std::string& port) {
    const std::size_t colon = authority.find(':');
    if (colon != std::string::npos) {
        host = authority.substr(0, colon);
        port = authority.substr(colon + 1);
    } else if (!authority.empty()) {
        (lone == lone_part::host ? host : port) = authority;
    }
    if (host.empty() || port.empty()) {
        throw std::runtime_error("Invalid address/service syntax.");
    }
}

} // namespace scanlib
