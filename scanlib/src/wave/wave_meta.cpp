#include "scanlib/json_members.hpp"
#include "scanlib/json_writer.hpp"
#include "scanlib/wave.hpp"

#include <algorithm>
#include <ostream>
#include <string>

// The channels as metadata, written and read.
namespace scanlib {

namespace {

void write_pulse_model(json_writer& out, const wave_channel& c) {
    out.key("expsum").begin_array();
    for (std::size_t i = 0; i < c.expsum_ab.size(); ++i) {
        out.begin_object()
            .member("A", c.expsum_ab[i].first)
            .member("B", c.expsum_ab[i].second)
            .member("gamma", c.expsum_gw[i].first)
            .member("omega", c.expsum_gw[i].second)
            .end_object();
    }
    out.end_array();
    out.member("a_lin", c.a_lin).member("delay", c.delay).member("scale", c.scale);
}

/// The terms of a pulse model.
void read_pulse_model(const members::ptree& tree, wave_channel& c) {
    struct term {
        double A;
        double B;
        double gamma;
        double omega;
    };
    std::vector<term> terms;
    members::read_list(tree, "expsum", terms, [](const members::ptree& element) {
        term t{};
        members::require(element, "A", t.A);
        members::require(element, "B", t.B);
        members::require(element, "gamma", t.gamma);
        members::require(element, "omega", t.omega);
        return t;
    });
    if (members::find(tree, "expsum") == nullptr) {
        return;
    }
    c.expsum_ab.clear();
    c.expsum_gw.clear();
    for (const term& t : terms) {
        c.expsum_ab.emplace_back(t.A, t.B);
        c.expsum_gw.emplace_back(t.gamma, t.omega);
    }
}

} // namespace

void wave::write_meta(std::ostream& out) const {
    pointcloud::write_meta(out);
    if (channels.empty()) {
        return;
    }
    json_writer json;
    json.begin_object().key("channel_properties").begin_array();
    for (const wave_channel& c : channels) {
        json.begin_object()
            .member("name", std::string_view(c.name))
            .member("sampling_time", c.sampling_time)
            .member("adc_resolution_bits", c.adc_resolution_bits)
            .member("wavelength", c.wavelength)
            .member("delta_st", c.delta_st);
        if (!c.expsum_ab.empty() && c.expsum_ab.size() == c.expsum_gw.size()) {
            write_pulse_model(json, c);
        }
        json.end_object();
    }
    json.end_array()
        .member("reference_channel_index", reference_channel_index)
        .member("t_null_pdae", t_null_pdae)
        .end_object();
    out << ",\"wave\":" << json.text();
}

void wave::read_channel(const members::ptree& tree, wave_channel& c) {
    if (const members::ptree* name = members::find(tree, "name")) {
        c.name = name->data();
    }
    members::read(tree, "sampling_time", c.sampling_time);
    members::read(tree, "adc_resolution_bits", c.adc_resolution_bits);
    members::read(tree, "wavelength", c.wavelength);
    if (members::find(tree, "delta_st") != nullptr) {
        members::read(tree, "delta_st", c.delta_st);
        if (c.name == "low_power") {
            set_reference_time(c.delta_st);
        }
    }
    read_pulse_model(tree, c);
    members::read(tree, "a_lin", c.a_lin);
    members::read(tree, "delay", c.delay);
    members::read(tree, "scale", c.scale);
}

void wave::apply_meta() {
    pointcloud::apply_meta();
    const members::ptree* tree = stored_section("wave");
    if (tree == nullptr) {
        return;
    }
    if (const members::ptree* list = members::find(*tree, "channel_properties")) {
        std::size_t i = 0;
        for (const auto& [name, element] : members::elements(*list, "channel_properties")) {
            if (i == channel_limit) {
                members::malformed("channel_properties", "to have at most 16 elements");
            }
            if (i == channels.size()) {
                channels.emplace_back();
            }
            read_channel(element, channels[i++]);
        }
    }
    std::uint32_t index = 0;
    if (members::find(*tree, "reference_channel_index") != nullptr) {
        members::read(*tree, "reference_channel_index", index);
        reference_channel_index = index;
    }
    if (members::find(*tree, "t_null_pdae") != nullptr) {
        members::read(*tree, "t_null_pdae", t_null_pdae);
        t_null_locked_ = true;
    }
}

} // namespace scanlib
