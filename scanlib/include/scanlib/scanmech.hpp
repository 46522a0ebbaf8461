#pragma once

#include "scanlib/half_angle.hpp"
#include "scanlib/json_writer.hpp"
#include "scanlib/vector3.hpp"

#include <boost/property_tree/ptree_fwd.hpp>

#include <cstdint>
#include <memory>

namespace scanlib {

/// Numbers of the scanner models.
enum scanmech_kind : std::uint32_t {
    kind_scanmech = 0,
    kind_mirrorwheel = 1,
    kind_wedge = 2,
    kind_mirrorwheel_exitpane = 3,
    kind_mirrorwheel_deflection = 4,
    kind_mirrorwheel_biaxial = 5,
    kind_mirrorwheel_nodding = 7,
    kind_gimbalmountmirror = 8,
    kind_mirrorwheel_deflection_windowdistortion = 9,
    kind_mirrorwheel_windowdistortion = 10,
    kind_wedge_scanconedistortion = 11,
    kind_mirrorwheel_scanconedistortion = 12,
    kind_mirrorwheel_facetsurfacedistortion = 13,
    kind_mirrorwheel_facetsurfacedistortion_D = 14,
    kind_mirrorwheel_fanbeam = 15,
};

/// Computes for a pair of line and frame encoder counts where the laser beam leaves the scanner and
/// in which direction. Each derived class models one optical layout; this class is the plain one:
/// the beam leaves the origin towards polar angle `line_angle` and azimuth `frame_angle`.
///
/// Fill in the parameters, call `initialise` of the class, then ask with `set_counts` for each shot
/// and `position` for each echo. Angles are in radians, lengths in metres. The owner of the beam
/// gives two addresses at construction, both of which must outlive the object and its copies.
class scanmech {
  public:
    /// Zeroes both and writes the beam there from then on. A copy writes to the same places.
    scanmech(vector3* beam_origin_out, vector3* beam_direction_out);
    virtual ~scanmech();

    /// Number of the class, one of scanmech_kind.
    virtual std::uint32_t kind() const;

    /// Number of mirror facets; 0 for a model without.
    virtual std::uint32_t facet_count() const;

    /// The beam for a facet and the angles of the line and frame movements.
    virtual void set_angles(std::uint32_t facet_index, double line, double frame);

    /// The beam for encoder counts: sets `facet`, `line_angle` and `frame_angle` and the beam that
    /// follows.
    virtual void set_counts(std::uint32_t line, std::uint32_t frame, std::uint32_t segment);

    /// The point at a range along the beam of the last call.
    virtual void position(vector3& out, double range) const;

    /// Whether points lie on the beam, so that origin + range * direction is what `position` tells.
    bool points_on_beam() const noexcept { return points_on_beam_; }

    /// Writes the members of the class's JSON object behind its "kind".
    virtual void write_members(json_writer& out) const;

    /// Takes over those members of the class's JSON object that `tree` holds; `initialise` is due
    /// then. Throws std::runtime_error that names the member for one that is malformed.
    virtual void read_members(const boost::property_tree::ptree& tree);

    /// Writes the JSON object: "kind", then the members.
    void write(json_writer& out) const;

    /// Prepares what follows from the parameters.
    void initialise();

    /// A new object of class number `kind`. Throws std::runtime_error "scanmech::create: unknown
    /// kind" for a number that no class has or whose class is not made by number.
    static std::unique_ptr<scanmech> create(std::uint32_t kind, vector3* beam_origin_out,
                                            vector3* beam_direction_out);

    double range_unit = 1.0; ///< metres for each count of a range
    std::uint32_t line_circle_count = 4294967295;
    std::uint32_t frame_circle_count = 4294967295;

    std::uint32_t facet = 0;
    double line_angle = 0;
    double frame_angle = 0;

  protected:
    scanmech(const scanmech&) = default;
    scanmech& operator=(const scanmech&) = default;

    /// Brings the sines and cosines up to date; an angle that did not change costs nothing.
    void turn(double line, double frame) noexcept {
        if (line != turned_line_) {
            turned_line_ = line;
            line_turn_ = half_angle(line);
        }
        if (frame != turned_frame_) {
            turned_frame_ = frame;
            frame_turn_ = half_angle(frame);
        }
    }

    vector3* beam_origin_out_;
    vector3* beam_direction_out_;
    bool points_on_beam_ = true; ///< cleared by models with a `position` of their own
    double line_unit_ = 0;       ///< radians for each count
    double frame_unit_ = 0;
    sine_cosine line_turn_;
    sine_cosine frame_turn_;

  private:
    double turned_line_ = 0;
    double turned_frame_ = 0;
};

} // namespace scanlib
