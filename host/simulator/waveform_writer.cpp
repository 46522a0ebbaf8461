#include "simulator/waveform_writer.hpp"

#include "scanlib/packet_writers.hpp"
#include "scanlib/sample_codec.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace simulator {

namespace {

namespace packets = scanlib::packets;
using scanlib::packet_emitter;

// The odd flag of compressed packets lies within the field of the bit width, which they do not use:
// these are the widths that are nothing but the flag.
constexpr std::uint8_t odd_width_of_channels = 4;

// Where the reference pulse lies in its samples, in samples less 1/4096 of them.
constexpr std::uint16_t reference_coarse_time = 24;
constexpr std::uint32_t reference_fine_time = 1024;

/// One term of a sum of damped oscillations.
struct pulse_term {
    double a, b, gamma, omega;
};
constexpr std::array<pulse_term, 3> pulse_model{{
    {0.62, -0.18, 2.1e8, 1.3e8},
    {-0.41, 0.33, 3.4e8, 4.2e8},
    {0.07, 0.05, 5.5e8, 9.6e8},
}};
constexpr double model_delay = 4.5e-09;
constexpr double model_scale = 1.25;
constexpr double model_linearity = 0.37;

template<class Writer>
void put_terms(Writer& p) {
    p.delay(model_delay);
    p.scale(model_scale);
    for (std::size_t i = 0; i < pulse_model.size(); ++i) {
        auto term = p.element(i);
        term.A(pulse_model[i].a);
        term.B(pulse_model[i].b);
        term.gamma(pulse_model[i].gamma);
        term.omega(pulse_model[i].omega);
    }
}

/// A number of `bits` bits, in units of `unit`; the greatest one for what lies beyond.
std::uint32_t fixed_point(double value, double unit, unsigned bits) {
    const double greatest = static_cast<double>((std::uint64_t{1} << bits) - 1);
    return static_cast<std::uint32_t>(std::clamp(std::round(value / unit), 0.0, greatest));
}

constexpr double sixteenth = 0x1p-4;
constexpr double quarter = 0x1p-2;

/// The two heads of fixed channels have places for two pulses.
template<class Writer>
void put_pulses(Writer& p, const sampled_shot& s) {
    const auto position = [&](std::size_t i) {
        return static_cast<std::uint16_t>(
            i < s.pulses.size() ? fixed_point(s.pulses[i].position, sixteenth, 16) : 0);
    };
    const auto amplitude = [&](std::size_t i) {
        return static_cast<std::uint8_t>(
            i < s.pulses.size() ? fixed_point(s.pulses[i].amplitude, quarter, 8) : 0);
    };
    p.position_0(position(0));
    p.position_1(position(1));
    p.amplitude_0(amplitude(0));
    p.amplitude_1(amplitude(1));
    p.sample(s.runs().front().samples().front());
}

void tell_channel(packet_emitter& out, std::uint8_t number, std::string_view name) {
    out.emit<packets::sbl_dg_channel_writer>([&](packets::sbl_dg_channel_writer& p) {
        p.channel(number);
        p.name(name);
        p.adc_resolution_bits(digitiser::resolution);
        p.sampling_rate(digitiser::sampling_rate);
        p.delta_st(waveform_writer::reference_delay);
        p.wavelength(instrument::wavelength);
    });
}

} // namespace

void tell_waveform_tables(packet_emitter& out) {
    constexpr std::uint16_t reference_table = 13;
    // Of an even number of times the upper one in the middle counts.
    constexpr std::array<std::int16_t, 9> reference_times{-40, 25, 31, 12, 28, -3, 30, 27, 500};
    constexpr std::array<std::uint16_t, 5> tables{0, 1, 2, 3, reference_table};
    for (const std::uint16_t table : tables) {
        out.emit<packets::calib_table_writer>(
            [&](packets::calib_table_writer& p) {
                p.table_id(table);
                p.x_factor(0.25 * (table + 1));
                p.y_factor(table == reference_table ? 1e-11 : 0.01);
                p.y_offset(table == reference_table ? -2e-09 : 0.5);
                for (std::size_t i = 0; i < reference_times.size(); ++i) {
                    auto entry = p.element(i);
                    entry.x(static_cast<std::uint16_t>(100 * i));
                    entry.y(static_cast<std::uint16_t>(table == reference_table
                                                           ? reference_times[i]
                                                           : static_cast<std::int16_t>(7 * i)));
                }
            },
            reference_times.size());
    }
}

waveform_writer::waveform_writer(waveform_form form, packet_emitter& out, shot_writer& shots)
    : form_(form), out_(out), shots_(shots) {}

std::vector<scanlib::packet_index> waveform_writer::frequent_kinds() const {
    switch (form_) {
    case waveform_form::parameters:
        return {packets::sbl_dg_header_writer::index, packets::sbl_dg_data_writer::index};
    case waveform_form::parameters_compressed:
        return {packets::sbl_dg_header_writer::index,
                packets::sbl_dg_data_compressed_writer::index};
    case waveform_form::hr:
        return {packets::sbl_dg_header_hr_writer::index, packets::sbl_dg_data_hr_writer::index};
    case waveform_form::hr_compressed:
        return {packets::sbl_dg_header_hr_writer::index,
                packets::sbl_dg_data_compressed_hr_writer::index};
    case waveform_form::channel:
        return {packets::sbl_dg_channel_header_writer::index,
                packets::sbl_dg_channel_data_writer::index};
    case waveform_form::channel_1:
        return {packets::sbl_dg_channel_header_1_writer::index,
                packets::sbl_dg_channel_data_writer::index};
    case waveform_form::channel_compressed:
        return {packets::sbl_dg_channel_header_writer::index,
                packets::sbl_dg_channel_data_compressed_writer::index};
    case waveform_form::subpackages:
    case waveform_form::none:
        break;
    }
    return {};
}

void waveform_writer::tell_fixed_channels() const {
    out_.emit<packets::sbl_dg_parameters_writer>([](packets::sbl_dg_parameters_writer& p) {
        p.group_velocity(instrument::group_velocity);
        p.sampling_time(static_cast<float>(1 / digitiser::sampling_rate));
        p.delta_st(reference_delay);
    });
    out_.emit<packets::pulse_model_expsum_writer>(
        [](packets::pulse_model_expsum_writer& p) { put_terms(p); }, pulse_model.size());
}

void waveform_writer::tell_channels() const {
    tell_channel(out_, high_power_channel, "high_power");
    tell_channel(out_, low_power_channel, "low_power");
    tell_channel(out_, reference_channel, "reference");
    out_.emit<packets::sbl_dg_channel_expsum_writer>(
        [](packets::sbl_dg_channel_expsum_writer& p) {
            p.channel(high_power_channel);
            put_terms(p);
        },
        pulse_model.size());
    out_.emit<packets::sbl_dg_channel_expsum_1_writer>(
        [](packets::sbl_dg_channel_expsum_1_writer& p) {
            p.channel(low_power_channel);
            p.a_lin(model_linearity);
            put_terms(p);
        },
        pulse_model.size());
}

void waveform_writer::tell() const {
    switch (form_) {
    case waveform_form::none:
        break;
    case waveform_form::parameters:
    case waveform_form::parameters_compressed:
    case waveform_form::hr:
    case waveform_form::hr_compressed:
        tell_fixed_channels();
        break;
    case waveform_form::channel:
    case waveform_form::channel_1:
    case waveform_form::channel_compressed:
    case waveform_form::subpackages:
        tell_channels();
        break;
    }
}

void waveform_writer::write(const sampled_shot& s) {
    write_head(s);
    for (const sample_run& run : s.runs()) {
        write_run(run);
    }
}

void waveform_writer::write_head(const sampled_shot& s) {
    switch (form_) {
    case waveform_form::parameters:
    case waveform_form::parameters_compressed:
        out_.emit<packets::sbl_dg_header_writer>([&](packets::sbl_dg_header_writer& p) {
            p.time_counter(static_cast<std::uint32_t>(s.ticks));
            p.coarse_time(reference_coarse_time);
            p.fine_time(reference_fine_time);
            put_pulses(p, s);
        });
        break;
    case waveform_form::hr:
    case waveform_form::hr_compressed:
        out_.emit<packets::sbl_dg_header_hr_writer>([&](packets::sbl_dg_header_hr_writer& p) {
            p.time_counter_hr(s.ticks);
            put_pulses(p, s);
        });
        break;
    case waveform_form::channel:
    case waveform_form::channel_compressed:
        out_.emit<packets::sbl_dg_channel_header_writer>(
            [&](packets::sbl_dg_channel_header_writer& p) {
                p.time_counter_hr(s.ticks);
                for (std::size_t i = 0; i < s.pulses.size(); ++i) {
                    auto entry = p.element(i);
                    entry.position(fixed_point(s.pulses[i].position, sixteenth, 20));
                    entry.amplitude(static_cast<std::uint16_t>(
                        fixed_point(s.pulses[i].amplitude, sixteenth, 12)));
                }
            },
            s.pulses.size());
        break;
    case waveform_form::channel_1:
        out_.emit<packets::sbl_dg_channel_header_1_writer>(
            [&](packets::sbl_dg_channel_header_1_writer& p) {
                p.time_counter_hr(s.ticks);
                for (std::size_t i = 0; i < s.pulses.size(); ++i) {
                    auto entry = p.element(i);
                    entry.slot(static_cast<std::uint8_t>(i));
                    entry.position(fixed_point(s.pulses[i].position, sixteenth, 18));
                    entry.amplitude(static_cast<std::uint16_t>(
                        fixed_point(s.pulses[i].amplitude, quarter, 10)));
                }
            },
            s.pulses.size());
        break;
    case waveform_form::subpackages:
        write_subpackage_head(s);
        break;
    case waveform_form::none:
        break;
    }
}

void waveform_writer::write_subpackage_head(const sampled_shot& s) {
    std::array<scanlib::packed_block_entry, hit_list::capacity> entries;
    const std::size_t count = std::min(entries.size(), s.pulses.size());
    for (std::size_t i = 0; i < count; ++i) {
        entries[i] = {static_cast<std::uint32_t>(i),
                      fixed_point(s.pulses[i].position, sixteenth, 18),
                      fixed_point(s.pulses[i].amplitude, quarter, 10)};
    }
    shots_.block_head({0, {entries.data(), count}});
}

void waveform_writer::write_run(const sample_run& run) {
    switch (form_) {
    case waveform_form::parameters:
        write_plain<packets::sbl_dg_data_writer>(run);
        break;
    case waveform_form::parameters_compressed:
        write_compressed<packets::sbl_dg_data_compressed_writer, std::uint16_t>(run);
        break;
    case waveform_form::hr:
        write_packed<packets::sbl_dg_data_hr_writer>(run);
        break;
    case waveform_form::hr_compressed:
        write_compressed<packets::sbl_dg_data_compressed_hr_writer, std::int16_t>(run);
        break;
    case waveform_form::channel:
    case waveform_form::channel_1:
        write_packed<packets::sbl_dg_channel_data_writer>(run);
        break;
    case waveform_form::channel_compressed:
        write_compressed<packets::sbl_dg_channel_data_compressed_writer, std::int16_t>(run);
        break;
    case waveform_form::subpackages:
        write_subpackage(run);
        break;
    case waveform_form::none:
        break;
    }
}

/// Samples of 16 bits each.
template<class Writer>
void waveform_writer::write_plain(const sample_run& run) {
    words_.assign(Writer::words(run.count), 0);
    std::memcpy(words_.data() + Writer::fixed_bits / 32, run.room.data(),
                run.count * sizeof run.room.front());
    Writer head(words_.data());
    head.block_field(static_cast<std::uint16_t>(run.first));
    head.channel(run.channel);
    head.odd(run.count % 2);
    out_.put({Writer::id, Writer::version}, words_);
}

/// Samples of as many bits as the converter has.
template<class Writer>
void waveform_writer::write_packed(const sample_run& run) {
    words_.assign(Writer::fixed_bits / 32, 0);
    const unsigned last_bits = scanlib::pack_samples(run.samples(), digitiser::resolution, words_);
    Writer head(words_.data());
    head.block_field(run.first);
    head.channel(run.channel);
    head.last_word_bits(static_cast<std::uint8_t>(last_bits % 32));
    head.bit_width(digitiser::resolution);
    out_.put({Writer::id, Writer::version}, words_);
}

/// Puts the compressed samples of a run behind `head_words` cleared words. True if the last half of
/// the last word is not used.
bool waveform_writer::compress(const sample_run& run, std::size_t head_words) {
    compressed_.clear();
    scanlib::compress_samples(run.samples(), digitiser::resolution, compressed_);
    words_.assign(head_words + (compressed_.size() + 1) / 2, 0);
    std::memcpy(words_.data() + head_words, compressed_.data(),
                compressed_.size() * sizeof compressed_.front());
    return compressed_.size() % 2 != 0;
}

/// `First` is the type that the form has for the place of the first sample.
template<class Writer, class First>
void waveform_writer::write_compressed(const sample_run& run) {
    const bool odd = compress(run, Writer::fixed_bits / 32);
    Writer head(words_.data());
    head.block_field(static_cast<First>(run.first));
    head.channel(run.channel);
    head.odd(odd);
    out_.put({Writer::id, Writer::version}, words_);
}

void waveform_writer::write_subpackage(const sample_run& run) {
    const bool odd = compress(run, 0);
    scanlib::packed_block block;
    block.time = run.first;
    block.channel = run.channel;
    block.bit_width = odd ? odd_width_of_channels : std::uint8_t{0};
    block.samples = words_;
    shots_.block(block);
}

} // namespace simulator
