#pragma once

#include "scanlib/vector3.hpp"

namespace scanlib {

/// w + xi + yj + zk; of unit length it stands for a rotation.
struct quaternion {
    double w = 1;
    double x = 0;
    double y = 0;
    double z = 0;
};

/// The rotation by an angle (radians) about an axis, which is used as given: only an axis of unit
/// length gives a quaternion of unit length.
quaternion rotation_about(const vector3& axis, double angle) noexcept;

/// The ordinary product; as rotations, `b` comes first.
constexpr quaternion operator*(const quaternion& a, const quaternion& b) noexcept {
    return {a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z,
            a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y,
            a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
            a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w};
}

/// q v q*, the vector turned by a quaternion of unit length; multiplied out, since `v` has no
/// scalar part.
constexpr vector3 rotated(const quaternion& q, const vector3& v) noexcept {
    const vector3 u{q.x, q.y, q.z};
    return (q.w * q.w - dot(u, u)) * v + 2 * dot(u, v) * u + 2 * q.w * cross(u, v);
}

/// `v` turned by the rotation a part `f` of the way from `a` to `b`: the components are
/// interpolated and brought to unit length. `f` may lie outside 0 to 1. The length goes into the
/// turned vector, where it stands squared and takes no root.
inline vector3 rotated_between(const quaternion& a, const quaternion& b, double f,
                               const vector3& v) noexcept {
    const quaternion q{(1 - f) * a.w + f * b.w, (1 - f) * a.x + f * b.x, (1 - f) * a.y + f * b.y,
                       (1 - f) * a.z + f * b.z};
    return 1 / (q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z) * rotated(q, v);
}

} // namespace scanlib
