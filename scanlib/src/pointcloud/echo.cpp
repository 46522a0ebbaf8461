#include "scanlib/pointcloud.hpp"

#include "target_storage.hpp"

#include <cmath>
#include <limits>

namespace scanlib {

namespace {

constexpr float nan32 = std::numeric_limits<float>::quiet_NaN();

/// Range at which a pseudo target stands, in metres.
constexpr double pseudo_range = 0.35;

/// Decibels for each neper.
constexpr double decibel_of_neper = 8.68589;

} // namespace

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

/// Places an echo: in the main list, or in that of an alternative zone. `fraction_range` is the
/// range that the near-range table interpolates by.
inline void pointcloud::store_target(target& t, mta_history::located_echo where,
                                     double fraction_range, const raw_echo& e) {
    if (mta_enabled) {
        recall_shot(where.zone);
    }
    double range = where.range;
    if (!nrange_table.empty()) {
        range = nrange_table.corrected(range, fraction_range);
    }
    if (!calib_2d.empty()) {
        range = calib_2d.corrected(range, e.amplitude * ampl_unit);
    }
    t.echo_range = range;
    fill_from_shot(t);
    t.mta_zone = where.zone;
    place(t, range);
    t.amplitude = static_cast<float>(e.amplitude * ampl_unit);
    const float refl = reftab_table.corrected(static_cast<float>(e.reflectance * refl_unit), range);
    t.reflectance = refl + static_cast<float>(std::fabs(range) * attenuation * decibel_of_neper);
    t.deviation = e.deviation;
    t.is_rising = flag_bit(e.flags, 0);
    t.is_pseudo = flag_bit(e.flags, 2);
}

inline void pointcloud::store_echo(const raw_echo& e) {
    if (rejected_by_notch(e.range_counter, e.amplitude)) {
        return;
    }
    const double counter = arange_table.empty()
                               ? e.range_counter
                               : arange_table.corrected(e.range_counter, e.amplitude, ampl_unit);
    const double range = counter * range_unit + delta_rg;
    mta_history::located_echo where = {0, range};
    if (mta_enabled) {
        if (mta_zones != 0) {
            where = history.locate(range, mta_zones, group_velocity, systime_hr_unit);
        } else if (const auto found = history.search(range, gate_low, gate_high, group_velocity,
                                                     systime_hr_unit)) {
            where = *found;
        } else {
            note_loss(loss::echo_without_zone);
            return;
        }
    }
    deliver_stored();
    target& t = next_target();
    for (std::size_t i = 0; i < mta_alternatives.size(); ++i) {
        const auto other = mta_enabled ? history.locate(range, mta_alternatives[i], group_velocity,
                                                        systime_hr_unit)
                                       : where;
        store_target(alternatives[i][target_count - 1], other, range, e);
    }
    store_target(t, where, where.range, e);
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
