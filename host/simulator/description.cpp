#include "simulator/description.hpp"

#include "scanlib/packet_writers.hpp"

#include <array>
#include <vector>

namespace simulator {

namespace {

namespace packets = scanlib::packets;
using scanlib::packet_emitter;

/// Kinds frequent enough for a short code.
constexpr std::array frequent_kinds{
    packets::laser_shot_2angles_writer::index,
    packets::laser_shot_2angles_hr_writer::index,
    packets::echo_writer::index,
    packets::line_start_up_writer::index,
    packets::line_stop_writer::index,
    packets::pps_sync_writer::index,
    packets::pps_sync_hr_writer::index,
    packets::counter_sync_writer::index,
    packets::hk_time_writer::index,
    packets::hk_rtc_sys_writer::index,
    packets::hk_incl_writer::index,
    packets::generic_end_writer::index,
    packets::channeled_shot_echoes_writer::index,
};

/// Identity, and the kinds frequent enough for a short code.
void emit_header(packet_emitter& out, const waveform_writer& waveforms) {
    std::vector<scanlib::packet_index> kinds(frequent_kinds.begin(), frequent_kinds.end());
    const auto of_waveforms = waveforms.frequent_kinds();
    kinds.insert(kinds.end(), of_waveforms.begin(), of_waveforms.end());
    out.emit<packets::header_writer>(
        [&](packets::header_writer& p) {
            p.type_id(instrument::type_id);
            p.build(instrument::build);
            p.serial(instrument::serial);
            for (std::size_t i = 0; i < kinds.size(); ++i) {
                const scanlib::packet_layout& kind = scanlib::layout_of(kinds[i]);
                auto entry = p.element(i);
                entry.id(static_cast<std::uint16_t>(kind.id));
                entry.version(static_cast<std::uint16_t>(kind.version));
            }
        },
        kinds.size());
}

void emit_units(packet_emitter& out, const instrument& scanner) {
    out.emit<packets::units_4_writer>([&](packets::units_4_writer& p) {
        p.range_unit(scanner.units().range);
        p.line_circle_count(scan_program::line_circle_count);
        p.frame_circle_count(scan_program::frame_circle_count);
        p.systime_unit(instrument::systime_unit);
        p.ampl_refl_unit(scanner.units().ampl_refl);
        p.systime_hr_unit(instrument::systime_hr_unit);
        p.systime_hr_bits(scanner.units().hr);
        p.utc_unit(instrument::systime_unit);
    });
}

void emit_reflectance_table(packet_emitter& out, const instrument& scanner) {
    out.emit<packets::reftab_table_writer>(
        [&](packets::reftab_table_writer& p) {
            p.step_counter(scanner.reftab_step_counter());
            for (std::size_t i = 0; i < instrument::reftab_entries; ++i) {
                p.element(i, scanner.reftab_entry(i));
            }
        },
        instrument::reftab_entries);
}

void emit_atmosphere(packet_emitter& out) {
    out.emit<packets::atmosphere_4_writer>([](packets::atmosphere_4_writer& p) {
        p.temperature(15.0F);
        p.pressure(1000.0F);
        p.rel_humidity(60.0F);
        p.rng_scale(0.0F);
        p.pressure_sl(1013.0F);
        p.group_velocity(instrument::group_velocity);
        p.attenuation(instrument::attenuation);
        p.wavelength(instrument::wavelength);
    });
}

} // namespace

void describe(const instrument& scanner, const calibration& faults,
              const waveform_writer& waveforms, packet_emitter& out) {
    emit_header(out, waveforms);
    emit_units(out, scanner);
    scanner.mirrors().tell(out);
    emit_reflectance_table(out, scanner);
    faults.tell(out);
    emit_atmosphere(out);
    waveforms.tell();
}

} // namespace simulator
