#pragma once

#include "scanlib/packet_emitter.hpp"
#include "simulator/calibration.hpp"
#include "simulator/instrument.hpp"

namespace simulator {

/// Writes what a reader must know of a scanner before its measurements: identity, units, geometry,
/// corrections and the air.
void describe(const instrument& scanner, const calibration& faults, scanlib::packet_emitter& out);

} // namespace simulator
