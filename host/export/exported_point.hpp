#pragma once

#include <cstdint>

namespace host {

/// A point of a scan, and what is known of its echo.
struct exported_point {
    double x = 0; ///< m, as y and z; in the scanner's own coordinates
    double y = 0;
    double z = 0;
    double time = 0;                ///< s, of the shot
    float amplitude = 0;            ///< dB
    float reflectance = 0;          ///< dB, NaN where the recording tells none
    std::uint8_t channel = 0;       ///< 0 for a rising edge, 1 for another
    std::uint8_t return_number = 0; ///< from 1, among the shot's echoes as they are stored
    std::uint8_t returns = 0;       ///< echoes of the shot; 255 may be more
};

} // namespace host
