#include "simulator/echoes_in_flight.hpp"

#include <algorithm>
#include <iterator>

namespace simulator {

const std::vector<flying_echo>& echoes_in_flight::land(std::uint64_t now, const instrument& clock) {
    /// How much of its way is left at `now`, in metres of range.
    const auto left = [&](const flying_echo& e) {
        return e.echo.range - clock.range_between(e.shot_ticks, now);
    };
    const auto still_up = std::stable_partition(flying_.begin(), flying_.end(),
                                                [&](const auto& e) { return left(e) >= 0; });
    landed_.assign(still_up, flying_.end());
    flying_.erase(still_up, flying_.end());
    std::stable_sort(landed_.begin(), landed_.end(),
                     [&](const auto& a, const auto& b) { return left(a) < left(b); });
    return landed_;
}

} // namespace simulator
