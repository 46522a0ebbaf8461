#pragma once

#include "scanlib/mirrorwheel.hpp"

namespace scanlib {

/// A mirror wheel whose beam leaves through a plane-parallel plate. The plate moves the beam aside
/// and lengthens its optical path; the direction stays (refraction at two parallel surfaces).
class mirrorwheel_exitpane final : public mirrorwheel {
  public:
    mirrorwheel_exitpane(vector3* beam_origin_out, vector3* beam_direction_out);
    /// A wheel, given a pane.
    explicit mirrorwheel_exitpane(const mirrorwheel& wheel);

    std::uint32_t kind() const override;
    void set_angles(std::uint32_t facet_index, double line, double frame) override;
    void write_members(json_writer& out) const override;
    void read_members(const boost::property_tree::ptree& tree) override;

    /// Prepares what follows from the parameters. Throws as mirrorwheel::initialise does.
    void initialise();

    double exit_pane_thickness = 0;
    double exit_pane_index = 1;           ///< refractive index
    vector3 exit_pane_direction{0, 0, 1}; ///< normal, before the frame rotation

  private:
    double k_ = 0;               ///< 1 - index squared
    vector3 shift_{};            ///< thickness along the normal
    std::array<vector3, 3> m_{}; ///< rows of thickness * (k identity - normal normal')
};

} // namespace scanlib
