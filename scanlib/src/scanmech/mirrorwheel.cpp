#include "scanlib/mirrorwheel.hpp"

#include "scanlib/json_members.hpp"
#include "scanlib/scanlib_exception.hpp"

namespace scanlib {

mirrorwheel::mirrorwheel(vector3* beam_origin_out, vector3* beam_direction_out)
    : scanmech(beam_origin_out, beam_direction_out) {
    initialise();
}

std::uint32_t mirrorwheel::kind() const {
    return kind_mirrorwheel;
}

std::uint32_t mirrorwheel::facet_count() const {
    return static_cast<std::uint32_t>(facets.size());
}

void mirrorwheel::initialise() {
    scanmech::initialise();
    if (facets.empty()) {
        throw scanlib_exception("mirrorwheel::initialise: no facets", "scanlib/src/scanmech",
                                __LINE__);
    }
    counts_per_facet_ = line_circle_count / facet_count();
    facet_begin_ = 0;
    located_facet_ = 0;
    laser_to_axis_ = laser_origin - mirror_axis_origin;
    facet_table_.clear();
    facet_table_.reserve(facets.size());
    for (const mirror_facet& f : facets) {
        facet_table_.push_back({turning_normal(f.normal, mirror_axis_direction), f.dist});
    }
}

void mirrorwheel::find_facet(std::uint32_t line) noexcept {
    const std::uint32_t turned_facets = counts_per_facet_ == 0 ? 0 : line / counts_per_facet_;
    facet_begin_ = turned_facets * counts_per_facet_;
    located_facet_ = turned_facets % static_cast<std::uint32_t>(facet_table_.size());
}

void mirrorwheel::locate(std::uint32_t line, std::uint32_t frame) noexcept {
    // Most shots are on the facet of the one before, which takes no division.
    if (line - facet_begin_ >= counts_per_facet_) {
        find_facet(line);
    }
    facet = located_facet_;
    std::int64_t in_facet = line - facet_begin_;
    if (counts_per_facet_ == 0) {
        in_facet = 0;
    } else if (line > 0x7FFFFFFF) {
        // Counts with the highest bit set are negative angles within the facet.
        in_facet = static_cast<std::int32_t>(line) % static_cast<std::int64_t>(counts_per_facet_);
    }
    line_angle = static_cast<double>(in_facet - line_angle_0) * line_unit_;
    frame_angle = frame * frame_unit_;
}

void mirrorwheel::set_counts(std::uint32_t line, std::uint32_t frame, std::uint32_t /*segment*/) {
    locate(line, frame);
    // Derived classes bend the beam further in their own set_angles.
    set_angles(facet, line_angle, frame_angle);
}

void mirrorwheel::set_angles(std::uint32_t facet_index, double line, double frame) {
    reflect(facet_index, line, frame);
    send_turned(reflected_origin_, reflected_direction_);
}

void mirrorwheel::write_members(json_writer& out) const {
    scanmech::write_members(out);
    out.array("laser_origin", laser_origin)
        .array("laser_direction", laser_direction)
        .array("mirror_axis_origin", mirror_axis_origin)
        .array("mirror_axis_direction", mirror_axis_direction)
        .member("line_angle_0", line_angle_0);
    out.key("facets").begin_array();
    for (const mirror_facet& f : facets) {
        out.begin_object().array("normal", f.normal).member("dist", f.dist).end_object();
    }
    out.end_array();
}

void mirrorwheel::read_members(const boost::property_tree::ptree& tree) {
    scanmech::read_members(tree);
    members::read(tree, "laser_origin", laser_origin);
    members::read(tree, "laser_direction", laser_direction);
    members::read(tree, "mirror_axis_origin", mirror_axis_origin);
    members::read(tree, "mirror_axis_direction", mirror_axis_direction);
    members::read(tree, "line_angle_0", line_angle_0);
    members::read_list(tree, "facets", facets, [](const members::ptree& element) {
        mirror_facet f;
        members::require(element, "normal", f.normal);
        members::require(element, "dist", f.dist);
        return f;
    });
}

} // namespace scanlib
