#include "scanlib/saturate.hpp"
#include "scanlib/wave.hpp"

#include <algorithm>
#include <stdexcept>

// What the stream tells of the receiver channels, their pulse models and the reference pulse.
namespace scanlib {

namespace {

constexpr double default_a_lin = 0.4;
constexpr std::uint32_t default_resolution = 12;
constexpr double nanometre = 1e-09;

/// The channel that pulse_model_expsum tells of.
constexpr std::size_t pulse_model_channel = 1;

/// Where a copy of channel 0 stands when no channel is named "reference".
constexpr std::size_t spare_reference = 3;

constexpr const char* reference_name = "reference";

/// Values that the reference time is the median of.
constexpr std::size_t median_values = 8;

void clear_pulse_model(wave_channel& channel) {
    channel.expsum_ab.clear();
    channel.expsum_gw.clear();
}

template<class Term>
void add_term(wave_channel& channel, const Term& term) {
    channel.expsum_ab.emplace_back(term.A(), term.B());
    channel.expsum_gw.emplace_back(term.gamma(), term.omega());
}

/// Delay, scale and terms of a packet that tells them behind its fields.
template<class Packet>
void take_pulse_model(wave_channel& channel, const Packet& p) {
    channel.delay = p.delay();
    channel.scale = p.scale();
    clear_pulse_model(channel);
    for (std::size_t i = 0; i < p.tail_size(); ++i) {
        add_term(channel, p.tail(i));
    }
}

} // namespace

/// Takes the time of the reference pulse from a channel, unless a calibration told it.
void wave::set_reference_time(double seconds) noexcept {
    if (!t_null_locked_) {
        t_null_pdae = seconds;
    }
}

void wave::on_sbl_dg_parameters(packets::sbl_dg_parameters& p) {
    group_velocity = p.group_velocity();
    sampling_time = p.sampling_time();
    channels.clear();
    for (const char* name : {"high_power", "low_power", "super_high_power", reference_name}) {
        wave_channel& c = channels.emplace_back();
        c.name = name;
        c.sampling_time = sampling_time;
        c.adc_resolution_bits = default_resolution;
        c.wavelength = wavelength;
        c.delta_st = p.delta_st();
        c.a_lin = default_a_lin;
    }
    reference_channel_index = channels.size() - 1;
    set_reference_time(p.delta_st());
    have_wave_data = true;
    default_channels_in_use = true;
}

void wave::on_sbl_dg_channel(packets::sbl_dg_channel& p) {
    if (default_channels_in_use) {
        channels.clear();
        default_channels_in_use = false;
    }
    const std::size_t index = p.channel();
    if (channels.size() <= index) {
        channels.resize(index + 1);
    }
    wave_channel& c = channels[index];
    c.name = p.name().view();
    if (c.name == reference_name) {
        reference_channel_index = index;
    }
    c.adc_resolution_bits = p.adc_resolution_bits();
    c.sampling_time = 1.0 / p.sampling_rate();
    sampling_time = c.sampling_time;
    c.delta_st = p.delta_st();
    if (c.name == "low_power") {
        set_reference_time(c.delta_st);
    }
    c.wavelength = p.wavelength() * nanometre;
    c.a_lin = default_a_lin;
}

void wave::on_sbl_dg_channel_expsum(packets::sbl_dg_channel_expsum& p) {
    if (p.channel() < channels.size()) {
        wave_channel& c = channels[p.channel()];
        c.a_lin = default_a_lin;
        take_pulse_model(c, p);
    }
}

void wave::on_sbl_dg_channel_expsum_1(packets::sbl_dg_channel_expsum_1& p) {
    if (p.channel() < channels.size()) {
        wave_channel& c = channels[p.channel()];
        c.a_lin = p.a_lin();
        take_pulse_model(c, p);
    }
}

void wave::on_pulse_model_expsum(packets::pulse_model_expsum& p, const std::uint32_t* /*end*/) {
    if (channels.size() <= pulse_model_channel) {
        return;
    }
    wave_channel& c = channels[pulse_model_channel];
    c.a_lin = default_a_lin;
    c.delay = p.delay();
    c.scale = p.scale();
    clear_pulse_model(c);
    for (std::size_t i = 0; i < p.size(); ++i) {
        add_term(c, p[i]);
    }
}

void wave::on_check_parameters_before_measurement_starting() {
    pointcloud::on_check_parameters_before_measurement_starting();
    if (channels.empty()) {
        return;
    }
    bool has_reference = false;
    for (wave_channel& c : channels) {
        c.ticks_per_sample = saturate<std::uint64_t>(c.sampling_time / systime_hr_unit + 0.5);
        has_reference = has_reference || c.name == reference_name;
    }
    if (has_reference) {
        return;
    }
    wave_channel copy = channels.front();
    copy.name = reference_name;
    if (channels.size() <= spare_reference) {
        channels.resize(spare_reference + 1);
    }
    if (!channels[spare_reference].name.empty()) {
        throw std::runtime_error("wave: illegal name for channel 3 found: " +
                                 channels[spare_reference].name);
    }
    reference_channel_index = spare_reference;
    set_reference_time(copy.delta_st);
    channels[spare_reference] = std::move(copy);
}

void wave::on_calib_table(packets::calib_table& p, const std::uint32_t* end) {
    // Tables for waveforms come under two numbers each, the last one under its own.
    constexpr std::uint16_t reference_table = 13;
    std::size_t slot = 0;
    switch (p.table_id()) {
    case 0:
    case 10:
        slot = 0;
        break;
    case 1:
    case 11:
        slot = 1;
        break;
    case 2:
    case 12:
        slot = 2;
        break;
    case 3:
        slot = 3;
        break;
    case reference_table:
        slot = 4;
        break;
    default:
        pointcloud::on_calib_table(p, end);
        return;
    }
    calibration_slot& table = wave_calibration[slot];
    table.x_factor = p.x_factor();
    table.x_offset = p.x_offset();
    table.y_factor = p.y_factor();
    table.y_offset = p.y_offset();
    table.first.resize(p.size());
    table.second.resize(p.size());
    for (std::size_t i = 0; i < p.size(); ++i) {
        const auto e = p[i];
        table.first[i] = e.x();
        table.second[i] = e.y();
    }
    if (p.table_id() != reference_table || table.second.empty()) {
        return;
    }
    std::array<std::int16_t, median_values> values{};
    auto median = static_cast<std::int16_t>(table.second.front());
    if (table.second.size() >= median_values) {
        std::transform(table.second.begin(), table.second.begin() + median_values, values.begin(),
                       [](std::uint16_t v) { return static_cast<std::int16_t>(v); });
        auto* const middle = values.begin() + median_values / 2;
        std::nth_element(values.begin(), middle, values.end());
        median = *middle;
    }
    t_null_pdae = -table.y_offset - table.y_factor * median;
    t_null_locked_ = true;
}

} // namespace scanlib
