#pragma once

#include "scanlib/distortion.hpp"
#include "scanlib/mirrorwheel_deflection.hpp"

namespace scanlib {

/// A mirror wheel with a fixed second mirror, behind a curved window.
class mirrorwheel_deflection_windowdistortion final : public mirrorwheel_deflection,
                                                      public window_distortion {
  public:
    mirrorwheel_deflection_windowdistortion(vector3* beam_origin_out, vector3* beam_direction_out);
    /// A wheel with its second mirror, given a window.
    explicit mirrorwheel_deflection_windowdistortion(const mirrorwheel_deflection& wheel);

    std::uint32_t kind() const override;
    void set_angles(std::uint32_t facet_index, double line, double frame) override;
    void write_members(json_writer& out) const override;
    void read_members(const boost::property_tree::ptree& tree) override;

    /// Prepares what follows from the parameters. Throws as mirrorwheel::initialise does.
    void initialise();
};

} // namespace scanlib
