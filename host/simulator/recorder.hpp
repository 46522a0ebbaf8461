#pragma once

#include "scanlib/packet_emitter.hpp"
#include "simulator/instrument.hpp"
#include "simulator/scene.hpp"

#include <cstdint>
#include <functional>

namespace simulator {

/// What a recording holds.
struct recording_summary {
    std::uint64_t shots = 0;
    std::uint64_t echoes = 0;
    std::uint64_t lines = 0;
    std::uint64_t packets = 0;
    double seconds = 0; ///< from the first shot to the last
};

/// Writes the recording of one scan: the instrument's description, a lead of PPS pairs so that
/// readers know the time from the first shot on, then lines of shots with their echoes, and each
/// second the time, housekeeping and a PPS pair.
///
///     header units geometry ... | pps pps | meas_start frame_start line_start
///     shot echo echo shot shot echo ... line_stop line_start ... pps ... | meas_stop generic_end
///
/// A recording follows from the settings alone, byte for byte. Packed packets, other optics or
/// waveforms have their place in `emit_shot` and `describe_instrument`.
class recorder {
  public:
    /// `settings` and `emitter` outlive the recorder. Throws std::invalid_argument for settings
    /// that cannot be scanned.
    recorder(const scan_settings& settings, scanlib::packet_emitter& emitter);

    /// Writes everything, once. `progress` is called now and then with the number of shots so far.
    /// Throws what the emitter throws.
    recording_summary run(const std::function<void(std::uint64_t)>& progress);

  private:
    void describe_instrument();
    void emit_header();
    void emit_units();
    void emit_geometry();
    void emit_reflectance_table();
    void emit_atmosphere();

    void emit_second(std::uint32_t second);
    void emit_pps(double pps_time);
    void emit_counter_sync(double pps_time);
    void emit_housekeeping(std::uint32_t second);

    void move_to(const shot& s);
    void emit_shot(const shot& s);
    void emit_echoes();
    void finish();

    const scan_settings& settings_;
    scanlib::packet_emitter& out_;
    scene scene_;
    instrument instrument_;
    scan_program program_;
    random_source random_;
    hit_list hits_;
    std::uint32_t next_second_;
    std::uint64_t line_ = 0;
    std::uint64_t frame_ = 0;
    recording_summary done_;
};

} // namespace simulator
