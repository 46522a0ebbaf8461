#include "scanlib/pointcloud.hpp"
#include "scanlib/scanlib_exception.hpp"

#include <stdexcept>
#include <string>

namespace scanlib {

namespace {

/// Units of a shot told with its beam, fixed by the packet's format.
constexpr double fixed_origin_unit = 2.384185791015625e-07;
constexpr double fixed_direction_unit = 6.103515625e-05;

/// Range counts of the whole reflectance table for a step counter of 1.
constexpr double reftab_counts = 16777216;

/// Range counts between two entries of the near-range table.
constexpr double nrange_counts = 2048;

/// The kind of a 2D table that corrects ranges.
constexpr std::uint16_t range_correction_kind = 1;

template<class Packet>
void take_intervals(std::vector<double>& intervals, Packet& p) {
    intervals.resize(p.size());
    for (std::size_t i = 0; i < intervals.size(); ++i) {
        intervals[i] = p[i];
    }
}

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
    reftab_table.step = static_cast<float>(reftab_counts * range_unit / p.step_counter());
    reftab_table.entries.resize(p.size());
    for (std::size_t i = 0; i < p.size(); ++i) {
        reftab_table.entries[i] = static_cast<float>(p[i] * -refl_unit);
    }
}

void pointcloud::on_arange_table(packets::arange_table& p, const std::uint32_t* /*end*/) {
    arange_table.step = p.step();
    arange_table.entries.resize(p.size());
    for (std::size_t i = 0; i < p.size(); ++i) {
        arange_table.entries[i] = p[i];
    }
}

void pointcloud::on_nrange_table(packets::nrange_table& p, const std::uint32_t* /*end*/) {
    if (calib_2d_active) {
        return;
    }
    nrange_table.step = static_cast<float>(nrange_counts * range_unit);
    nrange_table.entries.resize(p.size());
    for (std::size_t i = 0; i < p.size(); ++i) {
        nrange_table.entries[i] = static_cast<float>(p[i] * range_unit);
    }
}

void pointcloud::on_calib_table(packets::calib_table& p, const std::uint32_t* /*end*/) {
    calibration_curve::pairs_type pairs(p.size());
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const auto e = p[i];
        pairs[i] = {e.x() * p.x_factor() + p.x_offset(), e.y() * p.y_factor() + p.y_offset()};
    }
    calib_tables.set(p.table_id(), std::move(pairs));
}

void pointcloud::on_calib_2D_table(packets::calib_2D_table& p, const std::uint32_t* /*end*/) {
    if (p.table_kind() != range_correction_kind) {
        return;
    }
    std::vector<std::uint16_t> raw(p.size());
    for (std::size_t i = 0; i < raw.size(); ++i) {
        raw[i] = p[i];
    }
    try {
        calib_2d = range_grid::read(p.rows(), p.columns(),
                                    {p.row_factor(), p.row_offset(), p.column_factor(),
                                     p.column_offset(), p.value_factor(), p.value_offset()},
                                    raw);
    } catch (const std::runtime_error& e) {
        throw scanlib_exception(std::string("pointcloud::on_calib_2D_table: ") + e.what(),
                                "pointcloud", __LINE__);
    }
    nrange_table = {};
    calib_2d_active = true;
}

void pointcloud::on_notch_filter(packets::notch_filter& p) {
    notch.set_static(p.range_low(), p.range_high(), p.amplitude(), notch_units());
}

void pointcloud::on_notch_filter_modification_parameters(
    packets::notch_filter_modification_parameters& p) {
    notch.set_modification(
        {p.angle_offset(), p.width_offset(), p.width_scale(), p.ampl_offset(), p.ampl_scale()});
}

void pointcloud::on_check_parameters_before_measurement_starting() {
    if (!mechs.empty()) {
        notch.set_angular(calib_tables, mechs.front()->line_circle_count,
                          mechs.front()->frame_circle_count, notch_units());
    }
}

void pointcloud::on_pulse_position_modulation(packets::pulse_position_modulation& p,
                                              const std::uint32_t* /*end*/) {
    pulse_num_mod_ampl = p.pulse_num_mod_ampl();
    take_intervals(intervals, p);
}

void pointcloud::on_pulse_position_modulation_1(packets::pulse_position_modulation_1& p,
                                                const std::uint32_t* /*end*/) {
    pulse_num_mod_ampl = p.pulse_num_mod_ampl();
    pulse_code_phase_mode = p.pulse_code_phase_mode();
    pulse_phase_step = p.pulse_phase_step();
    take_intervals(intervals, p);
}

void pointcloud::on_m_sequence_mta(packets::m_sequence_mta& p) {
    pulse_num_mod_ampl = 2;
    intervals.assign(p.interval_count(), unknown);
}

void pointcloud::on_scan_segments_fov(packets::scan_segments_fov& p) {
    scan_segments = p.words() != p.end_of_words() ? *p.words() : 0;
}

} // namespace scanlib
