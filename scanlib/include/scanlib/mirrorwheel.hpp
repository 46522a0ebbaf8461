#pragma once

#include "scanlib/scanmech.hpp"
#include "scanlib/turning_normal.hpp"

#include <algorithm>
#include <vector>

namespace scanlib {

/// A plane mirror: the points x with normal . x = dist.
struct mirror_facet {
    vector3 normal{1, 0, 0};
    double dist = 0;
};

/// A wheel of plane mirror facets that turns about an axis and reflects a fixed laser; the whole
/// turns about the z axis with the frame movement.
class mirrorwheel : public scanmech {
  public:
    /// One facet, and initialised for it.
    mirrorwheel(vector3* beam_origin_out, vector3* beam_direction_out);
    mirrorwheel(const mirrorwheel&) = default;
    mirrorwheel& operator=(const mirrorwheel&) = default;

    std::uint32_t kind() const override;
    std::uint32_t facet_count() const override;
    void set_angles(std::uint32_t facet_index, double line, double frame) override;
    /// The segment plays no part.
    void set_counts(std::uint32_t line, std::uint32_t frame, std::uint32_t segment) override;
    void write_members(json_writer& out) const override;
    void read_members(const boost::property_tree::ptree& tree) override;

    /// Prepares what follows from the parameters. Throws scanlib_exception when there are no
    /// facets.
    void initialise();

    vector3 laser_origin{0, 0, 0};
    vector3 laser_direction{0, 0, 1};
    vector3 mirror_axis_origin{0, 0, 0};
    vector3 mirror_axis_direction{0, 1, 0};
    std::int32_t line_angle_0 = 0; ///< line count at which each facet is at angle 0
    std::vector<mirror_facet> facets{mirror_facet{}};

  protected:
    /// A facet, prepared for turning about the mirror axis.
    struct turning_facet {
        turning_normal normal;
        double dist;
    };

    /// First step of `set_counts`: facet and angles.
    void locate(std::uint32_t line, std::uint32_t frame) noexcept;

    /// Steps of `set_angles` ahead of the frame rotation: fills the three scratch vectors. A facet
    /// beyond the table is the last one.
    void reflect(std::uint32_t facet_index, double line, double frame) noexcept {
        turn(line, frame);
        const turning_facet& f =
            facet_table_[std::min<std::size_t>(facet_index, facet_table_.size() - 1)];
        const vector3 n = f.normal.turned(line_turn_);
        rotated_normal_ = n;
        reflected_direction_ = laser_direction - 2 * dot(laser_direction, n) * n;
        reflected_origin_ = laser_origin - 2 * (dot(laser_to_axis_, n) - f.dist) * n;
    }

    /// Writes the beam, turned about z by the frame angle.
    void send_turned(const vector3& origin, const vector3& direction) noexcept {
        const double sine = frame_turn_.sine;
        const double cosine = frame_turn_.cosine;
        const vector3 turned_origin = turned_about_z(origin, sine, cosine);
        const vector3 turned_direction = turned_about_z(direction, sine, cosine);
        *beam_direction_out_ = turned_direction;
        *beam_origin_out_ = turned_origin;
    }

    std::vector<turning_facet> facet_table_;
    std::uint32_t counts_per_facet_ = 0;
    vector3 laser_to_axis_{};
    vector3 rotated_normal_{};
    vector3 reflected_direction_{};
    vector3 reflected_origin_{};

  private:
    void find_facet(std::uint32_t line) noexcept;

    std::uint32_t located_facet_ = 0; ///< of the last count
    std::uint32_t facet_begin_ = 0;   ///< first count of that facet
};

} // namespace scanlib
