#pragma once

#include "simulator/random_source.hpp"
#include "simulator/solids.hpp"
#include "simulator/terrain.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace simulator {

enum class material : std::uint8_t { soil, wall, roof, bark, leaf, water };

/// One place at which a beam is reflected.
struct surface_hit {
    double range;     ///< in lengths of the beam's direction
    double incidence; ///< cosine of the angle between beam and normal, from 0 to 1
    material made_of;
    double depth = 0; ///< m of range by which light from the ground below water comes later
};

/// The reflections of one beam in ascending range.
class hit_list {
  public:
    static constexpr std::size_t capacity = 4;

    void clear() noexcept { size_ = 0; }
    bool full() const noexcept { return size_ == capacity; }
    void add(const surface_hit& hit) noexcept { hits_[size_++] = hit; }
    std::size_t size() const noexcept { return size_; }
    const surface_hit* begin() const noexcept { return hits_.data(); }
    const surface_hit* end() const noexcept { return hits_.data() + size_; }

  private:
    std::array<surface_hit, capacity> hits_{};
    std::size_t size_ = 0;
};

/// A piece of country around the origin, in metres, z up: rolling ground, a lake, houses, and trees
/// through whose leaves a beam can pass, so that it comes back in several echoes.
///
///          ___          ( )            the scanner stands at the origin,
///      o  |   |  __    (( ))           1.8 m above the ground
///     _|__|___|_/  \____|||__~~~~~~_
///
/// The scene follows from its seed alone.
class scene {
  public:
    explicit scene(std::uint64_t seed);

    /// Beams must leave from within this distance of the origin.
    static constexpr double station_radius = 0.5;

    /// What comes back of a beam, up to `max_range`. `random` decides what leaves let pass and
    /// where water reflects.
    void cast(const vector3& origin, const vector3& direction, double max_range,
              random_source& random, hit_list& hits) const;

    /// Distance of a point to the nearest surface that reflects, good to first order near one.
    double distance(const vector3& point) const;

  private:
    static constexpr std::size_t sectors = 720;

    /// A place where leaves may reflect a part of the beam.
    struct crossing {
        double range;
        double layer;
        const tree* of;
    };

    /// What stands in one direction from the origin.
    struct sector {
        std::vector<std::uint32_t> buildings;
        std::vector<std::uint32_t> trees;
    };

    void place_buildings(random_source& random);
    void place_trees(random_source& random);
    bool is_free(double x, double y, double reach) const;
    void fill_sectors();
    template<class Add>
    void spread(const vector3& centre, double reach, Add&& add);
    const sector& sector_of(const vector3& direction) const;

    surface_hit first_solid(const vector3& origin, const vector3& direction, double max_range,
                            const sector& around) const;
    double water_hit(const vector3& origin, const vector3& direction) const;
    double depth_below(const vector3& surface, const vector3& direction) const;

    terrain ground_;
    std::vector<building> buildings_;
    std::vector<tree> trees_;
    std::vector<sector> sectors_;
};

} // namespace simulator
