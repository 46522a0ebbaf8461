#pragma once

#include "scanlib/basic_packets.hpp"
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
/// In steady state nothing is allocated: targets are overwritten in place. An object belongs to one
/// thread, and it is not copied, since its scanner models write their beam into it.
class pointcloud : public virtual basic_packets, protected pointcloud_state {
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

    /// The most geometries that a stream may hold.
    static constexpr std::size_t geometry_limit = 4096;

  protected:
    /// Called once when the measurement starts, behind
    /// `on_check_parameters_before_measurement_starting`.
    virtual void apply_meta();
    /// A shot's time and beam are set; its echoes follow.
    virtual void on_shot();
    /// A shot is closed; all of its echoes that could be were reported.
    virtual void on_shot_end();
    /// `newest_target()` is complete.
    virtual void on_echo_ready(echo_position position);
    /// The time of shots has become locked to the PPS.
    virtual void on_sync_gained();
    /// A shot found that the lock is lost.
    virtual void on_sync_lost();
    /// The measurement is about to start: the last moment to refuse or complete the parameters.
    virtual void on_check_parameters_before_measurement_starting();

  public:
    void on_header(packets::header& p, const std::uint32_t* end) override;
    void on_header_device(packets::header_device& p) override;
    void on_units(packets::units& p) override;
    void on_units_1(packets::units_1& p) override;
    void on_units_2(packets::units_2& p) override;
    void on_units_3(packets::units_3& p) override;
    void on_units_4(packets::units_4& p) override;
    void on_device_geometry(packets::device_geometry& p, const std::uint32_t* end) override;
    void on_scan_segments_fov(packets::scan_segments_fov& p) override;
    void on_pps_sync(packets::pps_sync& p) override;
    void on_pps_sync_hr(packets::pps_sync_hr& p) override;
    void on_laser_shot(packets::laser_shot& p) override;
    void on_laser_shot_1angle(packets::laser_shot_1angle& p) override;
    void on_laser_shot_2angles(packets::laser_shot_2angles& p) override;
    void on_laser_shot_2angles_rad(packets::laser_shot_2angles_rad& p) override;
    void on_laser_shot_6angles(packets::laser_shot_6angles& p) override;
    void on_laser_shot_2angles_hr(packets::laser_shot_2angles_hr& p) override;
    void on_counter_sync(packets::counter_sync& p) override;
    void on_counter_sync_2angles_hr(packets::counter_sync_2angles_hr& p) override;
    void on_pwm_sync(packets::pwm_sync& p) override;
    void on_echo(packets::echo& p) override;
    void on_echo_1(packets::echo_1& p) override;
    void on_laser_echo(packets::laser_echo& p) override;
    void on_laser_echo_qual(packets::laser_echo_qual& p) override;
    void on_laser_echo_sw(packets::laser_echo_sw& p) override;
    void on_line_start_segment_1(packets::line_start_segment_1& p) override;
    void on_line_start_segment_2(packets::line_start_segment_2& p) override;
    void on_line_start_segment_3(packets::line_start_segment_3& p) override;
    void on_line_start_segment_4(packets::line_start_segment_4& p) override;
    void on_line_start_segment_5(packets::line_start_segment_5& p) override;
    void on_line_stop(packets::line_stop& p) override;
    void on_frame_stop(packets::frame_stop& p) override;
    void on_meas_start(packets::meas_start& p) override;
    void on_meas_stop(packets::meas_stop& p) override;
    void on_reftab_table(packets::reftab_table& p, const std::uint32_t* end) override;
    void on_atmosphere_2(packets::atmosphere_2& p) override;
    void on_atmosphere_3(packets::atmosphere_3& p) override;
    void on_atmosphere_4(packets::atmosphere_4& p) override;
    void on_range_finder_debug_laser(packets::range_finder_debug_laser& p) override;
    void on_range_finder_settings(packets::range_finder_settings& p) override;
    void on_range_finder_program_2(packets::range_finder_program_2& p) override;

  protected:
    /// Whether external times were selected.
    bool sync_to_pps() const noexcept { return sync_to_pps_; }

    /// Targets of the shot at hand; those from `target_count` on are left over from earlier shots.
    std::vector<target> targets;
    std::size_t target_count = 0;

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

    void start_measurement();
    template<class Count>
    void open_shot(Count ticks);
    template<class Count>
    void take_shot_time(Count ticks);
    void aim();
    void close_shot();
    void end_of_targets();
    void note_held_back() noexcept;
    bool held_back() const noexcept { return sync_to_pps_ && !shot_sync.valid(); }
    scanmech* mech_of(std::uint32_t scan_segment) const noexcept;

    bool ready_for_echo();
    void store_echo(const raw_echo& e);
    void deliver_stored();
    target& next_target();
    void fill_from_shot(target& t) const noexcept;
    void place(target& t, double range) const noexcept;
    void place_on_beam(target& t, double range) const noexcept;
    float corrected_reflectance(float reflectance, double range) const noexcept;
    void store_pseudo_target();

    void configure_synchronisers();
    void set_pulse_repetition_rate(double hertz) noexcept;
    void add_geometry(std::unique_ptr<scanmech> mech);
    void write_state(json_writer& out) const;

    const bool sync_to_pps_;
};

} // namespace scanlib
