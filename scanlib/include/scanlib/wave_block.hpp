#pragma once

#include "scanlib/vector3.hpp"

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace scanlib {

/// Description of one receiver channel. `expsum_ab` and `expsum_gw` are the terms of its pulse
/// model, a sum of exponentials, in the same order; they are kept and handed out as told.
struct wave_channel {
    std::string name;
    double sampling_time = 0; ///< s from sample to sample
    std::uint32_t adc_resolution_bits = 0;
    double wavelength = 0;              ///< m
    double delta_st = 0;                ///< s, the channel's delay
    std::uint64_t ticks_per_sample = 0; ///< sampling_time in high-resolution ticks
    double a_lin = 0.4;
    double delay = 0;
    double scale = 0;
    std::vector<std::pair<double, double>> expsum_ab; ///< A and B
    std::vector<std::pair<double, double>> expsum_gw; ///< gamma and omega
};

/// One run of samples of a block.
struct wave_record {
    double time_sorg = 0;           ///< s, of the first sample, from the shot on
    std::uint64_t channel = 0;      ///< index of the channel
    std::uint8_t is_compressed = 0; ///< 1 while `samples` holds the words of a compressed packet
    std::vector<std::uint16_t> samples;
};

/// Position and amplitude of a pulse as the digitiser found it.
using wave_peak = std::pair<float, float>;

/// The waveforms of one shot. The beam and the angles are those of the shot, filled in when it is
/// found. The first record always is that of the reference pulse.
struct wave_block {
    double time_internal = 0; ///< s
    double time = 0;          ///< s, in the time base selected
    vector3 beam_origin{};    ///< m
    vector3 beam_direction{};
    std::uint32_t facet = 0;
    double line_angle = 0;  ///< rad
    double frame_angle = 0; ///< rad
    std::uint8_t is_pps_locked = 0;
    std::vector<wave_record> records;
    std::vector<wave_peak> peaks; ///< NaN where a position is not used
};

} // namespace scanlib
