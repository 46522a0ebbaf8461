#pragma once

#include "scanlib/packet_emitter.hpp"
#include "scanlib/scanmech.hpp"
#include "simulator/settings.hpp"
#include "simulator/vectors.hpp"

#include <functional>
#include <memory>

namespace simulator {

/// Circle counts and range unit that all models share.
struct optics_units {
    float range_unit; ///< m
    std::uint32_t line_circle_count;
    std::uint32_t frame_circle_count;
};

/// The optics of a scanner: a model with a believable set of parameters, that a reader can build
/// again from the packets that `tell` writes. Packets hold 32-bit numbers, and the model computes
/// with exactly those.
class optics {
  public:
    /// Writes the beam to the two vectors, which outlive the object.
    optics(mechanics model, const optics_units& units, vector3* beam_origin,
           vector3* beam_direction);

    /// The beam for encoder counts.
    void aim(std::uint32_t line, std::uint32_t frame) { mech_->set_counts(line, frame, 0); }

    /// The place at a range (m) along the beam, as the model sees it.
    vector3 position(double range) const {
        vector3 place{};
        mech_->position(place, range);
        return place;
    }

    /// Writes the geometry packets.
    void tell(scanlib::packet_emitter& out) const { tell_(out); }

    /// Columns of the fan of beams, told by the packet, and rows, told by each echo.
    static constexpr std::uint32_t fan_columns = 2;
    static constexpr std::uint32_t fan_rows = 4;

    /// In a model with many beams: the beam of a column and row, for the counts of the last `aim`.
    void select_beam(std::uint32_t column, std::uint32_t row);

    /// Everything of a model: itself, and how its packets are written.
    struct model {
        std::unique_ptr<scanlib::scanmech> mech;
        std::function<void(scanlib::packet_emitter&)> tell;
    };

  private:
    std::unique_ptr<scanlib::scanmech> mech_;
    std::function<void(scanlib::packet_emitter&)> tell_;
};

/// Whether the line mirror of a model swings a little to and fro instead of turning.
bool line_swings(mechanics model) noexcept;
/// The same of its frame movement.
bool frame_swings(mechanics model) noexcept;

} // namespace simulator
