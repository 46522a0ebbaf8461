#pragma once

#include "scanlib/vector3.hpp"

#include <cmath>

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

/// q v q*, the vector turned by a quaternion of unit length.
constexpr vector3 rotated(const quaternion& q, const vector3& v) noexcept {
    const quaternion turned =
        q * quaternion{0, v[0], v[1], v[2]} * quaternion{q.w, -q.x, -q.y, -q.z};
    return {turned.x, turned.y, turned.z};
}

/// The rotation between two, a part `f` of the way from `a` to `b`: the components are interpolated
/// and brought back to unit length. `f` may lie outside 0 to 1.
inline quaternion interpolated(const quaternion& a, const quaternion& b, double f) noexcept {
    const quaternion q{(1 - f) * a.w + f * b.w, (1 - f) * a.x + f * b.x, (1 - f) * a.y + f * b.y,
                       (1 - f) * a.z + f * b.z};
    const double length = std::sqrt(q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z);
    return {q.w / length, q.x / length, q.y / length, q.z / length};
}

} // namespace scanlib
