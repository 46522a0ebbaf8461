#pragma once

#include "scanlib/scanmech.hpp"
#include "scanlib/turning_normal.hpp"

namespace scanlib {

/// A refracting wedge that turns about an axis in front of a fixed laser (refraction at two plane
/// surfaces, as vectors). The origin of the beam lies back along the exit ray by the optical path,
/// so that ranges that count from the laser hold from there. Where no ray leaves the wedge, the
/// beam is NaN.
class wedge : public scanmech {
  public:
    wedge(vector3* beam_origin_out, vector3* beam_direction_out);
    wedge(const wedge&) = default;
    wedge& operator=(const wedge&) = default;

    std::uint32_t kind() const override;
    /// Facet and frame angle play no part.
    void set_angles(std::uint32_t facet_index, double line, double frame) override;
    /// The facet is the segment, the frame angle 0.
    void set_counts(std::uint32_t line, std::uint32_t frame, std::uint32_t segment) override;
    void write_members(json_writer& out) const override;
    void read_members(const boost::property_tree::ptree& tree) override;

    /// Prepares what follows from the parameters.
    void initialise();

    vector3 laser_origin{0, 0, 0};
    vector3 laser_direction{0, 0, 1};
    vector3 wedge_axis_origin{0, 0, 0}; ///< where the axis meets the first surface
    vector3 wedge_axis_direction{0, 0, 1};
    vector3 facet1_direction{0, 0, -1}; ///< normal of the first surface, against the ray
    vector3 facet2_direction{0, 0, 1};  ///< normal of the second surface, along the ray
    double dist = 0; ///< the second surface meets the axis at the origin - dist * direction
    double refraction_index = 1;

  protected:
    /// Writes the members that come before those of the wedge proper.
    void write_head(json_writer& out) const;
    void write_wedge(json_writer& out) const;

  private:
    turning_normal facet1_;
    turning_normal facet2_;
    double k_ = 0;       ///< refraction index squared - 1
    vector3 to_first_{}; ///< from the laser to a point of each surface
    vector3 to_second_{};
};

} // namespace scanlib
