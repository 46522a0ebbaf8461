#pragma once

#include "scanlib/mirrorwheel.hpp"
#include "simulator/random_source.hpp"
#include "simulator/scene.hpp"

#include <cstdint>
#include <vector>

namespace simulator {

/// What a user may choose about the instrument and its scan.
struct scan_settings {
    std::uint64_t shots = 1'000'000;
    double pulse_rate = 300'000;   ///< laser pulses a second
    double lines_per_second = 100; ///< scan lines a second
    double turn_time = 0; ///< s for a full turn of the head; 0 for one turn in the recording
    std::uint32_t start_time =
        43200; ///< PPS time at which the recording starts, whole s of the day
    std::uint64_t seed = 1;
    bool high_resolution = false; ///< write the packets with high-resolution time
};

/// One laser shot of the scan, in the instrument's counts.
struct shot {
    double pps_time; ///< s, exact
    std::uint32_t line_counter;
    std::uint32_t frame_counter;
    std::uint64_t line;  ///< number of the scan line, from 0
    std::uint64_t frame; ///< number of the turn of the head, from 0
};

/// When the laser of a mirror-wheel scanner measures, and where the encoders stand then.
///
/// The wheel turns steadily. Each facet sweeps one line; within it the beam looks outward only for
/// a part of the facet's way, and only the pulses of that part are measured. Meanwhile the head
/// turns about the vertical:
///
///     facet's way   0 ...... first_angle ####### last_angle ...... 120 deg
///                            a line of shots
///
/// Ask for one shot after the other.
class scan_program {
  public:
    static constexpr std::uint32_t facets = 3;
    static constexpr std::uint32_t counts_per_facet = 4'000'000;
    static constexpr std::uint32_t line_circle_count = facets * counts_per_facet;
    static constexpr std::uint32_t frame_circle_count = 36'000'000;
    static constexpr double facet_way = 120; ///< degrees
    static constexpr double first_angle = 10;
    static constexpr double last_angle = 60;

    /// Throws std::invalid_argument for settings that give less than two shots a line.
    explicit scan_program(const scan_settings& settings);

    /// The next shot.
    shot next();

    /// Length of the whole recording in seconds.
    double duration() const noexcept { return duration_; }

  private:
    void begin_line(std::uint64_t line);

    double pulse_rate_;
    double lines_per_second_;
    double turn_time_;
    double duration_;
    double start_time_;
    std::uint64_t line_ = 0;
    std::uint64_t pulse_ = 0;      ///< number of the next pulse since the start
    std::uint64_t last_pulse_ = 0; ///< first pulse behind the line
};

/// The readings of one echo.
struct echo_counts {
    std::int32_t range_counter;
    std::uint16_t amplitude;
    std::int16_t reflectance;
    std::uint16_t flags;
    std::int16_t deviation;
};

/// Optics, units and receiver of the simulated scanner. Packets tell numbers in 32 bits; where they
/// matter the instrument computes with exactly those, so that a reader gets the same beams.
class instrument {
  public:
    explicit instrument(const scan_settings& settings);
    instrument(const instrument&) = delete;
    instrument& operator=(const instrument&) = delete;

    static constexpr char type_id[] = "SIM-WHEEL-3";
    static constexpr char serial[] = "SIM00001";
    static constexpr char build[] = "simulator 1";

    static constexpr float range_unit = 0.00025F;             ///< m
    static constexpr float ampl_refl_unit = 0.01F;            ///< dB
    static constexpr float systime_unit = 1e-07F;             ///< s
    static constexpr float systime_hr_unit = 1e-07F / 524288; ///< s
    static constexpr std::uint32_t systime_hr_bits =
        51; ///< so that the other counter has all of 32

    static constexpr float group_velocity = 299'704'944.0F; ///< m/s
    static constexpr float attenuation = 0.05F;             ///< of 1/1000 per m
    static constexpr float wavelength = 1550.0F;            ///< nm

    static constexpr double reftab_step = 1.0; ///< m between entries, about
    static constexpr std::size_t reftab_entries =
        501; ///< odd, so that the table fills its last word

    /// First word of the table of reflectance corrections, which tells its step.
    static std::uint16_t reftab_step_counter();
    /// An entry of that table, in units of -ampl_refl_unit.
    static std::int16_t reftab_entry(std::size_t i);

    /// Optical parameters, for the geometry packet.
    const scanlib::mirrorwheel& optics() const noexcept { return optics_; }

    /// Turns mirrors and head; afterwards beam_origin() and beam_direction() tell the beam.
    void aim(const shot& s) { optics_.set_counts(s.line_counter, s.frame_counter, 0); }
    const vector3& beam_origin() const noexcept { return beam_origin_; }
    const vector3& beam_direction() const noexcept { return beam_direction_; }

    /// Range beyond which an echo would fall behind the next pulse.
    double greatest_range() const noexcept { return greatest_range_; }

    /// What the receiver tells of a reflection after `earlier` others of the same beam; false for
    /// one that drowns in the noise.
    bool receive(const surface_hit& hit, std::size_t earlier, random_source& random,
                 echo_counts& echo) const;

    /// Reading of the free-running counters at a PPS time.
    std::uint32_t system_counter(double pps_time) const;
    std::uint64_t system_counter_hr(double pps_time) const;

  private:
    double oscillator_time(double pps_time) const;

    vector3 beam_origin_{};
    vector3 beam_direction_{};
    scanlib::mirrorwheel optics_;
    double greatest_range_;
    double start_time_;
    double counter_start_; ///< s that the oscillator shows at the start
};

} // namespace simulator
