#pragma once

#include <stdexcept>
#include <string>

#include "scanlib/packet_catalogue.hpp"

namespace scanlib::detail {

/// Both streams tell in the same words that a packet is not the one asked for.
[[noreturn]] inline void throw_id_mismatch(const char* stream, packet_id wanted, packet_id found) {
    const auto text = [](packet_id id) {
        return std::to_string(id.id) + "." + std::to_string(id.version);
    };
    throw std::runtime_error(std::string(stream) + ": id mismatch: expected " + text(wanted) +
                             " got " + text(found));
}

/// A header shorter than its fixed part has no sequence.
inline constexpr const char* missing_sequence = "Missing data for sequence.";

} // namespace scanlib::detail
