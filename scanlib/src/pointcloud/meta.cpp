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
        .member("unambiguous_range", unambiguous_range)
        .member("attenuation", attenuation)
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
    if (!reftab_table.empty()) {
        out.member("refltab_delta", reftab_step).array("refltab", reftab_table);
    }
    if (!mechs.empty()) {
        out.key("scanmech").begin_array();
        for (const auto& mech : mechs) {
            mech->write(out);
        }
        out.end_array();
    }
}

} // namespace scanlib
