#pragma once

namespace host {

/// How the program ended. Batch engines read these; the numbers stay.
enum class exit_code : int {
    good = 0,
    internal_failure = 1,
    usage = 2,
    input_unreadable = 3,
    input_damaged = 4, ///< what could be read is stored or shown
    output_failed = 5,
    some_inputs_failed = 6,
};

} // namespace host
