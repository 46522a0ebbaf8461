#pragma once

#include "scanlib/distortion.hpp"
#include "scanlib/mirrorwheel.hpp"

namespace scanlib {

/// What the models share whose wheel bends the beam by a table over its turn. A wheel of one facet
/// enters the table with the angle that `set_angles` gets; one of several facets with the angle of
/// the whole turn, in `set_counts` only, which then leaves that angle in `line_angle`.
class turn_distorted_wheel : public mirrorwheel {
  public:
    void set_angles(std::uint32_t facet_index, double line, double frame) override;
    void set_counts(std::uint32_t line, std::uint32_t frame, std::uint32_t segment) override;

    vector3 beam_direction_0{0, 0, 0};  ///< undistorted beam at angle 0
    std::vector<distortion_node> nodes; ///< at least 4, evenly spaced over the turn

  protected:
    using mirrorwheel::mirrorwheel;
    explicit turn_distorted_wheel(const mirrorwheel& wheel);
    turn_distorted_wheel(const turn_distorted_wheel&) = default;
    turn_distorted_wheel& operator=(const turn_distorted_wheel&) = default;

    void read_members(const boost::property_tree::ptree& tree) override;

    distortion_table table_;
};

/// A mirror wheel whose beam leaves its cone by a little, differently over the turn.
class mirrorwheel_scanconedistortion final : public turn_distorted_wheel {
  public:
    mirrorwheel_scanconedistortion(vector3* beam_origin_out, vector3* beam_direction_out);
    /// A wheel, given a distortion; `beam_direction_0` is to be filled in.
    explicit mirrorwheel_scanconedistortion(const mirrorwheel& wheel);

    std::uint32_t kind() const override;
    void write_members(json_writer& out) const override;
    void read_members(const boost::property_tree::ptree& tree) override;

    /// Prepares what follows from the parameters. Throws as mirrorwheel::initialise does, and
    /// std::runtime_error "scanconedistortion table too small" for fewer than 4 nodes.
    void initialise();

    vector3 cone_axis_direction{0, 1, 0};
};

} // namespace scanlib
