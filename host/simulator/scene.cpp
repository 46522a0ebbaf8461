#include "simulator/scene.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace simulator {

namespace {

constexpr double pi = std::numbers::pi;
constexpr int building_count = 20;
constexpr int tree_count = 120;
constexpr double clear_radius = 9.0;      ///< around the scanner, m
constexpr double farthest_object = 150.0; ///< m
constexpr double leaf_echo = 0.4;         ///< chance that a layer of leaves gives an echo
constexpr double least_separation = 0.5;  ///< m; echoes closer together are one to a receiver
constexpr int attempts = 100;             ///< to find a free place for one more object

struct circle {
    double x;
    double y;
};

circle somewhere(random_source& random) {
    const double azimuth = random.between(0, 2 * pi);
    const double away = random.between(clear_radius, farthest_object);
    return {away * std::cos(azimuth), away * std::sin(azimuth)};
}

/// Calm water reflects a beam that comes steeply, and mirrors away nearly all others.
double water_echo(double incidence) {
    return std::clamp(4 * (incidence - 0.02), 0.0, 1.0);
}

double incidence_of(const vector3& direction, const vector3& normal) {
    return std::min(std::abs(dot(direction, normal)), 1.0);
}

} // namespace

scene::scene(std::uint64_t seed)
    : ground_([&] {
        random_source random(seed);
        return terrain(random);
    }()) {
    // A sequence of its own, so that changes to the relief do not move the houses.
    random_source random(seed ^ 0x5CE9E5CE9E5CE9E5);
    place_buildings(random);
    place_trees(random);
    fill_sectors();
}

bool scene::is_free(double x, double y, double reach) const {
    const auto clear_of = [&](double other_x, double other_y, double other_reach) {
        return std::hypot(x - other_x, y - other_y) > reach + other_reach;
    };
    const lake& water = ground_.water();
    return clear_of(0, 0, clear_radius) && clear_of(water.x, water.y, water.radius) &&
           std::all_of(
               buildings_.begin(), buildings_.end(),
               [&](const building& b) { return clear_of(b.centre[0], b.centre[1], b.reach()); }) &&
           std::all_of(trees_.begin(), trees_.end(),
                       [&](const tree& t) { return clear_of(t.crown[0], t.crown[1], t.reach()); });
}

void scene::place_buildings(random_source& random) {
    for (int tries = 0; tries < building_count * attempts &&
                        buildings_.size() < static_cast<std::size_t>(building_count);
         ++tries) {
        const circle at = somewhere(random);
        const double turn = random.between(0, pi);
        building b{{}, {}, std::cos(turn), std::sin(turn)};
        b.half_size = {random.between(4, 12), random.between(4, 8), random.between(4, 11)};
        // Half of it is the cellar: so the walls reach into the ground on any slope.
        b.centre = {at.x, at.y, ground_.height(at.x, at.y)};
        if (is_free(at.x, at.y, b.reach())) {
            buildings_.push_back(b);
        }
    }
}

void scene::place_trees(random_source& random) {
    for (int tries = 0;
         tries < tree_count * attempts && trees_.size() < static_cast<std::size_t>(tree_count);
         ++tries) {
        const circle at = somewhere(random);
        tree t{};
        t.crown_radius = random.between(1.5, 4);
        t.crown_height = t.crown_radius * random.between(1.0, 1.6);
        t.trunk_radius = 0.08 * t.crown_radius;
        const double ground = ground_.height(at.x, at.y);
        t.trunk_bottom = ground - 1.0;
        t.crown = {at.x, at.y, ground + t.crown_height + random.between(1, 3)};
        if (is_free(at.x, at.y, t.reach())) {
            trees_.push_back(t);
        }
    }
}

template<class Add>
void scene::spread(const vector3& centre, double reach, Add&& add) {
    const double away = std::hypot(centre[0], centre[1]);
    // Seen from anywhere on the station, and a sector more on either side for the rounding.
    const double half_width = std::asin(station_radius / away) +
                              std::asin(std::min(1.0, reach / (away - station_radius))) +
                              2 * pi / sectors;
    const double first = (std::atan2(centre[1], centre[0]) - half_width) * sectors / (2 * pi);
    const double last = (std::atan2(centre[1], centre[0]) + half_width) * sectors / (2 * pi);
    for (auto n = static_cast<int>(std::floor(first)); n <= static_cast<int>(std::floor(last));
         ++n) {
        constexpr int turn = sectors;
        add(sectors_[static_cast<std::size_t>(((n % turn) + turn) % turn)]);
    }
}

void scene::fill_sectors() {
    sectors_.resize(sectors);
    for (std::uint32_t n = 0; n < buildings_.size(); ++n) {
        spread(buildings_[n].centre, buildings_[n].reach(),
               [n](sector& s) { s.buildings.push_back(n); });
    }
    for (std::uint32_t n = 0; n < trees_.size(); ++n) {
        spread(trees_[n].crown, trees_[n].reach(), [n](sector& s) { s.trees.push_back(n); });
    }
}

const scene::sector& scene::sector_of(const vector3& direction) const {
    const double turns = std::atan2(direction[1], direction[0]) / (2 * pi);
    const auto n = static_cast<std::size_t>((turns < 0 ? turns + 1 : turns) * sectors);
    return sectors_[n < sectors ? n : 0];
}

double scene::water_hit(const vector3& origin, const vector3& direction) const {
    const lake& water = ground_.water();
    const double range = (water.level - origin[2]) / direction[2];
    if (!(range > 0)) {
        return beyond_everything;
    }
    const double x = origin[0] + range * direction[0] - water.x;
    const double y = origin[1] + range * direction[1] - water.y;
    return x * x + y * y < water.radius * water.radius ? range : beyond_everything;
}

/// Way of a beam from the water's surface to the ground below, as its range counts: light is slower
/// there.
double scene::depth_below(const vector3& surface, const vector3& direction) const {
    constexpr double refractive_index = 1.33;
    constexpr int rounds = 8; // the bank is much flatter than the refracted beam
    // What runs along the surface is bent towards the vertical.
    const double across_x = direction[0] / refractive_index;
    const double across_y = direction[1] / refractive_index;
    const double down = std::sqrt(1 - across_x * across_x - across_y * across_y);
    double way = 0;
    for (int i = 0; i < rounds; ++i) {
        const double ground =
            ground_.height(surface[0] + way * across_x, surface[1] + way * across_y);
        way = std::max(0.0, (surface[2] - ground) / down);
    }
    return way * refractive_index;
}

surface_hit scene::first_solid(const vector3& origin, const vector3& direction, double max_range,
                               const sector& around) const {
    vector3 normal{0, 0, 1};
    surface_hit first{ground_.first_hit(origin, direction, max_range, normal), 0, material::soil};
    const auto offer = [&](double range, const vector3& n, material m) {
        if (range < first.range) {
            first.range = range;
            first.made_of = m;
            normal = n;
        }
    };
    vector3 n{0, 0, 1};
    offer(water_hit(origin, direction), n, material::water);
    for (const std::uint32_t b : around.buildings) {
        const double range = buildings_[b].first_hit(origin, direction, n);
        offer(range, n, n[2] > 0.5 ? material::roof : material::wall);
    }
    for (const std::uint32_t t : around.trees) {
        offer(trees_[t].trunk_hit(origin, direction, n), n, material::bark);
    }
    first.incidence = incidence_of(direction, normal);
    if (first.made_of == material::water) {
        first.depth = depth_below(first.range * direction + origin, direction);
    }
    return first;
}

void scene::cast(const vector3& origin, const vector3& direction, double max_range,
                 random_source& random, hit_list& hits) const {
    hits.clear();
    const sector& around = sector_of(direction);
    const surface_hit solid = first_solid(origin, direction, max_range, around);
    const double last = std::min(solid.range, max_range);

    std::array<crossing, 48> leaves;
    std::size_t count = 0;
    for (const std::uint32_t n : around.trees) {
        for (const double layer : tree::layers) {
            double entry = 0;
            double exit = 0;
            if (count + 2 > leaves.size() ||
                !trees_[n].crossings(origin, direction, layer, entry, exit)) {
                break; // the inner layers lie within the outer ones
            }
            for (const double range : {entry, exit}) {
                if (range > 0 && range < last) {
                    leaves[count++] = {range, layer, &trees_[n]};
                }
            }
        }
    }
    std::sort(leaves.begin(), leaves.begin() + count,
              [](const crossing& a, const crossing& b) { return a.range < b.range; });

    double dead_until = 0;
    for (std::size_t i = 0; i < count && !hits.full(); ++i) {
        if (leaves[i].range >= dead_until && random.chance(leaf_echo)) {
            const vector3 at = leaves[i].range * direction + origin;
            hits.add({leaves[i].range,
                      incidence_of(direction, leaves[i].of->leaf_normal(at, leaves[i].layer)),
                      material::leaf});
            dead_until = leaves[i].range + least_separation;
        }
    }
    if (solid.range > max_range || hits.full() || solid.range < dead_until) {
        return;
    }
    if (solid.made_of != material::water || random.chance(water_echo(solid.incidence))) {
        hits.add(solid);
    }
}

double scene::distance(const vector3& point) const {
    double nearest = ground_.distance(point);
    const lake& water = ground_.water();
    if (std::hypot(point[0] - water.x, point[1] - water.y) <= water.radius) {
        nearest = std::min(nearest, std::abs(point[2] - water.level));
    }
    for (const building& b : buildings_) {
        nearest = std::min(nearest, b.distance(point));
    }
    for (const tree& t : trees_) {
        nearest = std::min(nearest, t.distance(point));
    }
    return nearest;
}

} // namespace simulator
