#pragma once

#include <string>
#include <utility>

namespace host {

/// "MIN:MAX" as two numbers, in seconds; throws CLI::ValidationError, naming the option, if it is
/// anything else or MIN is above MAX.
std::pair<double, double> read_time_range(const std::string& option, const std::string& text);

} // namespace host
