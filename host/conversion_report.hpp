#pragma once

#include "exit_code.hpp"

#include "frontend/conversion.hpp"

#include <string>
#include <vector>

namespace host {

/// What became of one input.
struct conversion_result {
    std::string input; ///< as given on the command line
    std::string output;
    std::string text;   ///< what the conversion returned, or why it could not run
    std::string errors; ///< warnings and errors collected on the way
    Riegl::ConversionSummary summary;
    bool interrupted_by_user = false; ///< by a signal that did not end the process at once
    bool summarised = false;          ///< the library came so far as to tell the summary
    double seconds = 0;
    exit_code code = exit_code::good;
};

/// Tells a failure on standard error, in one line; nothing for a good result.
void report_failure(const conversion_result& result);

/// Prints the closing summary of one conversion on standard output; nothing if none took place.
void print_summary(const conversion_result& result);

/// All results as one JSON object and a line end.
std::string json_of(const std::vector<conversion_result>& results);

} // namespace host
