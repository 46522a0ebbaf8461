#pragma once

#include "simulator/instrument.hpp"
#include "simulator/random_source.hpp"
#include "simulator/settings.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace simulator {

/// Channels of the receiver by their numbers in the stream.
inline constexpr std::uint8_t high_power_channel = 0;
inline constexpr std::uint8_t low_power_channel = 1;
inline constexpr std::uint8_t reference_channel = 3;

/// Samples of one channel. Sample i is taken (first + i) * sampling_time - phase behind the shot.
struct sample_run {
    std::uint8_t channel = 0;
    std::int16_t first = 0;
    std::size_t count = 0;
    std::array<std::uint16_t, 200> room{};

    std::span<const std::uint16_t> samples() const noexcept { return {room.data(), count}; }
};

/// A pulse that the digitiser tells beside the samples.
struct found_pulse {
    double position;  ///< in samples, counted as `first` of a run
    double amplitude; ///< dB
};

/// The waveforms of one shot: that of the pulse as it leaves, then, where something comes back,
/// what the two receiver channels see.
struct sampled_shot {
    static constexpr std::size_t most_runs = 3;

    std::uint64_t ticks = 0; ///< reading of the counter that the form tells
    double phase = 0; ///< s from the first sample of the grid to the shot, less than a sample
    std::array<sample_run, most_runs> run_room{};
    std::size_t run_count = 0;
    std::vector<found_pulse> pulses; ///< of the samples, in ascending position

    std::span<const sample_run> runs() const noexcept { return {run_room.data(), run_count}; }
};

/// Receiver and analogue-to-digital converter of a full-waveform scanner.
///
/// Every echo is a Gaussian pulse at twice its range over the group velocity; water adds a column
/// of light that fades with depth, and the ground below it. Two channels see the same with
/// different gains, so that one of them is neither drowned in noise nor cut off:
///
///     high power       ___          low power
///         /\          /   \   <- 4095
///     ___/  \_/\_____/     \___     ____________/\___
///
/// With the high-resolution time the converter runs freely and a shot lies anywhere between two
/// samples; else it is started by the shot.
class digitiser {
  public:
    static constexpr std::uint32_t resolution = 12;     ///< bits a sample
    static constexpr double sampling_rate = 640e6;      ///< samples a second
    static constexpr std::uint64_t sample_ticks = 8192; ///< high-resolution counts a sample
    static constexpr std::size_t least_samples = 60;    ///< of a run
    static constexpr std::size_t most_samples = 200;

    explicit digitiser(const scan_settings& settings);

    /// Takes the waveforms of a shot; `echoes` in ascending range. What lies too far behind the
    /// first echo for a run is not sampled.
    const sampled_shot& sample(std::uint64_t ticks, std::span<const received_echo> echoes);

    /// What `sample` gave last.
    const sampled_shot& newest() const noexcept { return shot_; }

  private:
    static constexpr std::size_t noise_length = 1U << 14;
    static constexpr int shape_phases = 64;
    static constexpr int shape_reach = 8; ///< samples on either side of a pulse's middle
    static constexpr int shape_length = 2 * shape_reach + 1;

    void make_noise();
    void make_shapes();
    void add_pulse(double position, double amplitude);
    void add_echo(const received_echo& echo, double position);
    void convert(std::uint8_t channel, std::int32_t first, std::size_t count, float gain);
    std::size_t run_length(std::size_t needed);

    bool free_running_;
    random_source random_;
    std::vector<float> noise_;
    std::array<std::array<float, shape_length>, shape_phases> shapes_{};
    std::int32_t first_ = 0;                   ///< of the signal
    std::array<float, most_samples> signal_{}; ///< in counts of the high-power channel
    sampled_shot shot_;
};

} // namespace simulator
