#pragma once

#include "verify_findings.hpp"

#include <cstdint>
#include <string>

namespace host {

/// Whether an output need not be made again.
struct done_output {
    bool done = false;
    std::string reason;      ///< why not
    k7_counts counts;        ///< of one that is done
    std::uint64_t bytes = 0; ///< its size
};

/// An output counts as done if it is whole, was written by this version, and is newer than every
/// file of its recording: no .part stands beside it, and it has the structure that verify asks for;
/// its values are not read. A live stream's output never counts. Which options it was made with is
/// not known. The file is read in a process of its own.
done_output find_done(const std::string& input, const std::string& output);

/// Makes an output no newer than its recording. What was made of a damaged recording is to be
/// tried, and told, again.
void keep_from_counting_as_done(const std::string& input, const std::string& output);

} // namespace host
