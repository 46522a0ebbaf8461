#pragma once

#include "scanlib/packet_emitter.hpp"
#include "simulator/calibration.hpp"
#include "simulator/instrument.hpp"
#include "simulator/waveform_writer.hpp"

namespace simulator {

/// Writes what a reader must know of a scanner before its measurements: identity, units, geometry,
/// corrections, the air and the channels of waveforms.
void describe(const instrument& scanner, const calibration& faults,
              const waveform_writer& waveforms, scanlib::packet_emitter& out);

} // namespace simulator
