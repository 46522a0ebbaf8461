#pragma once

#include "scanlib/scanmech.hpp"
#include "scanlib/turning_normal.hpp"

namespace scanlib {

/// One plane mirror that turns about two axes: with the line movement about the inner, and with the
/// frame movement, inner axis and all, about the outer.
class gimbalmountmirror final : public scanmech {
  public:
    gimbalmountmirror(vector3* beam_origin_out, vector3* beam_direction_out);

    std::uint32_t kind() const override;
    /// The facet plays no part.
    void set_angles(std::uint32_t facet_index, double line, double frame) override;
    /// The facet is 0; the segment plays no part.
    void set_counts(std::uint32_t line, std::uint32_t frame, std::uint32_t segment) override;
    void write_members(json_writer& out) const override;
    void read_members(const boost::property_tree::ptree& tree) override;

    /// Prepares what follows from the parameters.
    void initialise();

    vector3 laser_origin{0, 0, 0};
    vector3 laser_direction{0, 0, 1};
    vector3 line_mirror_axis_origin{0, 0, 0};
    vector3 line_mirror_axis_direction{0, 1, 0};
    vector3 frame_mirror_axis_origin{0, 0, 0};
    vector3 frame_mirror_axis_direction{0, 0, 1};
    vector3 facet_direction{1, 0, 0}; ///< normal of the mirror
    double dist = 0;                  ///< of the mirror from the line axis, along its normal

  private:
    turning_normal facet_;
};

} // namespace scanlib
