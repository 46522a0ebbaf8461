#pragma once

#include "scanlib/mirrorwheel.hpp"

namespace scanlib {

/// A mirror wheel with a second plane mirror behind it that nods about an axis of its own with the
/// frame movement, in place of the rotation about z.
class mirrorwheel_nodding final : public mirrorwheel {
  public:
    mirrorwheel_nodding(vector3* beam_origin_out, vector3* beam_direction_out);
    /// A wheel, given a nodding mirror.
    explicit mirrorwheel_nodding(const mirrorwheel& wheel);

    std::uint32_t kind() const override;
    void set_angles(std::uint32_t facet_index, double line, double frame) override;
    void write_members(json_writer& out) const override;
    void read_members(const boost::property_tree::ptree& tree) override;

    /// Prepares what follows from the parameters. Throws as mirrorwheel::initialise does.
    void initialise();

    vector3 nodding_axis_origin{0, 0, 0};
    vector3 nodding_axis_direction{0, 1, 0};
    mirror_facet nodding_facet; ///< its dist counts from the nodding axis

  private:
    turning_normal nodding_normal_;
};

} // namespace scanlib
