#pragma once

#include "scanlib/calibration_tables.hpp"

#include <cstdint>
#include <limits>

namespace scanlib {

/// How the curves of an angular notch are widened.
struct notch_modification {
    double angle_offset = 0.0; ///< added to what the second curve tells
    double width_offset = 0.1; ///< m
    double width_scale = 8.0;
    double ampl_offset = 1.0; ///< dB
    double ampl_scale = 4.0;
};

/// Rejects echoes of something that always stands in the beam, such as an exit pane: those inside
/// a window of ranges and not above an amplitude.
///
/// The window is either the same for all shots, or one for each 256 counts of the line or frame
/// circle. Windows by angle are worked out when a shot asks for one, since a circle of 32-bit
/// counts would make a table of millions. Where both are known, those by angle hold.
class notch_filter {
  public:
    /// The window of a shot, in counts; both ranges belong to it.
    struct limits_type {
        std::int32_t range_low = 0;
        std::int32_t range_high = std::numeric_limits<std::int32_t>::max();
        std::uint16_t ampl_max = std::numeric_limits<std::uint16_t>::max();
        bool operator==(const limits_type&) const = default;
    };

    /// Lengths of a count: `range` in m, `ampl` in dB.
    struct units_type {
        double range = 1;
        double ampl = 1;
        bool operator==(const units_type&) const = default;
    };

    /// Takes the window for all shots: ranges in m, amplitude in dB.
    void set_static(float low, float high, float ampl, const units_type& units);

    void set_modification(const notch_modification& m) noexcept { modification_ = m; }
    const notch_modification& modification() const noexcept { return modification_; }

    /// Takes the windows by angle if there are curves for them: those of the line angle (20 and
    /// 21), else those of the frame angle (30 and 31), each with 14 and 15. The units, the
    /// modification and the curves are those of now. Without curve 20 and 30 nothing changes.
    /// Throws scanlib_exception where one of the four curves is missing.
    void set_angular(const calibration_tables& curves, std::uint32_t line_circle_count,
                     std::uint32_t frame_circle_count, const units_type& units);

    /// Works out the window of the shot that begins. A counter beyond the circle gets the last
    /// window.
    void start_shot(std::uint32_t line_counter, std::uint32_t frame_counter,
                    const units_type& units) {
        if (mode_ != mode::none) [[unlikely]] {
            update(line_counter, frame_counter, units);
        }
    }

    /// Whether an echo of the shot at hand is to be dropped. Nothing is before a window is known.
    bool rejects(std::int32_t range_counter, std::uint16_t amplitude) const noexcept {
        return mode_ != mode::none && range_counter >= limits_.range_low &&
               range_counter <= limits_.range_high && amplitude <= limits_.ampl_max;
    }

    /// Whether a window is known.
    bool active() const noexcept { return mode_ != mode::none; }
    /// The window of the shot at hand.
    const limits_type& limits() const noexcept { return limits_; }

  private:
    enum class mode : std::uint8_t { none, fixed, line, frame };

    void update(std::uint32_t line_counter, std::uint32_t frame_counter, const units_type& units);
    limits_type limits_of_entry(std::uint32_t i) const noexcept;

    mode mode_ = mode::none;
    limits_type limits_;
    units_type units_; ///< that `limits_` was worked out with

    float low_ = 0;
    float high_ = 0;
    float ampl_ = 0;

    notch_modification modification_;
    notch_modification angular_modification_; ///< as it was when the curves were taken
    calibration_curve centre_;
    calibration_curve place_;
    calibration_curve width_;
    calibration_curve strength_;
    std::uint32_t last_entry_ = 0;
    std::uint32_t entry_ = 0; ///< that `limits_` belongs to
};

} // namespace scanlib
