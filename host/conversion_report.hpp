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
    int ended_by = 0;        ///< signal that kept it from coming to its end, 0 for none
    bool skipped = false;    ///< the output was there already; `summary` has its counts
    bool summarised = false; ///< the library came so far as to tell the summary
    double seconds = 0;
    exit_code code = exit_code::good;
};

/// What of a result goes to the end of all.
struct conversion_outcome {
    exit_code code = exit_code::good;
    int ended_by = 0;
    bool skipped = false;
    std::string json;
};

/// The JSON is one line without its end.
conversion_outcome outcome_of(const conversion_result& result);

/// An input whose turn did not come before a signal did.
conversion_result not_converted(const std::string& input, const std::string& output, int signal);

/// Tells a failure on standard error; nothing for a good result.
void report_failure(const conversion_result& result);

/// Prints the closing summary of one conversion on standard output; nothing if none took place.
void print_summary(const conversion_result& result);

/// All results as one JSON object and a line end.
std::string json_of(const std::vector<conversion_outcome>& outcomes);

} // namespace host
