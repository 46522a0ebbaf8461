#pragma once

#include <cstdint>
#include <limits>

namespace scanlib {

/// One echo of a laser shot.
struct target {
    float vertex[3] = {};  ///< m, in the scanner's own coordinate system
    double echo_range = 0; ///< m, after all range corrections
    std::uint16_t mta_zone = 0;
    double time =
        0; ///< s; the shot's time in the selected time base, the same for all echoes of a shot
    double time_internal = 0; ///< s; the shot's internal time
    float amplitude = 0;      ///< dB
    float reflectance = 0;    ///< dB
    float deviation = 0;      ///< of the pulse shape, as told by the instrument
    float background_radiation =
        std::numeric_limits<float>::quiet_NaN(); ///< NaN where it is not told
    std::uint8_t is_sw =
        0; ///< 1 for an echo of the software receiver; other echoes leave it as it was
    std::uint8_t is_rising = 0; ///< bit 0 of the echo's flags
    std::uint8_t is_pseudo = 0; ///< bit 2 of the echo's flags
    std::uint8_t is_pps_locked =
        0;                     ///< whether the time of shots was locked when the echo was stored
    std::uint32_t facet = 0;   ///< mirror facet of the shot
    std::uint32_t segment = 0; ///< scan segment of the shot
    std::uint8_t lineend = 0;  ///< 1 on the last target of a shot that ended a line
};

/// Place of a target among the targets of its shot.
enum class echo_position : std::uint8_t {
    single,   ///< the only one
    first,    ///< the first of several
    interior, ///< neither first nor last
    last,     ///< the last of several
    none,     ///< the shot has no echo: a pseudo target that carries the background radiation
};

} // namespace scanlib
