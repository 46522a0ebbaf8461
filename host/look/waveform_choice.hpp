#pragma once

#include "bundle_interface/k7_reader.hpp"
#include "scan_view.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace host {

/// Samples of compressed words: groups of 4 bits that tell a width and, unless it is 0, which ends
/// them, 8 steps of that width; the sums of the steps, cut to 12 bits, are the samples. A group
/// that the words do not hold whole ends them as well.
std::vector<double> expand_waveform(const std::vector<std::uint16_t>& words);

/// Counts the waveforms of a slice and puts those of one shot into the view: of the first thousands
/// the one that moves most and does not reach the converter's limit. Samples that cannot be ones of
/// a 12-bit converter are taken for compressed words. Throws Skein::K7ReadError.
void choose_waveform(const Skein::K7Reader& file, const std::string& slice, scan_view& view);

} // namespace host
