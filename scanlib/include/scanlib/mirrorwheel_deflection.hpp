#pragma once

#include "scanlib/mirrorwheel.hpp"

namespace scanlib {

/// A mirror wheel with a fixed plane mirror behind it. The line count is the angle of the wheel
/// over the whole turn; the facet follows from the place at which the fixed mirror stands.
class mirrorwheel_deflection : public mirrorwheel {
  public:
    mirrorwheel_deflection(vector3* beam_origin_out, vector3* beam_direction_out);
    /// A wheel, given a second mirror.
    explicit mirrorwheel_deflection(const mirrorwheel& wheel);
    mirrorwheel_deflection(const mirrorwheel_deflection&) = default;
    mirrorwheel_deflection& operator=(const mirrorwheel_deflection&) = default;

    std::uint32_t kind() const override;
    void set_angles(std::uint32_t facet_index, double line, double frame) override;
    /// The segment plays no part.
    void set_counts(std::uint32_t line, std::uint32_t frame, std::uint32_t segment) override;
    void write_members(json_writer& out) const override;
    void read_members(const boost::property_tree::ptree& tree) override;

    /// Prepares what follows from the parameters. Throws as mirrorwheel::initialise does.
    void initialise();

    vector3 deflection_mirror_origin{0, 0, 0};    ///< a point of the mirror
    vector3 deflection_mirror_direction{0, 0, 1}; ///< its normal

  protected:
    /// Writes the members of the second mirror alone.
    void write_deflection(json_writer& out) const;

  private:
    double phase_ = 0;
    double facets_per_turn_ = 0; ///< facets for each radian
    vector3 image_shift_{};      ///< image of the origin in the mirror
};

} // namespace scanlib
