#pragma once

#include "scanlib/amplitude_range_table.hpp"
#include "scanlib/calibration_tables.hpp"
#include "scanlib/crc_contexts.hpp"
#include "scanlib/dynamic_trigger.hpp"
#include "scanlib/mta_history.hpp"
#include "scanlib/near_range_table.hpp"
#include "scanlib/notch_filter.hpp"
#include "scanlib/range_grid.hpp"
#include "scanlib/reflectance_table.hpp"
#include "scanlib/time_sync.hpp"
#include "scanlib/vector3.hpp"

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace scanlib {

/// What a `pointcloud` knows of the instrument and of the shot at hand. The defaults are those of a
/// stream that has told nothing yet. NaN means not known.
struct pointcloud_state {
    static constexpr double unknown = std::numeric_limits<double>::quiet_NaN();

    // The shot at hand.
    double time = unknown;          ///< s, external or internal as the pointcloud was told
    double time_internal = unknown; ///< s
    std::uint32_t line_counter = 0;
    std::uint32_t frame_counter = 0;
    std::uint32_t segment_pending = 0; ///< segment of the shots to come
    std::uint32_t segment = 0;
    std::uint32_t facet = 0;
    float background_radiation = std::numeric_limits<float>::quiet_NaN(); ///< the newest one told
    double line_angle = 0;                                                ///< rad
    double frame_angle = 0;                                               ///< rad
    bool shot_open = false;
    bool measurement_started = false;
    bool first_shot_released = false; ///< the one shot behind the first synchronisation was closed
    std::uint8_t quality_deviation =
        0; ///< told ahead of the laser_echo that it belongs to, as are the two flags
    std::uint8_t quality_rising = 0;
    std::uint8_t quality_pseudo = 0;
    bool seed_synchronisers = true; ///< the next counter_sync goes to all three

    // Units, each for one count.
    double range_unit = 1.0; ///< m
    double ampl_unit = 0.01; ///< dB
    double refl_unit = 0.01; ///< dB
    double delta_rg = 0.0;   ///< m, added to each range
    double attenuation = 0.0;
    double pps_unit = 0.001;                      ///< s
    double pps_hr_unit = 0.000001;                ///< s
    double systime_unit = 1e-07;                  ///< s
    double systime_hr_unit = 1.9073486328125e-13; ///< s
    std::uint32_t systime_hr_bits = 49;
    double origin_unit = unknown;    ///< m
    double direction_unit = unknown; ///< 1
    double utc_unit = unknown;       ///< s

    // Corrections of echoes.
    amplitude_range_table arange_table;
    near_range_table nrange_table;
    reflectance_table reftab_table;
    calibration_tables calib_tables;
    range_grid calib_2d;
    bool calib_2d_active = false; ///< from then on no near-range table is taken
    notch_filter notch;
    dynamic_trigger dyntrig;

    // Echoes of earlier shots (multiple time around).
    bool mta_enabled = false;
    bool mta_fixed = false;     ///< told from outside, so that the stream's settings do not count
    std::uint8_t mta_zones = 0; ///< zone of all echoes, counted from 1; 0 to search it
    float gate_low = 0;         ///< m
    float gate_high = 0;        ///< m
    std::vector<std::uint16_t> mta_alternatives; ///< further zones to place each echo in
    mta_history history;

    // Modulation of the pulses' distances.
    std::uint32_t pulse_num_mod_ampl = 1;
    std::uint32_t pulse_code_phase_mode = 0;
    std::uint32_t pulse_phase_step = 0;
    std::vector<double> intervals;

    // Instrument and atmosphere.
    double group_velocity = 300000000.0; ///< m/s
    double unambiguous_range = 10000.0;  ///< m
    double sampling_time = unknown;      ///< s
    double pressure = unknown;
    double pressure_sl = unknown;
    double rel_humidity = unknown;
    double rng_scale = unknown;
    double temperature = unknown;
    double wavelength = unknown;        ///< m
    double housekeeping_time = unknown; ///< s, of the newest counter_sync or pwm_sync
    std::uint32_t facet_count = 0;      ///< of the newest mirror wheel
    std::uint32_t scan_segments = 0;    ///< first word of scan_segments_fov
    std::string serial;
    std::string type_id;
    std::string build;
    std::string ident;

    crc_contexts checksums;

    time_sync shot_sync;
    time_sync housekeeping_sync;
    time_sync gap_sync; ///< gap and sample-block data
};

} // namespace scanlib
