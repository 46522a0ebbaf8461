#pragma once

#include "conversion_options.hpp"
#include "conversion_report.hpp"

#include <vector>

namespace host {

/// Converts all inputs, `options.jobs` at a time, each in a process of its own, so that one that
/// crashes is a failed input and no more. Messages go to standard error as they come, summaries to
/// standard output in the order of the inputs, as does what is returned. After a signal no further
/// input begins, and those that run end as in a process alone.
std::vector<conversion_outcome> convert_in_processes(const convert_options& options);

} // namespace host
