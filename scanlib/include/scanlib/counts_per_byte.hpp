#pragma once

#include <cstdint>

#include "scanlib/connection.hpp"

namespace scanlib {

/// Whether the stream comes over the network while it is made.
bool is_live(const basic_rconnection& connection) noexcept;

/// How often the position of a connection counts each byte that it delivers: twice for live
/// streams, else once.
std::uint64_t counts_per_byte(const basic_rconnection& connection) noexcept;

} // namespace scanlib
