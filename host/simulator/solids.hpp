#pragma once

#include "simulator/vectors.hpp"

#include <array>

namespace simulator {

/// A house: a box that may be turned about the vertical. Its walls and its flat roof reflect.
struct building {
    vector3 centre;
    vector3 half_size;
    double cosine = 1; ///< of the turn about the vertical
    double sine = 0;

    /// Range along the ray to the box and the normal there; beyond_everything if it misses.
    double first_hit(const vector3& origin, const vector3& direction, vector3& normal) const;
    /// Distance of a point to the box's surface.
    double distance(const vector3& point) const;
    /// Radius of the circle around the centre that holds it, seen from above.
    double reach() const;

  private:
    vector3 to_local(const vector3& v) const {
        return {cosine * v[0] + sine * v[1], cosine * v[1] - sine * v[0], v[2]};
    }
    vector3 from_local(const vector3& v) const {
        return {cosine * v[0] - sine * v[1], sine * v[0] + cosine * v[1], v[2]};
    }
};

/// A tree: an upright trunk, and a crown of nested layers of leaves through which a beam can pass.
struct tree {
    static constexpr std::array<double, 4> layers{1.0, 0.75, 0.5, 0.25}; ///< sizes within the crown

    vector3 crown; ///< centre of the crown, on the trunk's axis
    double crown_radius;
    double crown_height; ///< half of it
    double trunk_radius;
    double trunk_bottom;

    /// Range along the ray to the trunk; beyond_everything if it misses.
    double trunk_hit(const vector3& origin, const vector3& direction, vector3& normal) const;
    /// The two ranges at which the ray crosses a layer; false if it misses.
    bool crossings(const vector3& origin, const vector3& direction, double layer, double& entry,
                   double& exit) const;
    /// Normal of a layer at a point of it.
    vector3 leaf_normal(const vector3& point, double layer) const;
    /// Distance of a point to the nearest surface of the tree, good to first order near one.
    double distance(const vector3& point) const;
    double reach() const { return crown_radius; }
};

} // namespace simulator
