#pragma once

#include "exit_code.hpp"

#include "frontend/inspection.hpp"

#include <string>
#include <utility>

namespace host {

/// What became of an inspection.
struct inspection_result {
    std::string input;  ///< as given on the command line
    std::string folder; ///< of the PDFs, as given
    std::pair<double, double> time_range{0, 0};
    std::string text; ///< what ended the reading, or why nothing was drawn
    Riegl::InspectionSummary summary;
    bool summarised = false; ///< the library came so far as to tell the summary
    bool stopped = false;    ///< the stream was not read to its end
    double seconds = 0;
    exit_code code = exit_code::good;
};

/// Why a stream that was read to its end gave no PDF; empty if it gave one, or only failed to.
std::string reason_nothing_drawn(const inspection_result& result);

/// Tells failures on standard error; nothing for a good result.
void report_failure(const inspection_result& result);

/// Prints what was drawn on standard output; nothing if the library did not run.
void print_summary(const inspection_result& result);

/// The result as one JSON object and a line end, in the form that conversions have.
std::string json_of(const inspection_result& result);

} // namespace host
