#include "time_range.hpp"

#include "numbers.hpp"

#include <limits>

namespace host {

std::pair<double, double> read_time_range(const std::string& option, const std::string& text) {
    constexpr double any = std::numeric_limits<double>::max();
    const auto colon = text.find(':');
    if (colon == std::string::npos) {
        throw CLI::ValidationError(option, "\"" + text + "\" is not of the form MIN:MAX");
    }
    const double least = parse_real(option, text.substr(0, colon), -any, any);
    const double greatest = parse_real(option, text.substr(colon + 1), -any, any);
    if (least > greatest) {
        throw CLI::ValidationError(option, "MIN is above MAX in \"" + text + "\"");
    }
    return {least, greatest};
}

} // namespace host
