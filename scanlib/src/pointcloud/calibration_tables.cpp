#include "scanlib/calibration_tables.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace scanlib {

calibration_curve::calibration_curve(pairs_type pairs) : pairs_(std::move(pairs)) {
    reach_.reserve(pairs_.size());
    double reach = -std::numeric_limits<double>::infinity();
    for (const auto& [x, y] : pairs_) {
        reach = std::fmax(reach, x);
        reach_.push_back(reach);
    }
}

double calibration_curve::operator()(double v) const noexcept {
    if (pairs_.empty() || std::isnan(v)) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    const auto found = std::lower_bound(reach_.begin(), reach_.end(), v);
    const auto i = std::min(static_cast<std::size_t>(found - reach_.begin()), pairs_.size() - 1);
    const auto [x, y] = pairs_[i];
    if (i == 0) {
        return y;
    }
    const auto [x_before, y_before] = pairs_[i - 1];
    if (x == x_before) {
        return y;
    }
    const double w = (x - v) / (x - x_before);
    return (1 - w) * y + w * y_before;
}

void calibration_tables::set(std::uint16_t id, calibration_curve::pairs_type pairs) {
    curves_.insert_or_assign(id, calibration_curve(std::move(pairs)));
}

const calibration_curve& calibration_tables::curve(std::uint16_t id) const noexcept {
    static const calibration_curve none;
    const auto found = curves_.find(id);
    return found != curves_.end() ? found->second : none;
}

} // namespace scanlib
