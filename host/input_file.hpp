#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace host {

/// Whether the name is a URI of an instrument and not a file.
bool is_live_stream(const std::string& name);

/// Why the file cannot be read, naming it; empty if it is a regular file that opens, or no file at
/// all but an instrument.
std::string reason_unreadable(const std::string& name);

/// About how many packets a recording holds, with its prefixes and continuations, from samples of
/// it; 0 if that cannot be told.
std::uint64_t estimate_packets(const std::string& name);

} // namespace host
