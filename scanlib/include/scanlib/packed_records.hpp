#pragma once

#include <cstdint>

namespace scanlib {

/// An echo in packed form: what its packet `echo` carries, all of it modulo the width.
struct packed_echo {
    std::uint32_t range = 0; ///< range counter, two's complement, units of `range_unit`
    std::uint16_t amplitude = 0;
    std::uint16_t reflectance = 0; ///< two's complement
    std::uint16_t flags = 0;
    std::uint16_t deviation = 0;

    bool operator==(const packed_echo&) const = default;
};
static_assert(sizeof(packed_echo) == 12, "queued by the hundred thousand");

/// The time correction that closes the sequence of a frame of shots (`_hr` frames have none).
inline constexpr std::int8_t closing_time_correction = -2;

} // namespace scanlib
