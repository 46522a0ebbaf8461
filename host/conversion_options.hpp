#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace host {

/// What the command line of `convert` says.
struct convert_options {
    std::vector<std::string> inputs;
    std::string out_dir = ".";
    std::uint32_t fragment_size = 100000;
    std::uint32_t waveform_length = 256;
    bool no_echoes = false;
    bool no_waveforms = false;
    std::optional<std::pair<double, double>> time_range;
    std::string error_log;
    std::uint32_t compress = 0;
    std::uint32_t jobs = 1; ///< processes at a time
    bool skip_done = false;
    bool json = false;

    /// Where an input's K7 file comes to stand.
    std::filesystem::path output_of(const std::string& input) const {
        return std::filesystem::path(out_dir) /
               (std::filesystem::path(input).stem().string() + ".k7");
    }
};

} // namespace host
