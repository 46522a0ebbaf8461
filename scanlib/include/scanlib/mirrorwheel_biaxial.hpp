#pragma once

#include "scanlib/mirrorwheel.hpp"

namespace scanlib {

/// Shift of the points at a range (both in metres).
struct biaxial_node {
    double range = 0;
    double shift = 0;
};

/// A mirror wheel whose receiver looks past the laser by a little: near points are shifted along
/// the mirrored direction of the receiver's offset.
class mirrorwheel_biaxial final : public mirrorwheel {
  public:
    mirrorwheel_biaxial(vector3* beam_origin_out, vector3* beam_direction_out);
    /// A wheel, given a receiver beside its laser.
    explicit mirrorwheel_biaxial(const mirrorwheel& wheel);

    std::uint32_t kind() const override;
    void set_angles(std::uint32_t facet_index, double line, double frame) override;
    void position(vector3& out, double range) const override;
    void write_members(json_writer& out) const override;
    void read_members(const boost::property_tree::ptree& tree) override;

    /// Prepares what follows from the parameters. Throws as mirrorwheel::initialise does.
    void initialise();

    /// Direction of the shift for the beam of the last call.
    const vector3& shift_direction() const noexcept { return shift_direction_; }

    vector3 aperture_direction{1, 0, 0};
    std::vector<biaxial_node> biaxial_shift; ///< in ascending range; without, no shift

  private:
    static constexpr std::size_t entries = 1000;

    double shift_at(double range) const noexcept;

    vector3 shift_direction_{};
    double max_range_ = 0;
    double step_ = 0; ///< metres from entry to entry
    std::vector<double> shifts_;
};

} // namespace scanlib
