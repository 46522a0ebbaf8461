#include "scanlib/pointcloud.hpp"
#include "scanlib/scanlib_exception.hpp"

#define BOOST_BIND_GLOBAL_PLACEHOLDERS // the parser still uses them, and says so at length without
                                       // this
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <ostream>
#include <sstream>

namespace scanlib {

void pointcloud::get_meta(std::ostream& out, bool pretty) const {
    if (!measurement_started) {
        throw scanlib_exception("pointcloud::get_meta: meta information not available (yet)",
                                "pointcloud", __LINE__);
    }
    if (!pretty) {
        out << '{';
        write_meta(out);
        out << '}';
        return;
    }
    std::stringstream text;
    text << '{';
    write_meta(text);
    text << '}';
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(text, tree);
    boost::property_tree::write_json(out, tree, true);
}

void pointcloud::write_meta(std::ostream& out) const {
    json_writer json;
    json.begin_object();
    write_state(json);
    json.end_object();
    out << "\"pointcloud\":" << json.text();
}

void pointcloud::write_state(json_writer& out) const {
    out.member("type_id", type_id);
    if (!ident.empty()) {
        out.member("ident", ident);
    }
    out.member("serial", serial)
        .member("build", build)
        .member("unambiguous_range", unambiguous_range);
    if (mta_enabled && mta_zones == 0) {
        out.member("gate_low", gate_low).member("gate_high", gate_high);
    }
    out.member("attenuation", attenuation)
        .member("pressure", pressure)
        .member("pressure_sl", pressure_sl)
        .member("rel_humidity", rel_humidity)
        .member("rng_scale", rng_scale)
        .member("delta_rg", delta_rg)
        .member("temperature", temperature)
        .member("group_velocity", group_velocity)
        .member("wavelength", wavelength)
        .member("sampling_time", sampling_time)
        .member("pulse_repetition_rate", shot_sync.pulse_repetition_rate())
        .member("ampl_unit", ampl_unit)
        .member("refl_unit", refl_unit)
        .member("systime_unit", systime_unit)
        .member("systime_hr_unit", systime_hr_unit)
        .member("systime_hr_bits", systime_hr_bits);
    if (!intervals.empty()) {
        out.key("pulse_position_modulation")
            .begin_object()
            .member("pulse_num_mod_ampl", pulse_num_mod_ampl)
            .member("pulse_code_phase_mode", pulse_code_phase_mode)
            .member("pulse_phase_step", pulse_phase_step)
            .array("intervals", intervals)
            .end_object();
    }
    if (!nrange_table.empty()) {
        out.member("nrange_delta", nrange_table.step).array("nrange", nrange_table.entries);
    }
    if (!reftab_table.empty()) {
        out.member("refltab_delta", reftab_table.step).array("refltab", reftab_table.entries);
    }
    if (!mechs.empty()) {
        out.key("scanmech").begin_array();
        for (const auto& mech : mechs) {
            mech->write(out);
        }
        out.end_array();
    }
    if (dyntrig.present() && !dyntrig.table_form()) {
        write_trigger(out);
    }
}

void pointcloud::write_trigger(json_writer& out) const {
    out.key("dyntrig")
        .begin_object()
        .member("offset", dyntrig.offset())
        .member("scale", dyntrig.scale())
        .key("table")
        .begin_array();
    for (const auto& row : dyntrig.rows()) {
        out.begin_object()
            .member("thra1", row.thra1)
            .member("del1", row.del1)
            .member("dec1", row.dec1)
            .member("thra2", row.thra2)
            .member("del2", row.del2)
            .member("dec2", row.dec2)
            .end_object();
    }
    out.end_array().end_object();
}

} // namespace scanlib
