#pragma once

#include "scanlib/json_writer.hpp"
#include "scanlib/scanmech.hpp"
#include "scanlib/vector3.hpp"

#define BOOST_BIND_GLOBAL_PLACEHOLDERS
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <sstream>
#include <string>

/// Geometrical optics by routes that share nothing with the models: rotations by matrix, rays that
/// are followed from surface to surface, angles of refraction by arc sine.
namespace optics {

using namespace scanlib; // the operators on vectors

constexpr double pi = std::numbers::pi;

inline double length(const vector3& v) {
    return std::sqrt(dot(v, v));
}

inline vector3 unit(const vector3& v) {
    return 1 / length(v) * v;
}

inline void expect_near(const vector3& a, const vector3& b, double tolerance) {
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(a[i], b[i], tolerance) << "component " << i;
    }
}

/// Rotation about a unit axis by its matrix.
inline vector3 rotated_by(const vector3& v, const vector3& k, double angle) {
    const double s = std::sin(angle);
    const double c = std::cos(angle);
    vector3 out{};
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) {
            const std::size_t other = 3 - i - j;
            double m = k[i] * k[j] * (1 - c);
            if (i == j) {
                m += c;
            } else {
                m += (j == (i + 1) % 3 ? -s : s) * k[other];
            }
            out[i] += m * v[j];
        }
    }
    return out;
}

template<class Random>
vector3 random_direction(Random& random) {
    std::normal_distribution<double> normal;
    return unit({normal(random), normal(random), normal(random)});
}

/// A direction less than `most` (radians) off another.
template<class Random>
vector3 direction_near(const vector3& v, double most, Random& random) {
    std::uniform_real_distribution<double> angle(0, most);
    return rotated_by(v, unit(cross(v, random_direction(random))), angle(random));
}

/// Light on its way: where it is, whereto it goes, and the optical path behind it.
struct ray {
    vector3 at;
    vector3 direction;
    double path = 0;

    /// The point that a range measured along the light tells.
    vector3 point(double range) const { return at + (range - path) * direction; }

    void go_to(const vector3& point_of_plane, const vector3& normal, double index = 1) {
        const double way = dot(point_of_plane - at, normal) / dot(direction, normal);
        at = at + way * direction;
        path += index * way;
    }
    /// Half a turn about the normal, and backwards.
    void reflect(const vector3& point_of_plane, const vector3& normal) {
        go_to(point_of_plane, normal);
        direction = -1.0 * rotated_by(direction, normal, pi);
    }
    /// Into an index `to` out of an index `from`.
    void refract(const vector3& point_of_plane, const vector3& normal, double from, double to) {
        go_to(point_of_plane, normal, from);
        const vector3 n = dot(normal, direction) > 0 ? normal : -1.0 * normal;
        const vector3 aside = direction - dot(direction, n) * n;
        const double incidence = std::asin(std::min(1.0, length(aside)));
        const double refraction = std::asin(std::sin(incidence) * from / to);
        if (length(aside) > 1e-12) {
            direction = std::cos(refraction) * n + std::sin(refraction) * unit(aside);
        }
    }
};

/// A model's points at ranges are those of the ray.
inline void expect_points(const scanmech& mech, const ray& light, double tolerance) {
    for (const double range : {0.0, 1.0, 30.0}) {
        vector3 point{};
        mech.position(point, range);
        expect_near(point, light.point(range), tolerance);
    }
}

/// A model and the places to which it writes its beam.
template<class Model>
struct bench {
    vector3 origin{};
    vector3 direction{};
    Model mech{&origin, &direction};
};

/// A wheel of `facets` facets with random optics, whose beam leaves at moderate angles.
template<class Wheel, class Random>
void fill_wheel(Wheel& wheel, std::size_t facets, Random& random) {
    wheel.line_circle_count = 3600;
    wheel.frame_circle_count = 7200;
    wheel.laser_origin = 0.1 * random_direction(random);
    wheel.laser_direction = random_direction(random);
    wheel.mirror_axis_origin = 0.05 * random_direction(random);
    wheel.mirror_axis_direction = random_direction(random);
    wheel.facets.clear();
    for (std::size_t i = 0; i < facets; ++i) {
        wheel.facets.push_back({random_direction(random), 0.03});
    }
}

/// The ray behind a facet of a wheel, ahead of the frame rotation.
template<class Wheel>
ray behind_wheel(const Wheel& wheel, std::size_t facet, double line) {
    const vector3 n = rotated_by(wheel.facets[facet].normal, wheel.mirror_axis_direction, line);
    ray light{wheel.laser_origin, wheel.laser_direction};
    light.reflect(wheel.mirror_axis_origin + wheel.facets[facet].dist * n, n);
    return light;
}

inline ray turned_about_z_axis(const ray& light, double angle) {
    return {rotated_by(light.at, {0, 0, 1}, angle), rotated_by(light.direction, {0, 0, 1}, angle),
            light.path};
}

inline std::string json_of(const scanmech& mech) {
    json_writer out;
    mech.write(out);
    return out.text();
}

inline boost::property_tree::ptree tree_of(const std::string& json) {
    std::istringstream text(json);
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(text, tree);
    return tree;
}

} // namespace optics
