#include "scanlib/pointcloud.hpp"

#include <cmath>
#include <limits>

namespace scanlib {

namespace {

constexpr float nan32 = std::numeric_limits<float>::quiet_NaN();

/// Range at which a pseudo target stands, in metres.
constexpr double pseudo_range = 0.35;

/// Decibels for each neper.
constexpr double decibel_of_neper = 8.68589;

constexpr std::uint8_t bit(unsigned flags, unsigned n) {
    return static_cast<std::uint8_t>(flags >> n & 1);
}

} // namespace

inline bool pointcloud::ready_for_echo() {
    if (!shot_open) [[unlikely]] {
        note_loss(loss::echo_without_shot);
        return false;
    }
    return true;
}

/// Reports the target stored before the one that comes now.
inline void pointcloud::deliver_stored() {
    if (target_count == 0) {
        return;
    }
    if (held_back()) [[unlikely]] {
        note_loss(loss::target_held_back);
        return;
    }
    on_echo_ready(target_count == 1 ? echo_position::first : echo_position::interior);
}

/// Room for one more target. What its slot held before stays there until it is overwritten.
inline target& pointcloud::next_target() {
    if (target_count == targets.size()) [[unlikely]] {
        targets.emplace_back();
    }
    return targets[target_count++];
}

inline void pointcloud::fill_from_shot(target& t) const noexcept {
    t.time = time;
    t.time_internal = time_internal;
    t.background_radiation = background_radiation;
    t.is_pps_locked = shot_sync.locked();
    t.facet = facet;
    t.segment = segment;
    t.lineend = 0;
    t.mta_zone = 0;
}

inline void pointcloud::place_on_beam(target& t, double range) const noexcept {
    for (std::size_t i = 0; i < 3; ++i) {
        t.vertex[i] = static_cast<float>(range * beam_direction[i] + beam_origin[i]);
    }
}

/// The point as the scanner model of the shot sees it.
inline void pointcloud::place(target& t, double range) const noexcept {
    const scanmech* mech = mech_of(segment);
    if (mech == nullptr) {
        place_on_beam(t, range);
        return;
    }
    vector3 point;
    mech->position(point, range);
    for (std::size_t i = 0; i < 3; ++i) {
        t.vertex[i] = static_cast<float>(point[i]);
    }
}

/// Applies the reflectance table: linear between its entries, and beyond them the loss of a beam
/// that spreads.
inline float pointcloud::corrected_reflectance(float reflectance, double range) const noexcept {
    if (reftab_table.empty()) {
        return reflectance;
    }
    const double step = reftab_step;
    const double last = static_cast<double>(reftab_table.size() - 1);
    const double distance = std::fabs(range);
    const double place = distance / step;
    const double whole = std::floor(place);
    if (whole < last) {
        // A negative step, which only a negative range unit gives, stays at the first entry.
        const std::size_t i = whole > 0 ? static_cast<std::size_t>(whole) : 0;
        const double f = place - whole;
        return static_cast<float>(reflectance + (1 - f) * reftab_table[i] +
                                  f * reftab_table[i + 1]);
    }
    return static_cast<float>(reflectance + reftab_table.back() +
                              20 * std::log10(distance / (last * step)));
}

inline void pointcloud::store_echo(const raw_echo& e) {
    const double range = e.range_counter * range_unit + delta_rg;

    deliver_stored();
    target& t = next_target();
    t.echo_range = range;
    fill_from_shot(t);
    place(t, range);
    t.amplitude = static_cast<float>(e.amplitude * ampl_unit);
    const float refl = corrected_reflectance(static_cast<float>(e.reflectance * refl_unit), range);
    t.reflectance = refl + static_cast<float>(std::fabs(range) * attenuation * decibel_of_neper);
    t.deviation = e.deviation;
    t.is_rising = bit(e.flags, 0);
    t.is_pseudo = bit(e.flags, 2);
}

void pointcloud::on_echo(packets::echo& p) {
    if (ready_for_echo()) {
        store_echo({p.range_counter(), p.amplitude(), p.reflectance(), p.flags(), p.deviation()});
    }
}

void pointcloud::on_echo_1(packets::echo_1& p) {
    if (ready_for_echo()) {
        const std::uint16_t amplitude = p.amplitude();
        const auto reflectance = static_cast<std::int16_t>(amplitude + p.reflectance_offset());
        store_echo({p.range_counter(), amplitude, reflectance, p.flags(), p.deviation()});
    }
}

void pointcloud::on_laser_echo_qual(packets::laser_echo_qual& p) {
    quality_deviation = p.deviation();
    quality_rising = bit(p.flags(), 0);
    quality_pseudo = bit(p.flags(), 2);
}

void pointcloud::on_laser_echo(packets::laser_echo& p) {
    if (!ready_for_echo()) {
        return;
    }
    deliver_stored();
    target& t = next_target();
    t.echo_range = p.range_counter() * range_unit + delta_rg;
    fill_from_shot(t);
    place_on_beam(t, t.echo_range);
    t.amplitude = static_cast<float>(p.amplitude() * ampl_unit);
    t.reflectance = nan32;
    t.deviation = quality_deviation;
    t.is_rising = quality_rising;
    t.is_pseudo = quality_pseudo;
}

void pointcloud::on_laser_echo_sw(packets::laser_echo_sw& p) {
    if (!ready_for_echo()) {
        return;
    }
    deliver_stored();
    target& t = next_target();
    t.echo_range = p.range_counter() * range_unit + delta_rg;
    fill_from_shot(t);
    place_on_beam(t, t.echo_range);
    t.amplitude = p.amplitude();
    t.reflectance = 0;
    t.deviation = 0;
    t.is_sw = 1;
    t.is_rising = 0;
    t.is_pseudo = 0;
}

/// A shot without echoes still tells its background radiation.
void pointcloud::store_pseudo_target() {
    target& t = next_target();
    t.echo_range = pseudo_range;
    fill_from_shot(t);
    place_on_beam(t, pseudo_range);
    t.amplitude = static_cast<float>(ampl_unit);
    t.reflectance = nan32;
    t.deviation = 0;
    t.is_rising = 0;
    t.is_pseudo = 0;
}

} // namespace scanlib
