#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "frontend/conversion/conversion_fixture.hpp"

namespace frontend_test {

using Samples = std::vector<std::uint16_t>;

/// A recording with waveforms: blocks by the high-resolution counter and their shots.
class WaveformStream : public StreamBuilder {
  public:
    static constexpr std::uint64_t hr_ticks_per_tick = 1U << 19;
    static constexpr double hr_tick = 1e-07 / (1U << 19); ///< s
    static constexpr double sampling_time = 1e-09;        ///< s
    static constexpr std::uint64_t hr_ticks_per_sample = 5243;
    static constexpr float reference_time = 2.5e-8F; ///< s, of shots without a block

    /// Counts of the shot at 2 s and that many hundredths.
    static constexpr std::uint64_t hr_ticks(std::uint32_t hundredths) {
        return (std::uint64_t{ticks_at_2_s} + hundredths * (ticks_per_second / 100)) *
               hr_ticks_per_tick;
    }
    /// Start of samples told as that many samples, in a block at that time.
    static double start(std::uint32_t hundredths, int samples) {
        return samples * sampling_time -
               static_cast<double>(hr_ticks(hundredths) % hr_ticks_per_sample) * hr_tick;
    }

    WaveformStream& channel(std::uint8_t index, std::string_view name, float delta_st = 0) {
        add<scanlib::packets::sbl_dg_channel_writer>([&](auto& w) {
            w.channel(index);
            w.name(name);
            w.adc_resolution_bits(12);
            w.sampling_rate(1e9);
            w.delta_st(delta_st);
            w.wavelength(1550);
        });
        return *this;
    }
    /// Description, four channels, synchronisation.
    WaveformStream& begin() {
        describe();
        channel(0, "high_power").channel(1, "low_power", reference_time);
        channel(2, "super_high_power").channel(3, "reference");
        synchronise();
        return *this;
    }
    WaveformStream& block(std::uint32_t hundredths) {
        add<scanlib::packets::sbl_dg_channel_header_1_writer>(
            [&](auto& w) { w.time_counter_hr(hr_ticks(hundredths)); });
        return *this;
    }
    WaveformStream& samples(std::uint8_t channel_index, std::int16_t begin, const Samples& values) {
        add<scanlib::packets::sbl_dg_channel_data_writer>(
            [&](auto& w) {
                w.channel(channel_index);
                w.block_field(begin);
                w.bit_width(16);
                w.last_word_bits(values.size() % 2 == 1 ? 16 : 0);
                for (std::size_t i = 0; i < values.size(); i += 2) {
                    const std::uint32_t high = i + 1 < values.size() ? values[i + 1] : 0U;
                    w.element(i / 2, values[i] | high << 16);
                }
            },
            (values.size() + 1) / 2);
        return *this;
    }
    WaveformStream& compressed(std::uint8_t channel_index, std::uint32_t word) {
        add<scanlib::packets::sbl_dg_channel_data_compressed_writer>(
            [&](auto& w) {
                w.channel(channel_index);
                w.element(0, word);
            },
            1);
        return *this;
    }
    WaveformStream& shot_hr(std::uint32_t hundredths) {
        add<scanlib::packets::laser_shot_2angles_hr_writer>(
            [&](auto& w) { w.time_counter_hr(hr_ticks(hundredths)); });
        return *this;
    }
    /// A shot with a waveform of channel 0 of that many samples.
    WaveformStream& waveform(std::uint32_t hundredths, std::size_t length) {
        Samples values(length);
        for (std::size_t i = 0; i < length; ++i) {
            values[i] = static_cast<std::uint16_t>(100 + i);
        }
        return block(hundredths).samples(0, 0, values).shot_hr(hundredths);
    }
    WaveformStream& pulse_model(std::uint8_t channel_index,
                                const std::vector<std::array<double, 4>>& terms) {
        add<scanlib::packets::sbl_dg_channel_expsum_1_writer>(
            [&](auto& w) {
                w.channel(channel_index);
                w.delay(0.5);
                w.scale(0.25);
                w.a_lin(0.75);
                for (std::size_t i = 0; i < terms.size(); ++i) {
                    w.element(i).A(terms[i][0]);
                    w.element(i).B(terms[i][1]);
                    w.element(i).gamma(terms[i][2]);
                    w.element(i).omega(terms[i][3]);
                }
            },
            terms.size());
        return *this;
    }
};

} // namespace frontend_test
