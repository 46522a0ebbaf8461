#pragma once

#include "scanlib/amplitude_range_table.hpp"
#include "scanlib/calibration_tables.hpp"
#include "scanlib/near_range_table.hpp"
#include "scanlib/packet_emitter.hpp"
#include "scanlib/range_grid.hpp"
#include "simulator/instrument.hpp"

#include <optional>
#include <vector>

namespace simulator {

/// The receiver's faults that were asked for, and the packets that tell a reader how to correct
/// them. What comes out of a corrected recording is what a receiver without faults had told, to a
/// range count.
class calibration {
  public:
    calibration(const scan_settings& settings, const instrument_units& units);

    /// Writes the packets. The units and the geometry must stand before them.
    void tell(scanlib::packet_emitter& out) const;

    /// The range counter that is told for an echo: what the tables correct to the echo's range.
    /// `farther` is how much of that range (m) a reader adds for the echo's zone.
    std::int32_t told_counter(const received_echo& e, double farther) const;

    /// What a pane in front of the scanner sends back of a shot, if there is a pane. A notch
    /// removes it.
    std::optional<received_echo> pane_echo(const shot& s);

    /// Adds to the echoes of a shot the ringing around strong ones. A dynamic trigger removes it.
    void add_ringing(std::vector<received_echo>& echoes);

  private:
    bool has(correction c) const { return wanted_.contains(c); }
    std::uint16_t in_counts(double decibels) const;
    double corrected(double range, std::uint16_t amplitude) const;
    std::int32_t late_counts(std::uint16_t amplitude) const;
    void make_near_range();
    void make_amplitude_range();
    void make_range_grid();
    void make_angular_notch();
    void tell_near_range(scanlib::packet_emitter& out) const;
    void tell_amplitude_range(scanlib::packet_emitter& out) const;
    void tell_range_grid(scanlib::packet_emitter& out) const;

    std::set<correction> wanted_;
    instrument_units units_;
    random_source random_; ///< of its own, so that faults leave the echoes as they were
    std::vector<std::int16_t> near_range_counts_;
    scanlib::near_range_table near_range_;
    std::vector<std::int16_t> amplitude_range_counts_;
    scanlib::amplitude_range_table amplitude_range_;
    std::vector<std::uint16_t> grid_counts_;
    scanlib::range_grid grid_;
    scanlib::calibration_curve pane_range_;    ///< m over the line angle in degrees
    scanlib::calibration_curve pane_strength_; ///< dB over the same
};

} // namespace simulator
