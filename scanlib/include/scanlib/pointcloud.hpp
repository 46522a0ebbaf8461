#pragma once

#include "scanlib/compressed_packets.hpp"
#include "scanlib/json_writer.hpp"
#include "scanlib/pointcloud_state.hpp"
#include "scanlib/scanmech.hpp"
#include "scanlib/target.hpp"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <vector>

namespace scanlib {

class mirrorwheel_fanbeam;

/// Turns the packets of a laser scanner into points.
///
/// It keeps the instrument's settings, follows lines, frames and measurements, gives each shot a
/// time and a beam, and turns its echoes into targets. Whoever wants the results derives from it
/// and overrides `on_shot`, `on_echo_ready` and `on_shot_end`. Echoes are reported one behind,
/// since only the next packet tells whether one was the last:
///
///     laser_shot   -> closes the shot before, on_shot
///     echo A
///     echo B       -> on_echo_ready(first) for A
///     echo C       -> on_echo_ready(interior) for B
///     laser_shot   -> on_echo_ready(last) for C, on_shot_end; then on_shot of the next
///
/// During `on_echo_ready` the target reported is `newest_target()`. With `sync_to_pps` all times
/// handed out are PPS times, and what comes before the first valid synchronisation, and the first
/// shot behind it, is held back.
///
/// Packed packets arrive as the ordinary ones they stand for. Where a scanner fires again before
/// far echoes are back, an echo is assigned to the shot that emitted it, whose time and beam then
/// are the present ones until the shot closes. Dynamic-trigger tables hold all targets of a shot
/// back until it closes, since a strong echo hides earlier ones.
///
/// In steady state nothing is allocated: targets are overwritten in place. An object belongs to one
/// thread, and it is not copied, since its scanner models write their beam into it.
class pointcloud : public compressed_packets, protected pointcloud_state {
  public:
    /// `sync_to_pps` selects external (PPS) times instead of the instrument's internal ones.
    explicit pointcloud(bool sync_to_pps);
    pointcloud(const pointcloud&) = delete;
    pointcloud& operator=(const pointcloud&) = delete;
    ~pointcloud() override;

    /// Forgets all that the stream told and begins anew.
    void reset();

    /// Writes the instrument's parameters as one JSON object; with `pretty` indented, and then
    /// every value is a string. Throws scanlib_exception before the measurement has started, since
    /// parameters may still come.
    void get_meta(std::ostream& out, bool pretty) const;

    /// Writes the member "pointcloud" of that object, without the braces around it.
    virtual void write_meta(std::ostream& out) const;

    /// Where the default `on_echo_ready` writes a row a target; null, as at first, for nowhere. A
    /// line of column names comes first. The stream outlives this object or is taken back.
    void set_text_sink(std::ostream* sink) noexcept;

    /// Fixes the handling of echoes of earlier shots, whatever the stream's settings say: the zone
    /// of an echo is searched between `gate_low` and `gate_high` (m), and beside it the echo is
    /// placed in each of the `zones` (counted from 1), in `alternatives`.
    void set_mta_ambiguity(const std::uint16_t* zones, std::size_t zone_count, float gate_low,
                           float gate_high);

    /// The most geometries that a stream may hold.
    static constexpr std::size_t geometry_limit = 4096;

  protected:
    /// Takes over the stored parameters that no calibration packet told: dynamic trigger, scanner
    /// models, near-range and reflectance tables, range offset. Called once when the measurement
    /// starts, behind `on_check_parameters_before_measurement_starting`. Throws std::runtime_error
    /// that names a malformed member.
    virtual void apply_meta();
    /// A shot's time and beam are set; its echoes follow.
    virtual void on_shot();
    /// A shot is closed; all of its echoes that could be were reported.
    virtual void on_shot_end();
    /// `newest_target()` is complete. By itself writes it to the text sink.
    virtual void on_echo_ready(echo_position position);
    /// A shot without echoes inside a stretch told by an echo_gap_data packet: `time`, `facet`, the
    /// angles and the beam are its own during the call.
    virtual void on_gap_pulse();
    /// The time of shots has become locked to the PPS.
    virtual void on_sync_gained();
    /// A shot found that the lock is lost.
    virtual void on_sync_lost();
    /// The measurement is about to start: the last moment to refuse or complete the parameters. By
    /// itself makes the notch windows by angle, and throws scanlib_exception where some of the
    /// curves for them are missing.
    virtual void on_check_parameters_before_measurement_starting();
    /// A checksum of the stream differs from that of the packets between two check packets.
    virtual void on_crc_mismatch(std::uint8_t context, std::uint32_t sequence,
                                 std::uint32_t new_sequence);

  public:
    unknown_walk on_packet(packet_id id, const packet_head& head) override;
    void on_header(packets::header& p, const std::uint32_t* end) override;
    void on_header_device(packets::header_device& p) override;
    void on_rxp_parameters(packets::rxp_parameters& p, const std::uint32_t* end) override;
    void on_units(packets::units& p) override;
    void on_units_1(packets::units_1& p) override;
    void on_units_2(packets::units_2& p) override;
    void on_units_3(packets::units_3& p) override;
    void on_units_4(packets::units_4& p) override;
    void on_device_geometry(packets::device_geometry& p, const std::uint32_t* end) override;
    void on_device_geometry_1(packets::device_geometry_1& p) override;
    void on_device_geometry_2(packets::device_geometry_2& p) override;
    void on_device_geometry_3(packets::device_geometry_3& p, const std::uint32_t* end) override;
    void on_device_geometry_4(packets::device_geometry_4& p, const std::uint32_t* end) override;
    void on_device_geometry_5(packets::device_geometry_5& p) override;
    void on_device_geometry_6(packets::device_geometry_6& p, const std::uint32_t* end) override;
    void on_device_geometry_7(packets::device_geometry_7& p, const std::uint32_t* end) override;
    void on_device_geometry_7N(packets::device_geometry_7N& p) override;
    void on_device_geometry_7D(packets::device_geometry_7D& p) override;
    void on_device_geometry_laser_direction(packets::device_geometry_laser_direction& p,
                                            const std::uint32_t* end) override;
    void on_scan_segments_fov(packets::scan_segments_fov& p) override;
    void on_pps_sync(packets::pps_sync& p) override;
    void on_pps_sync_hr(packets::pps_sync_hr& p) override;
    void on_laser_shot(packets::laser_shot& p) override;
    void on_laser_shot_1angle(packets::laser_shot_1angle& p) override;
    void on_laser_shot_2angles(packets::laser_shot_2angles& p) override;
    void on_laser_shot_2angles_rad(packets::laser_shot_2angles_rad& p) override;
    void on_laser_shot_6angles(packets::laser_shot_6angles& p) override;
    void on_laser_shot_2angles_hr(packets::laser_shot_2angles_hr& p) override;
    void on_laser_shot_utctime_origin_direction(
        packets::laser_shot_utctime_origin_direction& p) override;
    void on_counter_sync(packets::counter_sync& p) override;
    void on_counter_sync_2angles_hr(packets::counter_sync_2angles_hr& p) override;
    void on_pwm_sync(packets::pwm_sync& p) override;
    void on_echo(packets::echo& p) override;
    void on_echo_1(packets::echo_1& p) override;
    void on_laser_echo(packets::laser_echo& p) override;
    void on_laser_echo_qual(packets::laser_echo_qual& p) override;
    void on_laser_echo_sw(packets::laser_echo_sw& p) override;
    void on_echo_gap_data(packets::echo_gap_data& p, const std::uint32_t* end) override;
    void on_channeled_shot_echoes(packets::channeled_shot_echoes& p,
                                  const std::uint32_t* end) override;
    void on_line_start_segment_1(packets::line_start_segment_1& p) override;
    void on_line_start_segment_2(packets::line_start_segment_2& p) override;
    void on_line_start_segment_3(packets::line_start_segment_3& p) override;
    void on_line_start_segment_4(packets::line_start_segment_4& p) override;
    void on_line_start_segment_5(packets::line_start_segment_5& p) override;
    void on_line_stop(packets::line_stop& p) override;
    void on_frame_stop(packets::frame_stop& p) override;
    void on_meas_start(packets::meas_start& p) override;
    void on_meas_stop(packets::meas_stop& p) override;
    void on_nrange_table(packets::nrange_table& p, const std::uint32_t* end) override;
    void on_reftab_table(packets::reftab_table& p, const std::uint32_t* end) override;
    void on_arange_table(packets::arange_table& p, const std::uint32_t* end) override;
    void on_atmosphere_2(packets::atmosphere_2& p) override;
    void on_atmosphere_3(packets::atmosphere_3& p) override;
    void on_atmosphere_4(packets::atmosphere_4& p) override;
    void on_mta_settings(packets::mta_settings& p) override;
    void on_mta_settings_1(packets::mta_settings_1& p) override;
    void on_mta_settings_3(packets::mta_settings_3& p) override;
    void on_m_sequence_mta(packets::m_sequence_mta& p) override;
    void on_pulse_position_modulation(packets::pulse_position_modulation& p,
                                      const std::uint32_t* end) override;
    void on_pulse_position_modulation_1(packets::pulse_position_modulation_1& p,
                                        const std::uint32_t* end) override;
    void on_dyntrig(packets::dyntrig& p) override;
    void on_dyntrig_pre(packets::dyntrig_pre& p, const std::uint32_t* end) override;
    void on_dyntrig_post(packets::dyntrig_post& p, const std::uint32_t* end) override;
    void on_biaxial_geometry(packets::biaxial_geometry& p, const std::uint32_t* end) override;
    void on_notch_filter(packets::notch_filter& p) override;
    void on_calib_table(packets::calib_table& p, const std::uint32_t* end) override;
    void on_calib_2D_table(packets::calib_2D_table& p, const std::uint32_t* end) override;
    void on_notch_filter_modification_parameters(
        packets::notch_filter_modification_parameters& p) override;
    void on_range_finder_debug_laser(packets::range_finder_debug_laser& p) override;
    void on_range_finder_settings(packets::range_finder_settings& p) override;
    void on_range_finder_program_2(packets::range_finder_program_2& p) override;
    void on_crc32_header(packets::crc32_header& p, const std::uint32_t* end) override;
    void on_crc32_check(packets::crc32_check& p) override;

  protected:
    /// One object of the parameters that the stream stored, null where there is none.
    const boost::property_tree::ptree* stored_section(const char* name) const;

    /// Does once what is due before the first shot or block.
    void start_measurement();

    /// Whether external times were selected.
    bool sync_to_pps() const noexcept { return sync_to_pps_; }

    /// Targets of the shot at hand; those from `target_count` on are left over from earlier shots.
    std::vector<target> targets;
    std::size_t target_count = 0;

    /// The same targets in each zone of `mta_alternatives`, as many as `target_count`.
    std::vector<std::vector<target>> alternatives;

    /// The target stored last. There must be one.
    const target& newest_target() const noexcept { return targets[target_count - 1]; }

    vector3 beam_origin{};    ///< m; where ranges of the shot at hand count from
    vector3 beam_direction{}; ///< of length 1

    scanmech embedded_mech; ///< the plain model, in use where the stream tells no geometry
    std::vector<std::unique_ptr<scanmech>> mechs; ///< one a scan segment

  private:
    /// What an echo packet tells, raw.
    struct raw_echo {
        std::int32_t range_counter;
        std::uint16_t amplitude;
        std::int16_t reflectance;
        std::uint16_t flags;
        std::int16_t deviation;
    };
    struct stored_meta;

    template<class Count>
    void open_shot(Count ticks);
    template<class Count>
    void take_shot_time(Count ticks);
    void begin_shot();
    void aim();
    void take_beam_of(const scanmech& mech) noexcept;
    void close_shot();
    void end_of_targets();
    void note_held_back() noexcept;
    bool held_back() const noexcept { return sync_to_pps_ && !shot_sync.valid(); }
    scanmech* mech_of(std::uint32_t scan_segment) const noexcept;
    notch_filter::units_type notch_units() const noexcept { return {range_unit, ampl_unit}; }

    bool ready_for_echo();
    bool rejected_by_notch(std::int32_t range_counter, std::uint16_t amplitude);
    void store_echo(const raw_echo& e);
    void store_target(target& t, mta_history::located_echo place, double fraction_range,
                      const raw_echo& e);
    void deliver_stored();
    target& next_target();
    void fill_from_shot(target& t) const noexcept;
    void place(target& t, double range) const noexcept;
    void place_on_beam(target& t, double range) const noexcept;
    void store_pseudo_target();

    void remember_shot(std::uint64_t ticks);
    void recall_shot(std::size_t entry) noexcept;
    void resize_history();
    template<class Settings>
    void take_mta_settings(const Settings& p);
    void release_triggered();

    void configure_synchronisers();
    void set_pulse_repetition_rate(double hertz) noexcept;
    template<class Model, class Packet>
    std::unique_ptr<Model> new_wheel(Packet& p);
    template<class Model>
    std::unique_ptr<Model> new_model();
    template<class Model>
    void add_geometry(std::unique_ptr<Model> mech);
    template<class Model>
    void replace_geometry(std::unique_ptr<Model> mech);
    template<class Model>
    const Model& predecessor(const char* complaint) const;
    mirrorwheel_fanbeam& fan_of_shot() const;
    void write_state(json_writer& out) const;
    void write_trigger(json_writer& out) const;

    const bool sync_to_pps_;
    std::vector<std::uint8_t> hidden_; ///< flags of the targets of the shot at hand
    std::vector<target> aside_;        ///< targets while they are delivered again
    std::vector<std::vector<target>> alternatives_aside_;
    std::unique_ptr<stored_meta> meta_;
    std::ostream* text_sink_ = nullptr;
    bool text_header_written_ = false;
    std::uint32_t unknown_attempts_ = 0; ///< of the packet at hand
    std::uint32_t attempts_packet_ = 0;  ///< packet_count that they belong to
};

} // namespace scanlib
