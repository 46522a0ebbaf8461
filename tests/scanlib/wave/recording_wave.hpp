#pragma once

#include "scanlib/loss_log.hpp"
#include "scanlib/pointcloud/packet_feeder.hpp"
#include "scanlib/wave.hpp"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace scanlib::testing {

/// Keeps the blocks that a wave hands over, and opens its state to the tests.
class recording_wave : public wave {
  public:
    explicit recording_wave(bool sync_to_pps = false, bool uncompress = false)
        : wave(sync_to_pps, uncompress) {
        set_loss_log(&log);
    }

    /// A shot as on_shot finds it.
    struct shot_state {
        vector3 origin;
        vector3 direction;
        std::uint32_t facet;
        double line_angle;
        double frame_angle;
    };

    std::vector<shot_state> shots;
    std::vector<wave_block> blocks;
    loss_log log;

    using pointcloud_state::group_velocity;
    using pointcloud_state::sampling_time;
    using pointcloud_state::systime_hr_unit;
    using pointcloud_state::wavelength;
    using wave::channel_mask;
    using wave::channels;
    using wave::default_channels_in_use;
    using wave::have_wave_data;
    using wave::reference_channel_index;
    using wave::t_null_pdae;
    using wave::wave_calibration;

  protected:
    void on_shot() override {
        shots.push_back({beam_origin, beam_direction, facet, line_angle, frame_angle});
    }
    void on_wave(wave_block& block) override { blocks.push_back(block); }
};

/// A wave with a stream to feed it. Times are powers of two, so that all of them are exact: a tick
/// of the system counter is 2^-20 s, a high-resolution one 2^-40 s, a sample 2^-29 s, which is 2048
/// high-resolution ticks.
struct fed_wave : recording_wave {
    static constexpr double tick = 0x1p-20;
    static constexpr double hr_tick = 0x1p-40;
    static constexpr double sample = 0x1p-29;

    using recording_wave::recording_wave;

    template<class Writer, class Fill>
    void feed(Fill&& fill, std::size_t elements = 0) {
        packet_feeder(*this).feed<Writer>(fill, elements);
    }
    template<class Writer>
    void feed() {
        packet_feeder(*this).feed<Writer>();
    }
    /// A packet told word by word, under its long head.
    void raw(std::uint32_t id, std::vector<std::uint32_t> payload) {
        payload.insert(payload.begin(), {0xFFFFFFFF, id << 16});
        dispatch(payload.data(), payload.data() + payload.size());
    }

    void units(float hr_unit = 0x1p-40F) {
        feed<packets::units_3_writer>([&](auto& w) {
            w.range_unit(0.001F);
            w.line_circle_count(3600);
            w.frame_circle_count(3600);
            w.systime_unit(0x1p-20F);
            w.ampl_refl_unit(0.01F);
            w.systime_hr_unit(hr_unit);
            w.systime_hr_bits(49);
        });
    }
    void channel(std::uint8_t index, std::string_view name, float delta_st = 0,
                 double rate = 0x1p29) {
        feed<packets::sbl_dg_channel_writer>([&](auto& w) {
            w.channel(index);
            w.name(name);
            w.adc_resolution_bits(10);
            w.sampling_rate(rate);
            w.delta_st(delta_st);
            w.wavelength(1064);
        });
    }
    /// Units and the four usual channels; the reference pulse at 2^-20 s.
    void describe() {
        units();
        channel(0, "high_power");
        channel(1, "low_power", 0x1p-20F);
        channel(2, "super_high_power");
        channel(3, "reference");
    }
    void header_hr(std::uint64_t ticks) {
        feed<packets::sbl_dg_channel_header_1_writer>([&](auto& w) { w.time_counter_hr(ticks); });
    }
    /// Samples of 16 bits, two to a word.
    void data(std::uint8_t channel_index, std::int16_t start, std::vector<std::uint16_t> samples) {
        feed<packets::sbl_dg_channel_data_writer>(
            [&](auto& w) {
                w.channel(channel_index);
                w.block_field(start);
                w.bit_width(16);
                w.last_word_bits(samples.size() % 2 == 1 ? 16 : 0);
                for (std::size_t i = 0; i < samples.size(); i += 2) {
                    const std::uint32_t high = i + 1 < samples.size() ? samples[i + 1] : 0U;
                    w.element(i / 2, samples[i] | high << 16);
                }
            },
            (samples.size() + 1) / 2);
    }
    void shot_hr(std::uint64_t ticks, std::uint32_t line = 0) {
        feed<packets::laser_shot_2angles_hr_writer>([&](auto& w) {
            w.time_counter_hr(ticks);
            w.line_counter(line);
        });
    }
    void shot(std::uint32_t ticks) {
        feed<packets::laser_shot_2angles_writer>([&](auto& w) { w.time_counter(ticks); });
    }
    void line_stop() { feed<packets::line_stop_writer>(); }
    void meas_start() { feed<packets::meas_start_writer>(); }
    /// A shot that ends at once.
    void whole_shot_hr(std::uint64_t ticks) {
        shot_hr(ticks);
        feed<packets::meas_stop_writer>();
    }
    void whole_shot(std::uint32_t ticks) {
        shot(ticks);
        feed<packets::meas_stop_writer>();
    }
    void stored_parameters(std::string_view json) {
        feed<packets::rxp_parameters_writer>(
            [&](auto& w) {
                for (std::size_t i = 0; i < json.size(); ++i) {
                    w.element(i, static_cast<std::uint8_t>(json[i]));
                }
            },
            json.size());
    }
};

using samples_list = std::vector<std::uint16_t>;

} // namespace scanlib::testing
