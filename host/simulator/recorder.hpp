#pragma once

#include "scanlib/packet_emitter.hpp"
#include "simulator/calibration.hpp"
#include "simulator/digitiser.hpp"
#include "simulator/echoes_in_flight.hpp"
#include "simulator/instrument.hpp"
#include "simulator/scene.hpp"
#include "simulator/shot_writer.hpp"
#include "simulator/waveform_writer.hpp"

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace simulator {

/// What a recording holds.
struct recording_summary {
    std::uint64_t shots = 0;
    std::uint64_t echoes = 0;    ///< of surfaces
    std::uint64_t artefacts = 0; ///< echoes that a reader's corrections remove
    std::uint64_t lines = 0;
    std::uint64_t waveforms = 0; ///< runs of samples
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
/// With zones, echoes stand behind the shot during whose flight they return, and each line begins
/// with the settings of its zone.
///
/// Sample blocks stand behind the echoes of their shot; packed forms that collect shots have them
/// ahead.
///
/// A recording follows from the settings alone, byte for byte.
class recorder {
  public:
    /// `settings` and `emitter` outlive the recorder. Throws std::invalid_argument for settings
    /// that cannot be scanned.
    recorder(const scan_settings& settings, scanlib::packet_emitter& emitter);

    /// `listener` hears of the waveforms of every shot. Call it before `run`.
    void listen(std::function<void(const shot&, const sampled_shot&)> listener) {
        listener_ = std::move(listener);
    }

    /// Writes everything, once. `progress` is called now and then with the number of shots so far.
    /// Throws what the emitter throws.
    recording_summary run(const std::function<void(std::uint64_t)>& progress);

  private:
    void emit_second(std::uint32_t second);
    void emit_pps(double pps_time);
    void emit_counter_sync(double pps_time);
    void emit_housekeeping(std::uint32_t second);

    std::uint32_t zone_of_line() const;
    void emit_zone();
    bool is_heard(double range) const;

    void move_to(const shot& s);
    void end_line();
    void emit_shot(const shot& s);
    void emit_fan_shot(const shot& s);
    void receive_echoes();
    void emit_waveforms(const shot& s);
    bool find_shifted(std::size_t index, surface_hit& hit) const;
    void emit_echo(const received_echo& e, double farther);
    void land_echoes(std::uint64_t now);
    void finish();

    const scan_settings& settings_;
    scanlib::packet_emitter& out_;
    scene scene_;
    instrument instrument_;
    calibration calibration_;
    scan_program program_;
    shot_writer writer_;
    digitiser digitiser_;
    waveform_writer waveforms_;
    std::function<void(const shot&, const sampled_shot&)> listener_;
    random_source random_;
    random_source before_cast_{0}; ///< state of `random_` ahead of the newest cast
    hit_list hits_;
    std::vector<received_echo> echoes_;                               ///< of the beam at hand
    std::vector<std::pair<std::uint32_t, received_echo>> fan_echoes_; ///< with the row of the fan
    echoes_in_flight in_flight_;
    std::uint64_t shot_ticks_ = 0; ///< of the newest shot
    double shot_time_ = 0;         ///< s, the same
    std::uint32_t next_second_;
    std::uint64_t line_ = 0;
    std::uint64_t frame_ = 0;
    recording_summary done_;
};

} // namespace simulator
