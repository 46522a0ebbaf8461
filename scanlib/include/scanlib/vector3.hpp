#pragma once

#include <array>

namespace scanlib {

/// Three coordinates in metres, or the components of a direction.
using vector3 = std::array<double, 3>;

/// Sum.
constexpr vector3 operator+(const vector3& a, const vector3& b) noexcept {
    return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}
/// Difference.
constexpr vector3 operator-(const vector3& a, const vector3& b) noexcept {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
/// `a` stretched by `s`.
constexpr vector3 operator*(double s, const vector3& a) noexcept {
    return {s * a[0], s * a[1], s * a[2]};
}

/// Scalar product.
constexpr double dot(const vector3& a, const vector3& b) noexcept {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

/// Vector product.
constexpr vector3 cross(const vector3& a, const vector3& b) noexcept {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

/// `a` turned about the z axis by the angle with the given sine and cosine.
constexpr vector3 turned_about_z(const vector3& a, double sine, double cosine) noexcept {
    return {cosine * a[0] - sine * a[1], sine * a[0] + cosine * a[1], a[2]};
}

} // namespace scanlib
