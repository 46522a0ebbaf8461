#include "simulator/terrain.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace simulator {

namespace {

/// One octave of relief: the lattice has a random value every `wavelength` metres.
struct octave {
    double wavelength;
    double amplitude;
};
constexpr octave octaves[] = {{200, 7.0}, {80, 2.5}, {32, 0.6}, {8, 0.08}};

double smooth(double f) {
    return f * f * (3 - 2 * f);
}

/// Smallest root of a t^2 + b t + c with 0 <= t <= `last`, where c > 0; beyond_everything if none.
double first_root(double a, double b, double c, double last) {
    if (std::abs(a) < 1e-15) {
        const double t = b < 0 ? -c / b : beyond_everything;
        return t <= last ? t : beyond_everything;
    }
    const double discriminant = b * b - 4 * a * c;
    if (discriminant < 0) {
        return beyond_everything;
    }
    // Both roots without cancellation.
    const double q = -0.5 * (b + std::copysign(std::sqrt(discriminant), b));
    const double t1 = q / a;
    const double t2 = q == 0 ? beyond_everything : c / q;
    double first = beyond_everything;
    for (const double t : {t1, t2}) {
        if (t >= 0 && t <= last) {
            first = std::min(first, t);
        }
    }
    return first;
}

/// Way along one axis from one grid line to the next.
struct axis_walk {
    int step;
    double next;  ///< range to the next grid line
    double delta; ///< range between grid lines

    axis_walk(double position, double direction, int cell, double spacing, double edge) {
        step = direction > 0 ? 1 : -1;
        if (direction == 0) {
            next = delta = beyond_everything;
            return;
        }
        const double line = edge + spacing * (direction > 0 ? cell + 1 : cell);
        next = (line - position) / direction;
        delta = spacing / std::abs(direction);
    }
};

} // namespace

terrain::terrain(random_source& random)
    : heights_(static_cast<std::size_t>(nodes) * nodes)
    , patches_(static_cast<std::size_t>(cells) * cells) {
    raise_relief(random);
    dig_lake(random);
    build_patches();
}

void terrain::raise_relief(random_source& random) {
    for (const octave& o : octaves) {
        const int width = static_cast<int>(2 * half_extent / o.wavelength) + 2;
        std::vector<double> lattice(static_cast<std::size_t>(width) *
                                    static_cast<std::size_t>(width));
        for (double& value : lattice) {
            value = random.between(-o.amplitude, o.amplitude);
        }
        const auto along = [&](int n, int& cell) {
            const double position = n * spacing / o.wavelength;
            cell = static_cast<int>(position);
            return smooth(position - cell);
        };
        for (int row = 0; row < nodes; ++row) {
            int j = 0;
            const double v = along(row, j);
            for (int column = 0; column < nodes; ++column) {
                int i = 0;
                const double u = along(column, i);
                const double low =
                    std::lerp(lattice[index(width, i, j)], lattice[index(width, i + 1, j)], u);
                const double high = std::lerp(lattice[index(width, i, j + 1)],
                                              lattice[index(width, i + 1, j + 1)], u);
                node(column, row) += std::lerp(low, high, v);
            }
        }
    }
    const double shift = height_at_origin - node(cells / 2, cells / 2);
    for (double& h : heights_) {
        h += shift;
    }
}

void terrain::dig_lake(random_source& random) {
    constexpr double depth = 2.0;
    constexpr double shore = 1.6; // as far as the banks reach, in radii
    const double azimuth = random.between(0, 2 * std::numbers::pi);
    const double away = random.between(60, 80);
    water_.x = away * std::cos(azimuth);
    water_.y = away * std::sin(azimuth);
    water_.radius = random.between(20, 28);
    const auto at = [](double x) { return static_cast<int>((x + half_extent) / spacing); };
    water_.level = std::min(node(at(water_.x), at(water_.y)), height_at_origin - 1.0);
    for (int row = 0; row < nodes; ++row) {
        for (int column = 0; column < nodes; ++column) {
            const double far = std::hypot(column * spacing - half_extent - water_.x,
                                          row * spacing - half_extent - water_.y) /
                               water_.radius;
            double& h = node(column, row);
            if (far < 1) {
                h = water_.level - depth * (1 - far * far);
            } else if (far < shore) {
                h = std::lerp(water_.level, h, smooth((far - 1) / (shore - 1)));
            }
        }
    }
}

void terrain::build_patches() {
    for (int row = 0; row < cells; ++row) {
        for (int column = 0; column < cells; ++column) {
            const double h00 = node(column, row);
            const double h10 = node(column + 1, row);
            const double h01 = node(column, row + 1);
            const double h11 = node(column + 1, row + 1);
            patches_[index(cells, column, row)] = {h00, h10 - h00, h01 - h00, h11 - h10 - h01 + h00,
                                                   std::max({h00, h10, h01, h11})};
        }
    }
}

terrain::place terrain::locate(double x, double y) {
    const double u = (x + half_extent) / spacing;
    const double v = (y + half_extent) / spacing;
    const int column = std::clamp(static_cast<int>(std::floor(u)), 0, cells - 1);
    const int row = std::clamp(static_cast<int>(std::floor(v)), 0, cells - 1);
    return {column, row, u - column, v - row};
}

double terrain::height(double x, double y) const {
    const place at = locate(x, y);
    const patch& p = patch_at(at.column, at.row);
    return p.h + p.a * at.u + p.b * at.v + p.k * at.u * at.v;
}

vector3 terrain::normal_of(const patch& p, double u, double v) {
    const vector3 n{-(p.a + p.k * v) / spacing, -(p.b + p.k * u) / spacing, 1};
    return (1 / std::sqrt(dot(n, n))) * n;
}

double terrain::first_hit(const vector3& origin, const vector3& direction, double max_range,
                          vector3& normal) const {
    place at = locate(origin[0], origin[1]);
    axis_walk x(origin[0], direction[0], at.column, spacing, -half_extent);
    axis_walk y(origin[1], direction[1], at.row, spacing, -half_extent);
    const double du = direction[0] / spacing;
    const double dv = direction[1] / spacing;
    double from = 0;
    while (from < max_range && at.column >= 0 && at.column < cells && at.row >= 0 &&
           at.row < cells) {
        const double to = std::min({x.next, y.next, max_range});
        const patch& p = patch_at(at.column, at.row);
        const double z = origin[2] + from * direction[2];
        if (std::min(z, origin[2] + to * direction[2]) <= p.greatest) {
            const double u = (origin[0] + from * direction[0] + half_extent) / spacing - at.column;
            const double v = (origin[1] + from * direction[1] + half_extent) / spacing - at.row;
            const double above = z - (p.h + p.a * u + p.b * v + p.k * u * v);
            const double t =
                above <= 0
                    ? 0
                    : first_root(-p.k * du * dv,
                                 direction[2] - p.a * du - p.b * dv - p.k * (u * dv + v * du),
                                 above, to - from);
            if (t < beyond_everything) {
                normal = normal_of(p, u + t * du, v + t * dv);
                return from + t;
            }
        }
        from = to;
        if (x.next <= y.next) {
            x.next += x.delta;
            at.column += x.step;
        } else {
            y.next += y.delta;
            at.row += y.step;
        }
    }
    return beyond_everything;
}

double terrain::distance(const vector3& point) const {
    if (std::abs(point[0]) > half_extent || std::abs(point[1]) > half_extent) {
        return beyond_everything;
    }
    const place at = locate(point[0], point[1]);
    const vector3 n = normal_of(patch_at(at.column, at.row), at.u, at.v);
    return std::abs(point[2] - height(point[0], point[1])) * n[2];
}

} // namespace simulator
