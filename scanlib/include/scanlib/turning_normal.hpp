#pragma once

#include "scanlib/half_angle.hpp"
#include "scanlib/vector3.hpp"

namespace scanlib {

/// A normal that turns about an axis, split by that axis, so that turning it takes no more than a
/// weighted sum (the rotation formula for vectors, with its three terms kept apart).
struct turning_normal {
    vector3 parallel{};
    vector3 perpendicular{};
    vector3 crossed{}; ///< axis x normal

    turning_normal() = default;

    /// The axis is used as given; a rotation it is where the axis has unit length.
    turning_normal(const vector3& normal, const vector3& axis) noexcept
        : parallel(dot(axis, normal) * axis)
        , perpendicular(normal - parallel)
        , crossed(cross(axis, normal)) {}

    vector3 turned(const sine_cosine& turn) const noexcept {
        return parallel + turn.cosine * perpendicular + turn.sine * crossed;
    }
};

} // namespace scanlib
