#pragma once

#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "bundle_interface/export.hpp"
#include "frontend/conversion.hpp"

namespace Riegl {

/// What an inspection drew. A record is one run of samples of a shot; those of the reference pulse
/// (channel 3) do not count.
struct InspectionSummary {
    bool opened = false;      ///< the stream could be opened
    std::uint64_t offset = 0; ///< bytes from the start of the stream to the end of the last packet
    std::uint64_t bytes_in = 0; ///< bytes that the connection delivered

    std::uint64_t shots = 0; ///< shots with a time, from where the stream describes its channels
    double first_time = std::numeric_limits<double>::quiet_NaN(); ///< s, least of these shots
    double last_time = std::numeric_limits<double>::quiet_NaN();  ///< s, greatest of these shots
    std::uint64_t records = 0;                                    ///< of these shots

    std::uint64_t shots_in_range = 0; ///< shots within the time range
    std::uint64_t files = 0;          ///< shots whose PDF was written
    std::uint64_t plots = 0;       ///< plots written; a later one of a shot replaces the one before
    std::uint64_t empty_plots = 0; ///< of these, without samples
    std::uint64_t compressed_plots = 0; ///< of these, of words that are compressed
    std::uint64_t failed_plots = 0;     ///< plots that could not be written
    std::string failure;                ///< text of the first of them
    std::vector<Loss> losses;           ///< kinds of loss that occurred
    RecordingFiles recording;           ///< where it was read from
};

/// Plots the waveforms of each shot whose time lies within `input.TimeRange`, its bounds included,
/// to the PDF file "GPSTime[s]" + time + ".pdf" in the current folder; OutDir plays no part. The
/// records of a shot share that name, so the last one stays. Without a range nothing is plotted.
///
/// One pass over the stream on the caller's thread; `input.Progress` hears of every packet, and at
/// the end what was drawn. Returns an empty text, or what ended the pass; throws nothing. A plot
/// that cannot be written does not end it. Of waveforms that come compressed the words are drawn.
RXP2K7_EXPORT std::string inspectFWFs(const std::filesystem::path& file, Input& input);

} // namespace Riegl
