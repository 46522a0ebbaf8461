#pragma once

#include "packet_feeder.hpp"
#include "scanlib/pointcloud.hpp"

#include <cmath>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

namespace scanlib::testing {

/// Keeps all that a pointcloud reports, and opens its state to the tests.
class recording_pointcloud : public pointcloud {
  public:
    explicit recording_pointcloud(bool external_time = false) : pointcloud(external_time) {
        set_loss_log(&log);
    }

    struct shot {
        double time;
        double time_internal;
        vector3 origin;
        vector3 direction;
        std::uint32_t facet;
        std::uint32_t segment;
        std::uint32_t line;
        std::uint32_t frame;
    };

    struct mismatch {
        std::uint8_t context;
        std::uint32_t sequence;
        std::uint32_t new_sequence;
        bool operator==(const mismatch&) const = default;
    };

    std::vector<shot> shots;
    std::vector<shot> ended; ///< what stood when a shot ended
    std::vector<shot> gap_pulses;
    std::vector<mismatch> mismatches;
    std::vector<target> reported_elsewhere; ///< in each alternative zone, echo by echo
    std::vector<target> reported;
    std::vector<echo_position> positions;
    std::vector<std::string> calls; ///< names of the operations called, in order
    loss_log log;

    using pointcloud::beam_direction;
    using pointcloud::beam_origin;
    using pointcloud::embedded_mech;
    using pointcloud::mechs;
    using pointcloud::targets;
    using pointcloud_state::ampl_unit;
    using pointcloud_state::arange_table;
    using pointcloud_state::attenuation;
    using pointcloud_state::background_radiation;
    using pointcloud_state::build;
    using pointcloud_state::calib_2d;
    using pointcloud_state::calib_2d_active;
    using pointcloud_state::calib_tables;
    using pointcloud_state::delta_rg;
    using pointcloud_state::direction_unit;
    using pointcloud_state::dyntrig;
    using pointcloud_state::facet_count;
    using pointcloud_state::gap_sync;
    using pointcloud_state::gate_high;
    using pointcloud_state::gate_low;
    using pointcloud_state::group_velocity;
    using pointcloud_state::history;
    using pointcloud_state::housekeeping_sync;
    using pointcloud_state::housekeeping_time;
    using pointcloud_state::ident;
    using pointcloud_state::intervals;
    using pointcloud_state::measurement_started;
    using pointcloud_state::mta_enabled;
    using pointcloud_state::mta_zones;
    using pointcloud_state::notch;
    using pointcloud_state::nrange_table;
    using pointcloud_state::origin_unit;
    using pointcloud_state::pressure;
    using pointcloud_state::pressure_sl;
    using pointcloud_state::pulse_code_phase_mode;
    using pointcloud_state::pulse_num_mod_ampl;
    using pointcloud_state::pulse_phase_step;
    using pointcloud_state::range_unit;
    using pointcloud_state::refl_unit;
    using pointcloud_state::reftab_table;
    using pointcloud_state::rel_humidity;
    using pointcloud_state::rng_scale;
    using pointcloud_state::sampling_time;
    using pointcloud_state::scan_segments;
    using pointcloud_state::serial;
    using pointcloud_state::shot_sync;
    using pointcloud_state::systime_hr_bits;
    using pointcloud_state::systime_hr_unit;
    using pointcloud_state::systime_unit;
    using pointcloud_state::temperature;
    using pointcloud_state::type_id;
    using pointcloud_state::unambiguous_range;
    using pointcloud_state::utc_unit;
    using pointcloud_state::wavelength;

  protected:
    void apply_meta() override {
        calls.emplace_back("apply_meta");
        pointcloud::apply_meta();
    }
    void on_shot() override {
        calls.emplace_back("on_shot");
        shots.push_back({time, time_internal, beam_origin, beam_direction, facet, segment,
                         line_counter, frame_counter});
    }
    void on_shot_end() override {
        calls.emplace_back("on_shot_end");
        ended.push_back({time, time_internal, beam_origin, beam_direction, facet, segment,
                         line_counter, frame_counter});
    }
    void on_echo_ready(echo_position position) override {
        calls.emplace_back("on_echo_ready");
        positions.push_back(position);
        reported.push_back(newest_target());
        for (std::size_t i = 0; i < alternatives.size(); ++i) {
            reported_elsewhere.push_back(alternatives[i][target_count - 1]);
        }
    }
    void on_sync_gained() override { calls.emplace_back("on_sync_gained"); }
    void on_sync_lost() override { calls.emplace_back("on_sync_lost"); }
    void on_gap_pulse() override {
        calls.emplace_back("on_gap_pulse");
        gap_pulses.push_back({time, time_internal, beam_origin, beam_direction, facet, segment,
                              line_counter, frame_counter});
    }
    void on_crc_mismatch(std::uint8_t context, std::uint32_t sequence,
                         std::uint32_t new_sequence) override {
        mismatches.push_back({context, sequence, new_sequence});
    }
    void on_check_parameters_before_measurement_starting() override {
        calls.emplace_back("on_check_parameters");
        pointcloud::on_check_parameters_before_measurement_starting();
    }
};

/// A pointcloud with a stream to feed it.
struct fed_pointcloud : recording_pointcloud {
    explicit fed_pointcloud(bool external_time = false) : recording_pointcloud(external_time) {}

    template<class Writer, class Fill>
    void feed(Fill&& fill, std::size_t elements = 0) {
        packet_feeder(*this).feed<Writer>(fill, elements);
    }
    template<class Writer>
    void feed() {
        packet_feeder(*this).feed<Writer>();
    }

    void units(float range = 0.001F, std::uint32_t circle = 3600, float systime = 1e-07F) {
        feed<packets::units_writer>([&](auto& w) {
            w.range_unit(range);
            w.line_circle_count(circle);
            w.frame_circle_count(circle);
            w.systime_unit(systime);
        });
    }
    void shot(std::uint32_t ticks, std::uint32_t line = 0, std::uint32_t frame = 0) {
        feed<packets::laser_shot_2angles_writer>([&](auto& w) {
            w.time_counter(ticks);
            w.line_counter(line);
            w.frame_counter(frame);
        });
    }
    void shot_hr(std::uint64_t ticks, std::uint32_t line = 0, std::uint32_t frame = 0) {
        feed<packets::laser_shot_2angles_hr_writer>([&](auto& w) {
            w.time_counter_hr(ticks);
            w.line_counter(line);
            w.frame_counter(frame);
        });
    }
    void shot_rad(std::uint32_t ticks, std::uint16_t radiation) {
        feed<packets::laser_shot_2angles_rad_writer>([&](auto& w) {
            w.time_counter(ticks);
            w.background_radiation(radiation);
        });
    }
    void echo(std::int32_t range, std::uint16_t amplitude = 1000, std::int16_t reflectance = 0,
              std::uint16_t flags = 0, std::int16_t deviation = 0) {
        feed<packets::echo_writer>([&](auto& w) {
            w.range_counter(range);
            w.amplitude(amplitude);
            w.reflectance(reflectance);
            w.flags(flags);
            w.deviation(deviation);
        });
    }
    void pps(std::uint32_t ticks, std::uint32_t pps_time) {
        feed<packets::pps_sync_writer>([&](auto& w) {
            w.system_counter(ticks);
            w.pps_time(pps_time);
        });
    }
    void line_stop() { feed<packets::line_stop_writer>(); }
    void frame_stop() { feed<packets::frame_stop_writer>(); }
    void meas_stop() { feed<packets::meas_stop_writer>(); }

    /// A wheel of two facets about x with a beam along z.
    void geometry() {
        feed<packets::device_geometry_writer>(
            [](auto& w) {
                w.laser_direction(2, 1.0F);
                w.laser_origin(0, 0.25F);
                w.mirror_axis_direction(0, 1.0F);
                w.line_angle_0(10);
                w.element(0).normal(2, 1.0F);
                w.element(0).dist(0.5F);
                w.element(1).normal(2, 1.0F);
                w.element(1).dist(0.125F);
            },
            2);
    }
};

/// The message of what `action` throws, without the names in front of it; "no failure" if it does
/// not throw.
template<class Action>
std::string failure_of(Action&& action) {
    try {
        action();
    } catch (const std::exception& e) {
        const std::string text = e.what();
        const std::size_t at = text.rfind(" : ");
        return at == std::string::npos ? text : text.substr(at + 3);
    }
    return "no failure";
}

using position_list = std::vector<echo_position>;
using call_list = std::vector<std::string>;

} // namespace scanlib::testing
