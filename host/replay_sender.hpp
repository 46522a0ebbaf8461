#pragma once

#include "replay_server.hpp"

#include <cstdint>
#include <string>

namespace host {

/// The most bytes that a datagram can carry.
inline constexpr std::uint64_t largest_datagram = 65504;

struct sent_datagrams {
    std::uint64_t datagrams = 0;
    std::uint64_t bytes = 0;
};

/// Sends a recording as datagrams of at most `settings.chunk_bytes` to an address, and an empty one
/// at the end. The preamble stays out, since every receiver makes its own. A datagram begins with a
/// packet wherever packets are small enough, so that one that is lost takes whole packets with it.
/// Throws std::system_error when the system refuses; a receiver that is not there is no failure.
sent_datagrams send_datagrams(const replay_recording& recording, const std::string& host,
                              const std::string& port, const replay_settings& settings);

} // namespace host
