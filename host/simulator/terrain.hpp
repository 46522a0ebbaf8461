#pragma once

#include "simulator/random_source.hpp"
#include "simulator/vectors.hpp"

#include <cstddef>
#include <vector>

namespace simulator {

/// "No hit" among ranges.
inline constexpr double beyond_everything = 1e300;

/// A lake: a disc of still water.
struct lake {
    double x;
    double y;
    double radius;
    double level;
};

/// Rolling ground: heights at the nodes of a square grid, bilinear between them, so that a ray's
/// first intersection follows exactly from one quadratic equation for each cell on its way. Lengths
/// are in metres; the grid is centred at the origin, where the ground lies at `height_at_origin`.
class terrain {
  public:
    static constexpr double half_extent = 400.0;
    static constexpr double height_at_origin = -1.8;

    explicit terrain(random_source& random);

    /// Height of the ground. The place must lie within the grid.
    double height(double x, double y) const;

    /// Range along the ray to the ground, beyond_everything if it misses.
    double first_hit(const vector3& origin, const vector3& direction, double max_range,
                     vector3& normal) const;

    /// Distance from a point near the ground to it.
    double distance(const vector3& point) const;

    const lake& water() const noexcept { return water_; }

  private:
    static constexpr double spacing = 4.0;
    static constexpr int cells = 200; ///< along each side
    static constexpr int nodes = cells + 1;

    /// Height over a cell: h + a u + b v + k u v, u and v from 0 to 1.
    struct patch {
        double h, a, b, k;
        double greatest;
    };
    struct place {
        int column;
        int row;
        double u;
        double v;
    };

    double& node(int column, int row) { return heights_[index(nodes, column, row)]; }
    static std::size_t index(int width, int column, int row) {
        return static_cast<std::size_t>(row) * static_cast<std::size_t>(width) +
               static_cast<std::size_t>(column);
    }
    const patch& patch_at(int column, int row) const { return patches_[index(cells, column, row)]; }
    static place locate(double x, double y);
    static vector3 normal_of(const patch& p, double u, double v);

    void raise_relief(random_source& random);
    void dig_lake(random_source& random);
    void build_patches();

    std::vector<double> heights_;
    std::vector<patch> patches_;
    lake water_{};
};

} // namespace simulator
