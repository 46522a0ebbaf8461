#include "simulator/solids.hpp"

#include "simulator/terrain.hpp"

#include <algorithm>
#include <cmath>

namespace simulator {

namespace {

/// Roots of a t^2 + 2 b t + c; false if there are none.
bool roots(double a, double b, double c, double& low, double& high) {
    const double discriminant = b * b - a * c;
    if (discriminant <= 0 || a <= 0) {
        return false;
    }
    const double root = std::sqrt(discriminant);
    low = (-b - root) / a;
    high = (-b + root) / a;
    return true;
}

} // namespace

double building::first_hit(const vector3& origin, const vector3& direction, vector3& normal) const {
    const vector3 o = to_local(origin - centre);
    const vector3 d = to_local(direction);
    double entry = 0;
    double exit = beyond_everything;
    int side = -1;
    for (std::size_t i = 0; i < 3; ++i) {
        if (d[i] == 0) {
            if (std::abs(o[i]) > half_size[i]) {
                return beyond_everything;
            }
            continue;
        }
        const double near = (-std::copysign(half_size[i], d[i]) - o[i]) / d[i];
        const double far = (std::copysign(half_size[i], d[i]) - o[i]) / d[i];
        if (near > entry) {
            entry = near;
            side = static_cast<int>(i);
        }
        exit = std::min(exit, far);
    }
    if (side < 0 || entry > exit) {
        return beyond_everything;
    }
    vector3 local{0, 0, 0};
    const auto s = static_cast<std::size_t>(side);
    local[s] = -std::copysign(1.0, d[s]);
    normal = from_local(local);
    return entry;
}

double building::distance(const vector3& point) const {
    const vector3 p = to_local(point - centre);
    double outside = 0;
    double inside = beyond_everything;
    for (std::size_t i = 0; i < 3; ++i) {
        const double beyond = std::abs(p[i]) - half_size[i];
        outside += beyond > 0 ? beyond * beyond : 0;
        inside = std::min(inside, -beyond);
    }
    return outside > 0 ? std::sqrt(outside) : inside;
}

double building::reach() const {
    return std::hypot(half_size[0], half_size[1]);
}

double tree::trunk_hit(const vector3& origin, const vector3& direction, vector3& normal) const {
    const double x = origin[0] - crown[0];
    const double y = origin[1] - crown[1];
    double entry = 0;
    double exit = 0;
    if (!roots(direction[0] * direction[0] + direction[1] * direction[1],
               x * direction[0] + y * direction[1], x * x + y * y - trunk_radius * trunk_radius,
               entry, exit) ||
        entry < 0) {
        return beyond_everything;
    }
    const double z = origin[2] + entry * direction[2];
    if (z < trunk_bottom || z > crown[2]) {
        return beyond_everything;
    }
    normal = {(x + entry * direction[0]) / trunk_radius, (y + entry * direction[1]) / trunk_radius,
              0};
    return entry;
}

bool tree::crossings(const vector3& origin, const vector3& direction, double layer, double& entry,
                     double& exit) const {
    const double across = 1 / (layer * crown_radius);
    const double up = 1 / (layer * crown_height);
    const vector3 o{across * (origin[0] - crown[0]), across * (origin[1] - crown[1]),
                    up * (origin[2] - crown[2])};
    const vector3 d{across * direction[0], across * direction[1], up * direction[2]};
    return roots(dot(d, d), dot(o, d), dot(o, o) - 1, entry, exit);
}

vector3 tree::leaf_normal(const vector3& point, double layer) const {
    const double across = layer * crown_radius;
    const double up = layer * crown_height;
    const vector3 n{(point[0] - crown[0]) / (across * across),
                    (point[1] - crown[1]) / (across * across), (point[2] - crown[2]) / (up * up)};
    return (1 / std::sqrt(dot(n, n))) * n;
}

double tree::distance(const vector3& point) const {
    double nearest = beyond_everything;
    const vector3 p = point - crown;
    for (const double layer : layers) {
        const double across = layer * crown_radius;
        const double up = layer * crown_height;
        const vector3 scaled{p[0] / across, p[1] / across, p[2] / up};
        const vector3 gradient{scaled[0] / across, scaled[1] / across, scaled[2] / up};
        const double steepness = 2 * std::sqrt(dot(gradient, gradient));
        if (steepness > 0) {
            nearest = std::min(nearest, std::abs(dot(scaled, scaled) - 1) / steepness);
        }
    }
    if (point[2] >= trunk_bottom && point[2] <= crown[2]) {
        nearest = std::min(nearest, std::abs(std::hypot(p[0], p[1]) - trunk_radius));
    }
    return nearest;
}

} // namespace simulator
