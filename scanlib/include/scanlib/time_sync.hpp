#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace scanlib {

/// One moment in two time bases, both in seconds.
struct sync_time {
    double internal; ///< since the counter's first zero, wraps undone
    double external; ///< PPS time; NaN where no synchronisation is known
};

/// Turns the wrapping counters of an instrument into time.
///
/// Shots carry a free-running counter of limited width: the system counter of 32 bits or the
/// high-resolution counter of up to 64 bits. Now and then the instrument tells a pair of such a
/// counter and a PPS time, which itself wraps at the end of a day or a week. `convert` unwraps a
/// counter into internal seconds and maps these onto the PPS time by the straight line through the
/// newest pair that is not ahead of it:
///
///     external
///        |              . . second anchor: takes over once t has passed it
///        |          .x<-- convert(ticks): first anchor + (t - its t_internal) * its slope
///        |      o
///        |    first anchor
///        +-----------------> internal
///
/// The state is lost and won as follows: after the first pair `pps_seen`, after the second with a
/// believable slope `locked()` and `valid()`. A conversion further than the time-out behind the
/// last pair loses the lock, but never the validity: from then on it extrapolates.
///
/// Both widths share the anchors and the state; a stream uses one of them throughout. No member
/// throws except for lack of memory, whatever the values. An object belongs to one thread.
class time_sync {
  public:
    /// Units of 1e-07 s and 0.001 s, high-resolution units of 1e-12 s and 0.000001 s, 49 bits, not
    /// strict.
    time_sync();

    /// Forgets all pairs and counters; full-width counters. The units are in seconds for each
    /// count. The time-out, the pulse repetition rate and the unit of the high-resolution PPS time
    /// stay.
    void init(double systime_unit, double pps_unit);

    /// `init`, then takes the units (seconds), the width of the high-resolution counter in bits,
    /// and the step back that still is no wrap: `strict` counts if it is not 0, else a quarter of
    /// the counter's range. The width of the 32-bit counter follows from the ratio of the units.
    void configure(double systime_unit, double pps_unit, double hr_unit, double hr_pps_unit,
                   std::uint32_t bits, std::uint32_t strict);

    /// Time of a reading of the system counter.
    sync_time convert(std::uint32_t ticks) { return convert_with(sys_, ticks); }

    /// Time of a reading of the high-resolution counter.
    sync_time convert(std::uint64_t ticks) { return convert_with(hr_, ticks); }

    /// Takes a pair of system counter and PPS time in counts of the PPS unit. Returns the newest
    /// anchor; where the pair is refused since it runs astray, the newest anchor's internal time
    /// with the refused external time.
    sync_time pps(std::uint32_t ticks, std::uint32_t pps_time) {
        return pps_with(sys_, ticks, pps_time);
    }

    /// The same with the high-resolution counter and PPS time.
    sync_time pps(std::uint64_t ticks, std::uint64_t pps_time) {
        return pps_with(hr_, ticks, pps_time);
    }

    /// Whether the newest pairs agree and the last conversion was not beyond the time-out.
    bool locked() const noexcept { return locked_; }

    /// Whether external times are known.
    bool valid() const noexcept { return valid_; }

    /// Rate of laser pulses in Hz; it sets the time-out at the next first pair. NaN for an unknown
    /// rate.
    void set_pulse_repetition_rate(double hertz) noexcept { pulse_repetition_rate_ = hertz; }

    /// The rate set last, NaN at first.
    double pulse_repetition_rate() const noexcept { return pulse_repetition_rate_; }

    /// Seconds behind the last pair after which the lock is lost.
    double timeout() const noexcept { return timeout_; }

    /// Number of pairs kept for conversions to come, the one in use included.
    std::size_t anchor_count() const noexcept { return 1 + later_.size() - next_; }

    /// Greatest number of pairs that wait for a conversion; beyond it the oldest goes.
    static constexpr std::size_t anchor_limit = 65536;

  private:
    struct sync_anchor {
        double t_internal;
        double slope;
        double t_external;
    };

    /// What is kept for one counter width. `period` is the time of a full turn of the counter.
    template<class Count>
    struct counter {
        double unit = 0;
        double period = 0;
        Count mask = 0; ///< also the greatest count
        Count last = 0;
        Count wraps = 0;
        Count wrap_threshold = 0;
        double pps_unit = 0;
        Count pps_last = 0;
        Count pps_accumulated = 0;
        Count sys_last_at_pps = 0;
        Count wraps_at_pps = 0;
    };

    /// How the handling of pairs differs between the widths.
    struct pps_rules {
        std::uint64_t day;
        std::uint64_t week;
        double tolerance; ///< of the slope
        bool smooth;      ///< whether a new slope is averaged with the last
    };
    static constexpr pps_rules rules(std::uint32_t) noexcept {
        return {86400000, 604800000, 0.001, true};
    }
    static constexpr pps_rules rules(std::uint64_t) noexcept {
        return {86400000000, 604800000000, 1e-05, false};
    }

    template<class Count>
    sync_time convert_with(counter<Count>& c, Count ticks);
    template<class Count>
    sync_time pps_with(counter<Count>& c, Count ticks, Count pps_time);
    template<class Count>
    void take_first_conversion(counter<Count>& c, double in_turn);
    template<class Count>
    static void set_range(counter<Count>& c, Count mask, Count threshold);

    void advance(double t);
    void push(const sync_anchor& a);
    const sync_anchor& newest() const noexcept {
        return later_.size() > next_ ? later_.back() : first_;
    }

    // What a conversion reads comes first.
    counter<std::uint32_t> sys_;
    counter<std::uint64_t> hr_;
    sync_anchor first_{0.0, 1.0, 0.0};
    double second_internal_ =
        std::numeric_limits<double>::quiet_NaN(); ///< of the second anchor, NaN without one
    double timeout_ = 1.5;
    bool first_conversion_done_ = false;
    bool pps_seen_ = false;
    bool locked_ = false;
    bool valid_ = false;

    double pulse_repetition_rate_ = std::numeric_limits<double>::quiet_NaN();
    std::vector<sync_anchor> later_; ///< the anchors behind the first, from next_ on
    std::size_t next_ = 0;
};

template<class Count>
inline sync_time time_sync::convert_with(counter<Count>& c, Count ticks) {
    const Count masked = ticks & c.mask;
    if (masked < c.last && c.last - masked > c.wrap_threshold) {
        ++c.wraps;
    }
    c.last = masked;

    const double in_turn = static_cast<double>(masked) * c.unit;
    if (!first_conversion_done_) [[unlikely]] {
        take_first_conversion(c, in_turn);
    }
    const double t = c.period * static_cast<double>(c.wraps) + in_turn;
    if (t > second_internal_) [[unlikely]] {
        advance(t);
    }

    const double e = (t - first_.t_internal) * first_.slope;
    if (locked_ && e > timeout_) {
        locked_ = false;
        pps_seen_ = false;
    }
    return {t, valid_ ? e + first_.t_external : std::numeric_limits<double>::quiet_NaN()};
}

} // namespace scanlib
