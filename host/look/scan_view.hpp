#pragma once

#include "raster.hpp"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace host {

/// One sampled waveform.
struct scan_waveform {
    int channel = 0;
    double time = 0;  ///< s, of its shot
    double start = 0; ///< s, of the first sample, relative to the shot
    bool compressed = false;
    std::vector<double> samples;
};

/// All that the page shows of a scan.
struct scan_view {
    std::string name; ///< of the file
    bool complete = true;
    std::string instrument;
    std::uint64_t shots = 0;
    std::uint64_t echoes = 0;
    std::uint64_t unclaimed = 0; ///< echoes at whose time there is no shot
    std::uint64_t waveforms = 0;
    value_bounds time; ///< s
    std::uint64_t lines = 0;

    histogram ranges;     ///< m, of all echoes but the outermost percent
    histogram amplitudes; ///< dB, as the ranges
    static constexpr std::size_t most_told = 16;
    std::array<std::uint64_t, most_told + 1> echoes_per_shot{}; ///< the last: that many or more

    /// By line and angle (degrees), of each shot's first echo.
    raster range_image;     ///< m
    raster intensity_image; ///< dB
    bool intensity_is_reflectance = false;
    raster top_view; ///< highest z by x and y, m
    /// What the colours span: all but the outermost values.
    value_bounds range_colours;
    value_bounds intensity_colours;
    value_bounds height_colours;
    bool turned = false; ///< the beam moves down along the lines, so the images are shown turned

    std::vector<scan_waveform> waveform; ///< of one shot, a channel each
    double sampling_time = 0;            ///< s; NaN or 0 where it is not known

    std::string failure; ///< why not all could be read
};

/// Reads a K7 file in bounded memory. Throws Skein::K7ReadError where it cannot be opened or has no
/// slice; what cannot be read later is told in `failure`.
scan_view view_scan(const std::string& path);

} // namespace host
