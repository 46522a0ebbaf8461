#pragma once

#include "simulator/instrument.hpp"

#include <cstdint>
#include <vector>

namespace simulator {

/// An echo on its way back, and the shot that it belongs to.
struct flying_echo {
    std::uint64_t shot_ticks; ///< high-resolution counter at the shot
    received_echo echo;       ///< with the true range
};

/// The echoes of a scanner that fires again before far ones are back.
class echoes_in_flight {
  public:
    void launch(std::uint64_t shot_ticks, const received_echo& echo) {
        flying_.push_back({shot_ticks, echo});
    }

    /// Takes out what returns before the counter reads `now`, in order of return. The list stays
    /// until the next call.
    const std::vector<flying_echo>& land(std::uint64_t now, const instrument& clock);

    /// Forgets what is still on its way.
    void clear() noexcept { flying_.clear(); }

  private:
    std::vector<flying_echo> flying_;
    std::vector<flying_echo> landed_;
};

} // namespace simulator
