#pragma once

#include "bundle_interface/k7_reader.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace host {

using vector3 = std::array<double, 3>;

struct scan_echo {
    double range = 0;       ///< m
    double amplitude = 0;   ///< dB
    double reflectance = 0; ///< dB
};

struct scan_shot {
    double time = 0; ///< s
    vector3 origin{};
    vector3 direction{};
    std::uint64_t line = 0; ///< of the scan, from 0
    double angle = 0;       ///< rad, travelled by the beam since its line began
};

/// What a walk did not get to show.
struct walk_result {
    std::uint64_t unclaimed = 0; ///< echoes at whose time there is no shot
    std::string failure;         ///< why it ended early; empty where it did not
};

/// Shows each shot of a slice with its echoes, joined by their time. A scan line ends where the
/// beam jumps, turns back, or has gone once around. Memory is bounded; of more than 4096 echoes of
/// a shot the others count as unclaimed. What cannot be read ends the walk.
walk_result
walk_scan(const Skein::K7Reader& file, const std::string& slice,
          const std::function<void(const scan_shot&, std::span<const scan_echo>)>& show);

} // namespace host
