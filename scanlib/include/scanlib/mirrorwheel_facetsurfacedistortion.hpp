#pragma once

#include "scanlib/mirrorwheel_scanconedistortion.hpp"

namespace scanlib {

/// What the two models share whose facets are not quite plane.
class facet_surface_wheel : public turn_distorted_wheel {
  public:
    void write_members(json_writer& out) const override;
    void read_members(const boost::property_tree::ptree& tree) override;

    /// Prepares what follows from the parameters. A `beam_direction_0` of zeroes stands for the
    /// beam of facet 0 at angle 0. Throws as mirrorwheel::initialise does, and std::runtime_error
    /// "facetsurfacedistortion table too small" for fewer than 4 nodes.
    void initialise();

    vector3 rotation_axis_for_s_t_axes{0, 1, 0};
    double facet_distance = 0; ///< kept and told, without effect on the beam

  protected:
    using turn_distorted_wheel::turn_distorted_wheel;
};

/// A mirror wheel with facets that are not quite plane.
class mirrorwheel_facetsurfacedistortion final : public facet_surface_wheel {
  public:
    mirrorwheel_facetsurfacedistortion(vector3* beam_origin_out, vector3* beam_direction_out);
    /// A wheel, given a distortion.
    explicit mirrorwheel_facetsurfacedistortion(const mirrorwheel& wheel);
    std::uint32_t kind() const override;
};

/// The same for the other form of the packet.
class mirrorwheel_facetsurfacedistortion_D final : public facet_surface_wheel {
  public:
    mirrorwheel_facetsurfacedistortion_D(vector3* beam_origin_out, vector3* beam_direction_out);
    /// A wheel, given a distortion.
    explicit mirrorwheel_facetsurfacedistortion_D(const mirrorwheel& wheel);
    std::uint32_t kind() const override;
};

} // namespace scanlib
