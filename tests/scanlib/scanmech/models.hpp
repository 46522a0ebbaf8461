#pragma once

#include "scanlib/gimbalmountmirror.hpp"
#include "scanlib/mirrorwheel_biaxial.hpp"
#include "scanlib/mirrorwheel_deflection_windowdistortion.hpp"
#include "scanlib/mirrorwheel_exitpane.hpp"
#include "scanlib/mirrorwheel_facetsurfacedistortion.hpp"
#include "scanlib/mirrorwheel_fanbeam.hpp"
#include "scanlib/mirrorwheel_nodding.hpp"
#include "scanlib/mirrorwheel_windowdistortion.hpp"
#include "scanlib/wedge_scanconedistortion.hpp"

#include "scanlib/scanmech/optics.hpp"

#include <type_traits>

namespace optics {

using all_models = testing::Types<
    mirrorwheel, wedge, mirrorwheel_exitpane, mirrorwheel_deflection, mirrorwheel_biaxial,
    mirrorwheel_nodding, gimbalmountmirror, mirrorwheel_deflection_windowdistortion,
    mirrorwheel_windowdistortion, wedge_scanconedistortion, mirrorwheel_scanconedistortion,
    mirrorwheel_facetsurfacedistortion, mirrorwheel_facetsurfacedistortion_D, mirrorwheel_fanbeam>;

/// Gives every parameter of a model a value: `number()` numbers, `vector()` directions, and lists
/// of `entries` elements.
template<class Model, class Number, class Vector>
void fill_all(Model& m, std::size_t entries, Number number, Vector vector) {
    m.range_unit = number();
    m.laser_origin = vector();
    m.laser_direction = vector();
    if constexpr (std::is_base_of_v<mirrorwheel, Model>) {
        m.mirror_axis_origin = vector();
        m.mirror_axis_direction = vector();
        m.line_angle_0 = 17;
        m.facets.clear();
        for (int i = 0; i < 3; ++i) {
            m.facets.push_back({vector(), number()});
        }
    }
    if constexpr (std::is_base_of_v<wedge, Model>) {
        m.wedge_axis_origin = vector();
        m.wedge_axis_direction = vector();
        m.facet1_direction = vector();
        m.facet2_direction = vector();
        m.dist = number();
        m.refraction_index = 1.5 + number();
    }
    if constexpr (std::is_same_v<mirrorwheel_exitpane, Model>) {
        m.exit_pane_thickness = number();
        m.exit_pane_index = 1.5 + number();
        m.exit_pane_direction = vector();
    }
    if constexpr (std::is_base_of_v<mirrorwheel_deflection, Model>) {
        m.deflection_mirror_origin = vector();
        m.deflection_mirror_direction = vector();
    }
    if constexpr (std::is_same_v<mirrorwheel_biaxial, Model>) {
        m.aperture_direction = vector();
        for (std::size_t i = 0; i < entries; ++i) {
            m.biaxial_shift.push_back({10 * static_cast<double>(i + 1) + number(), number()});
        }
    }
    if constexpr (std::is_same_v<mirrorwheel_nodding, Model>) {
        m.nodding_axis_origin = vector();
        m.nodding_axis_direction = vector();
        m.nodding_facet = {vector(), number()};
    }
    if constexpr (std::is_same_v<gimbalmountmirror, Model>) {
        m.line_mirror_axis_origin = vector();
        m.line_mirror_axis_direction = vector();
        m.frame_mirror_axis_origin = vector();
        m.frame_mirror_axis_direction = vector();
        m.facet_direction = vector();
        m.dist = number();
    }
    if constexpr (requires { m.nodes; }) {
        for (std::size_t i = 0; i < entries; ++i) {
            m.nodes.push_back({number(), number()});
        }
    }
    if constexpr (std::is_base_of_v<window_distortion, Model>) {
        m.t_axis = vector();
        m.s_axis = vector();
        m.angle_sin_min = -1 + number();
        m.angle_sin_inc = 2 / static_cast<double>(entries) + number();
    }
    if constexpr (requires { m.beam_direction_0; }) {
        m.beam_direction_0 = vector();
    }
    if constexpr (requires { m.rotation_axis_for_s_t_axes; }) {
        m.rotation_axis_for_s_t_axes = vector();
        m.facet_distance = number();
    }
    if constexpr (std::is_same_v<mirrorwheel_fanbeam, Model>) {
        m.num_angles_0 = 2;
        m.num_angles_1 = static_cast<std::uint32_t>(entries / 2);
        m.rotation_axis_0 = vector();
        m.rotation_axis_1 = vector();
        for (std::size_t i = 0; i < entries; ++i) {
            m.rotation_angles.push_back({number(), number()});
        }
    }
}

/// All parameters of a sane instrument, at random.
template<class Model>
void fill_sanely(Model& m, std::mt19937& random) {
    std::uniform_real_distribution<double> small(0, 0.02);
    m.line_circle_count = 3600;
    m.frame_circle_count = 7200;
    fill_all(
        m, 8, [&] { return small(random); }, [&] { return random_direction(random); });
    if constexpr (std::is_same_v<gimbalmountmirror, Model>) {
        // Where the turned normal keeps its length.
        m.frame_mirror_axis_direction = m.line_mirror_axis_direction;
        m.facet_direction = unit(cross(m.line_mirror_axis_direction, m.facet_direction));
    }
    m.initialise();
}

} // namespace optics
