#pragma once

#include "simulator/optics.hpp"
#include "simulator/random_source.hpp"
#include "simulator/scene.hpp"
#include "simulator/settings.hpp"

#include <cstdint>
#include <vector>

namespace simulator {

inline constexpr double scene_range = 350; ///< m; the scene ends a little farther out
/// Range from a pulse within which the receiver is blind, and before the next, when several pulses
/// are on their way; m.
inline constexpr double blind_range = 1.0;

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
/// A mirror that swings does so in the same rhythm, over a smaller angle; each line is alike then.
/// The circles have counts that fit all forms of packets, so that all tell the same beams.
///
/// Ask for one shot after the other.
class scan_program {
  public:
    static constexpr std::uint32_t facets = 3;
    static constexpr std::uint32_t counts_per_facet = 1'398'000;
    static constexpr std::uint32_t line_circle_count = facets * counts_per_facet;
    static constexpr std::uint32_t frame_circle_count = 4'194'000;
    static constexpr double facet_way = 120; ///< degrees
    static constexpr double first_angle = 10;
    static constexpr double last_angle = 60;
    static constexpr double line_swing = 0.2;   ///< part of a facet's way that a mirror swings
    static constexpr double frame_swing = 0.25; ///< part of a turn that a head swings

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
    double line_counts_;  ///< of a facet's way
    double frame_counts_; ///< of a turn
    bool turns_;          ///< the mirror, so that each line has a facet of its own
    std::uint64_t line_ = 0;
    std::uint64_t pulse_ = 0;      ///< number of the next pulse since the start
    std::uint64_t last_pulse_ = 0; ///< first pulse behind the line
};

/// What the receiver makes of one reflection: the range in metres, the other readings in counts.
struct received_echo {
    double range;
    std::uint16_t amplitude;
    std::int16_t reflectance;
    std::uint16_t flags;
    std::int16_t deviation;
    bool artefact; ///< of the receiver, with no surface behind it
    double depth;  ///< m of range by which light from the ground below water comes later
};

/// Units of the numbers in packets.
struct instrument_units {
    float range;      ///< m
    float ampl_refl;  ///< dB
    std::uint32_t hr; ///< bits of the high-resolution time
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
    static constexpr std::uint32_t full_hr_bits = 51;   ///< so that the other counter has all of 32
    static constexpr std::uint32_t packed_hr_bits = 49; ///< as many as the narrowest form holds
    static constexpr float fan_range_unit = 0.005F;     ///< m; few bits for an echo of a fan
    static constexpr float fan_ampl_unit = 0.25F;       ///< dB

    const instrument_units& units() const noexcept { return units_; }

    static constexpr float group_velocity = 299'704'944.0F; ///< m/s
    static constexpr float attenuation = 0.05F;             ///< of 1/1000 per m
    static constexpr float wavelength = 1550.0F;            ///< nm

    static constexpr double reftab_step = 1.0; ///< m between entries, about
    static constexpr std::size_t reftab_entries =
        501; ///< odd, so that the table fills its last word

    /// First word of the table of reflectance corrections, which tells its step.
    std::uint16_t reftab_step_counter() const;
    /// An entry of that table, in units of -ampl_refl_unit.
    std::int16_t reftab_entry(std::size_t i) const;

    /// Mirrors and lenses.
    const optics& mirrors() const noexcept { return optics_; }

    /// Turns mirrors and head; afterwards beam_origin() and beam_direction() tell the beam.
    void aim(const shot& s) { optics_.aim(s.line_counter, s.frame_counter); }
    /// One of many beams, after `aim`.
    void select_beam(std::uint32_t column, std::uint32_t row) { optics_.select_beam(column, row); }
    const vector3& beam_origin() const noexcept { return beam_origin_; }
    const vector3& beam_direction() const noexcept { return beam_direction_; }

    /// Range beyond which an echo would fall behind the last zone, or could not be told.
    double greatest_range() const noexcept { return greatest_range_; }

    /// What the receiver tells of a reflection after `earlier` others of the same beam; false for
    /// one that drowns in the noise.
    bool receive(const surface_hit& hit, std::size_t earlier, random_source& random,
                 received_echo& echo) const;

    /// Reading of the free-running counters at a PPS time.
    std::uint32_t system_counter(double pps_time) const;
    std::uint64_t system_counter_hr(double pps_time) const;

    /// Way to and fro of light between two readings of the high-resolution counter, halved; m.
    double range_between(std::uint64_t earlier, std::uint64_t later) const;

  private:
    double oscillator_time(double pps_time) const;

    std::uint64_t hr_mask() const noexcept { return (std::uint64_t{1} << units_.hr) - 1; }

    instrument_units units_;
    vector3 beam_origin_{};
    vector3 beam_direction_{};
    optics optics_;
    double greatest_range_;
    double start_time_;
    double counter_start_; ///< s that the oscillator shows at the start
};

} // namespace simulator
