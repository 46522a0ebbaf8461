#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace host {

/// Whether the name is a URI of an instrument and not a file.
bool is_live_stream(const std::string& name);

/// Why the file cannot be read, naming it; empty if it is a regular file that opens, or no file at
/// all but an instrument.
std::string reason_unreadable(const std::string& name);

/// The files that an input is read from as far as they are there: itself, its prefixes,
/// continuations and override files. None for an instrument.
std::vector<std::string> files_of_input(const std::string& name);

/// Bytes of a recording with its prefixes and continuations; 0 for an instrument.
std::uint64_t bytes_of_input(const std::string& name);

/// About how many packets a recording holds, with its prefixes and continuations, from samples of
/// it; 0 if that cannot be told.
std::uint64_t estimate_packets(const std::string& name);

} // namespace host
