#pragma once

#include "exit_code.hpp"

#include <cstdint>
#include <functional>
#include <string>

namespace host {

/// What became of work in a process of its own.
struct contained_result {
    exit_code code = exit_code::good;
    std::string told;    ///< what the work appended to its text
    std::string failure; ///< why it did not come to its end; empty where it did
};

/// Processor time that work on a K7 file may take: far more than any sound one of its size needs.
std::uint64_t most_seconds(const std::string& file);

/// Runs work that reads a foreign K7 file in a child process with bounded memory and processor
/// time: the storage library is known to crash, and to go on for ever, on files whose inner
/// structures are damaged. Such an end gives `input_damaged` and a text with its cause, as does a
/// lack of memory; other exceptions of the work give `internal_failure`. What the work leaves in
/// the buffer of standard output is lost. It ends where this process is ended, and a broken pipe
/// ends both. Throws std::system_error where no process can be made.
contained_result run_contained(std::uint64_t seconds,
                               const std::function<exit_code(std::string& told)>& work);

} // namespace host
