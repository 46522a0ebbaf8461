#pragma once

#include "conversion_options.hpp"
#include "conversion_report.hpp"
#include "end_request.hpp"
#include "progress.hpp"

#include <string>

namespace host {

/// Converts one input in this process, or finds that it is done already. Messages of the library
/// go to standard error; `shown` is cleared before each.
conversion_result convert_one(const convert_options& options, const std::string& input,
                              progress_view& shown, end_request& end);

} // namespace host
