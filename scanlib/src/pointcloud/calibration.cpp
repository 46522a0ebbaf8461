#include "scanlib/pointcloud.hpp"

namespace scanlib {

namespace {

/// Units of a shot told with its beam, fixed by the packet's format.
constexpr double fixed_origin_unit = 2.384185791015625e-07;
constexpr double fixed_direction_unit = 6.103515625e-05;

/// Range counts of the whole reflectance table for a step counter of 1.
constexpr double reftab_counts = 16777216;

} // namespace

// The versions of a units packet run from the newest down, so that `on_units` comes last and sees
// them all.
void pointcloud::on_units_4(packets::units_4& p) {
    utc_unit = p.utc_unit();
    origin_unit = fixed_origin_unit;
    direction_unit = fixed_direction_unit;
}

void pointcloud::on_units_3(packets::units_3& p) {
    systime_hr_bits = p.systime_hr_bits();
}

void pointcloud::on_units_2(packets::units_2& p) {
    systime_hr_unit = p.systime_hr_unit();
}

void pointcloud::on_units_1(packets::units_1& p) {
    ampl_unit = p.ampl_refl_unit();
    refl_unit = p.ampl_refl_unit();
}

void pointcloud::on_units(packets::units& p) {
    range_unit = p.range_unit();
    systime_unit = p.systime_unit();
    embedded_mech.range_unit = range_unit;
    embedded_mech.line_circle_count = p.line_circle_count() != 0 ? p.line_circle_count() : 1;
    embedded_mech.frame_circle_count = p.frame_circle_count() != 0 ? p.frame_circle_count() : 1;
    embedded_mech.initialise();
    configure_synchronisers();
}

void pointcloud::on_atmosphere_2(packets::atmosphere_2& p) {
    temperature = p.temperature();
    pressure = p.pressure();
    rel_humidity = p.rel_humidity();
    rng_scale = p.rng_scale();
    pressure_sl = p.pressure_sl();
    group_velocity = p.group_velocity();
}

void pointcloud::on_atmosphere_3(packets::atmosphere_3& p) {
    attenuation = p.attenuation() * 0.001;
}

void pointcloud::on_atmosphere_4(packets::atmosphere_4& p) {
    wavelength = p.wavelength() * 1e-09;
}

void pointcloud::on_reftab_table(packets::reftab_table& p, const std::uint32_t* /*end*/) {
    reftab_step = static_cast<float>(reftab_counts * range_unit / p.step_counter());
    reftab_table.resize(p.size());
    for (std::size_t i = 0; i < reftab_table.size(); ++i) {
        reftab_table[i] = static_cast<float>(p[i] * -refl_unit);
    }
}

void pointcloud::on_scan_segments_fov(packets::scan_segments_fov& p) {
    scan_segments = p.words() != p.end_of_words() ? *p.words() : 0;
}

} // namespace scanlib
