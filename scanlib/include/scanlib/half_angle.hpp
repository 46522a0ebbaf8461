#pragma once

#include <cmath>
#include <numbers>

namespace scanlib {

/// Sine and cosine of one angle.
struct sine_cosine {
    double sine = 0;
    double cosine = 1;
};

/// Sine and cosine by way of the tangent of half the angle (radians). Both come from one tangent,
/// and they stay consistent with each other: the sum of their squares is 1 to the last place.
///
/// Half the angle stays within an eighth of a turn, by turning to the supplement around pi. There
/// nine terms of the tangent's continued fraction, x / (1 - x^2 / (3 - x^2 / (5 - ...))), leave an
/// error far below the last place. They are kept as p / q, so that no division is spent on the
/// tangent itself.
inline sine_cosine half_angle(double angle) noexcept {
    constexpr double pi = std::numbers::pi;
    constexpr double pi_rest = 1.2246467991473532e-16; ///< what pi has beyond a double
    if (angle == 0) {
        return {};
    }
    const bool near_zero = angle < pi / 2 || angle > 3 * pi / 2;
    const double half = (near_zero ? angle : pi - angle) / 2;
    // The tangent has the period pi.
    const double x = angle > 3 * pi / 2 ? (half - pi) - pi_rest : half;
    double p = 0;
    double q = 1;
    if (std::fabs(x) < 0.8) {
        const double z = x * x;
        const double zz = z * z;
        p = x * ((34459425 - 4729725 * z) + zz * ((135135 - 990 * z) + zz));
        q = (34459425 - 16216200 * z) + zz * ((945945 - 13860 * z) + 45 * zz);
    } else {
        p = std::tan(half); // more than a turn, a negative angle, or no number
    }
    const double scale = p * p + q * q;
    const double cosine = (q - p) * (q + p) / scale;
    return {2 * p * q / scale, near_zero ? cosine : -cosine};
}

} // namespace scanlib
