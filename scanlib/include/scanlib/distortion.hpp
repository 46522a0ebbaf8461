#pragma once

#include "scanlib/json_writer.hpp"
#include "scanlib/quaternion.hpp"

#include <boost/property_tree/ptree_fwd.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace scanlib {

/// Two small rotations (radians), about the s axis and about the t axis.
struct distortion_node {
    double s_rot_angle = 0;
    double t_rot_angle = 0;
};

/// Evenly spaced rotations, by which a model turns its final beam.
class distortion_table {
  public:
    /// Entries of a table over a whole turn: one for each 1024th, and the closing one.
    static constexpr std::size_t turn_entries = 1025;

    /// One entry a node, the rotation about the s axis behind that about the t axis.
    void build_window(const std::vector<distortion_node>& nodes, const vector3& s_axis,
                      const vector3& t_axis);

    /// Entries over a whole turn, from nodes that are evenly spaced over the turn, as a spline. The
    /// beam `beam_direction_0` turns about `axis`; the t axis is perpendicular to both, the s axis
    /// to the t axis and the beam, and both turn along. The spline is asked for each angle modulo
    /// 1 / `teeth` turn (0 counts as 1).
    ///
    /// Throws std::runtime_error with the text `too_small` for fewer than 4 nodes.
    void build_turn(const std::vector<distortion_node>& nodes, const vector3& axis,
                    const vector3& beam_direction_0, std::uint32_t teeth, const char* too_small);

    /// Turns `v` by the rotation at a place of the table, counted in entries. Without entries on
    /// both sides nothing happens; a place between -1 and 0 continues the first interval.
    void turn_at(double place, vector3& v) const noexcept {
        const auto last = static_cast<double>(rotations_.size()) - 1;
        // Also false for a NaN, and for a table of less than two entries, whose `last` is at most
        // 0.
        if (!(place > -1 && place < last)) {
            return;
        }
        const auto i = static_cast<std::ptrdiff_t>(place);
        const quaternion* entry = rotations_.data() + i;
        v = rotated_between(entry[0], entry[1], place - static_cast<double>(i), v);
    }

    /// Turns `v` by the rotation at an angle of the turn.
    void turn_at_angle(double angle, vector3& v) const noexcept {
        turn_at(angle * inverse_step, v);
    }

    std::size_t size() const noexcept { return rotations_.size(); }

  private:
    static constexpr double step = 0.006135923151542565;       ///< 2 pi / 1024
    static constexpr double inverse_step = 162.97466172610082; ///< 1024 / 2 pi

    std::vector<quaternion> rotations_;
};

/// What a curved window in front of a wheel does to the beam: parameters and table, shared by the
/// models that have one. The table is entered by the beam itself, with its component along the s
/// axis.
class window_distortion {
  public:
    vector3 t_axis{0, 1, 0};
    vector3 s_axis{0, 0, 1};
    double angle_sin_min = -0.5; ///< component of the beam at the first node
    double angle_sin_inc = 0.25; ///< from node to node
    std::vector<distortion_node> nodes;

  protected:
    void build_window() { window_table_.build_window(nodes, s_axis, t_axis); }
    void bend_by_window(vector3& direction) const noexcept;
    /// Writes the members but for the nodes, which stand further ahead.
    void write_window(json_writer& out) const;
    void read_window(const boost::property_tree::ptree& tree);

  private:
    distortion_table window_table_;
};

} // namespace scanlib
