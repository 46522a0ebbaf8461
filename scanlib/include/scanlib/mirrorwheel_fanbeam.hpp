#pragma once

#include "scanlib/mirrorwheel.hpp"

namespace scanlib {

/// Rotations (radians) that make one laser of a fan from the base direction: first by `alpha_0`
/// about the first axis, then by `alpha_1` about the second.
struct fan_angles {
    double alpha_0 = 0;
    double alpha_1 = 0;
};

/// A mirror wheel with a grid of laser beams.
class mirrorwheel_fanbeam final : public mirrorwheel {
  public:
    mirrorwheel_fanbeam(vector3* beam_origin_out, vector3* beam_direction_out);
    /// A wheel, given a fan.
    explicit mirrorwheel_fanbeam(const mirrorwheel& wheel);

    std::uint32_t kind() const override;
    /// The base beam.
    void set_angles(std::uint32_t facet_index, double line, double frame) override;
    void write_members(json_writer& out) const override;
    void read_members(const boost::property_tree::ptree& tree) override;

    /// Prepares what follows from the parameters, `laser_direction` being the base. Throws as
    /// mirrorwheel::initialise does.
    void initialise();

    /// The beam of column `i` and row `j` of the grid, for the facet and angles of the last
    /// `set_counts`. Leaves `laser_direction` at that laser until the next `set_angles`. Beyond the
    /// grid it is the last laser, and the base beam of a fan without lasers.
    void select_beam(std::uint32_t i, std::uint32_t j);

    std::uint32_t num_angles_0 = 0; ///< columns
    std::uint32_t num_angles_1 = 0; ///< rows
    vector3 rotation_axis_0{1, 0, 0};
    vector3 rotation_axis_1{0, 1, 0};
    std::vector<fan_angles> rotation_angles; ///< row by row

  private:
    vector3 base_direction_{};
    std::vector<vector3> directions_;
};

} // namespace scanlib
