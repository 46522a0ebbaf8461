#include "simulator/digitiser.hpp"

#include <algorithm>
#include <cmath>

namespace simulator {

namespace {

constexpr double pulse_width = 1.4;  ///< standard deviation of a pulse, in samples
constexpr double noise_width = 2.0;  ///< the same of the noise, in counts
constexpr float zero_level = 100;    ///< counts without any light
constexpr float full_scale = 4095;   ///< counts
constexpr double counts_at_0_db = 8; ///< in the high-power channel
constexpr float low_gain = 1.0F / 16;

constexpr std::int32_t lead = 16;       ///< samples ahead of the first pulse
constexpr std::int32_t trail = 12;      ///< and behind the last one
constexpr std::uint64_t most_idle = 40; ///< samples behind that, by chance

constexpr std::int32_t reference_position = 24; ///< of the reference pulse, in samples
constexpr double reference_amplitude = 1500;    ///< counts

// Water, in parts of the amplitude of its surface.
constexpr double column_strength = 0.06;
constexpr double column_decay = 2.0; ///< m of range in which it falls to a third
constexpr double column_step = 0.5;  ///< samples between the pulses that stand for it
constexpr double bottom_strength = 1.5;

constexpr double samples_per_metre = 2 * digitiser::sampling_rate / instrument::group_velocity;

double decibels_of(const received_echo& e) {
    return e.amplitude * static_cast<double>(instrument::ampl_refl_unit);
}

} // namespace

digitiser::digitiser(const scan_settings& settings)
    : free_running_(is_high_resolution(settings.waveforms))
    , random_(settings.seed ^ 0xD161D161D161D161) {
    if (settings.waveforms != waveform_form::none) {
        make_noise();
        make_shapes();
    }
}

/// Noise of which every run gets a stretch: drawing each sample anew would take longer than all the
/// rest.
void digitiser::make_noise() {
    constexpr int draws = 12; // whose sum has nearly the shape of noise, and a variance of 1
    noise_.resize(noise_length + most_samples);
    for (float& n : noise_) {
        double sum = -0.5 * draws;
        for (int i = 0; i < draws; ++i) {
            sum += random_.unit();
        }
        n = zero_level + static_cast<float>(noise_width * sum);
    }
}

void digitiser::make_shapes() {
    for (int phase = 0; phase < shape_phases; ++phase) {
        for (int i = 0; i < shape_length; ++i) {
            const double off = i - shape_reach - static_cast<double>(phase) / shape_phases;
            shapes_[static_cast<std::size_t>(phase)][static_cast<std::size_t>(i)] =
                static_cast<float>(std::exp(-0.5 * off * off / (pulse_width * pulse_width)));
        }
    }
}

/// Adds a pulse to the signal, as far as it lies within. `position` counts from the shot's sample.
void digitiser::add_pulse(double position, double amplitude) {
    const double whole = std::floor(position);
    const auto phase = static_cast<std::size_t>((position - whole) * shape_phases);
    const auto begin = static_cast<std::int32_t>(whole) - shape_reach - first_;
    const std::int32_t from = std::max(0, -begin);
    const std::int32_t to = std::min(shape_length, static_cast<std::int32_t>(most_samples) - begin);
    for (std::int32_t i = from; i < to; ++i) {
        signal_[static_cast<std::size_t>(begin + i)] +=
            static_cast<float>(amplitude) * shapes_[phase][static_cast<std::size_t>(i)];
    }
}

void digitiser::add_echo(const received_echo& echo, double position) {
    const double amplitude = counts_at_0_db * std::pow(10, decibels_of(echo) / 20);
    add_pulse(position, amplitude);
    if (echo.depth <= 0) {
        return;
    }
    const double bottom = echo.depth * samples_per_metre;
    const auto left = [](double samples) {
        return std::exp(-samples / (column_decay * samples_per_metre));
    };
    for (double behind = column_step; behind < bottom; behind += column_step) {
        add_pulse(position + behind, column_step * column_strength * amplitude * left(behind));
    }
    add_pulse(position + bottom, bottom_strength * amplitude * left(bottom));
}

/// Appends a run of the signal, or of a part of it.
void digitiser::convert(std::uint8_t channel, std::int32_t first, std::size_t count, float gain) {
    sample_run& run = shot_.run_room[shot_.run_count++];
    run.channel = channel;
    run.first = static_cast<std::int16_t>(first);
    run.count = count;
    const float* const noise = noise_.data() + random_.bits() % noise_length;
    for (std::size_t i = 0; i < count; ++i) {
        const float level = noise[i] + gain * signal_[i];
        run.room[i] = static_cast<std::uint16_t>(std::clamp(level + 0.5F, 0.0F, full_scale));
    }
}

std::size_t digitiser::run_length(std::size_t needed) {
    return std::clamp(needed + random_.bits() % (most_idle + 1), least_samples, most_samples);
}

const sampled_shot& digitiser::sample(std::uint64_t ticks, std::span<const received_echo> echoes) {
    shot_.ticks = ticks;
    shot_.run_count = 0;
    shot_.pulses.clear();
    const double phase =
        free_running_ ? static_cast<double>(ticks % sample_ticks) / sample_ticks : 0;
    shot_.phase = phase / sampling_rate;

    signal_.fill(0);
    first_ = free_running_ ? -reference_position : 0;
    // Started by the shot, the reference channel waits for its pulse in a delay line.
    add_pulse(first_ + reference_position + phase, reference_amplitude);
    convert(reference_channel, first_, run_length(least_samples), 1);
    if (echoes.empty()) {
        return shot_;
    }

    const auto position_of = [&](const received_echo& e) {
        return e.range * samples_per_metre + phase;
    };
    signal_.fill(0);
    first_ = std::max(0, static_cast<std::int32_t>(position_of(echoes.front())) - lead);
    const double end = first_ + static_cast<double>(most_samples) - trail;
    double last = 0;
    for (const received_echo& e : echoes) {
        const double position = position_of(e);
        add_echo(e, position);
        if (position < end) {
            shot_.pulses.push_back({position, decibels_of(e)});
            last = std::max(last, std::min(end, position + e.depth * samples_per_metre));
        }
    }
    const auto needed = static_cast<std::size_t>(last - first_) + trail;
    convert(high_power_channel, first_, run_length(needed), 1);
    convert(low_power_channel, first_, run_length(needed), low_gain);
    return shot_;
}

} // namespace simulator
