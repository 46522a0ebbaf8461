#pragma once

#include <filesystem>
#include <vector>

namespace Riegl {

/// The files that a recording was read from. All empty for a live stream.
struct RecordingFiles {
    std::vector<std::filesystem::path> prefixes; ///< whose bytes come before the main file
    std::vector<std::filesystem::path> data;     ///< the main file and its continuations, in order
    std::filesystem::path override_file;         ///< whose text corrects the header; empty for none
    std::vector<std::filesystem::path>
        unread; ///< that belong to it and could not be read, or follow one that could not
};

} // namespace Riegl
