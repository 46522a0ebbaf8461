#include "scanlib/time_sync.hpp"

#include "scanlib/saturate.hpp"

#include <algorithm>
#include <cmath>

namespace scanlib {

namespace {

constexpr double no_time = std::numeric_limits<double>::quiet_NaN();

/// By how many bits the high-resolution counter is finer than the system counter.
unsigned extra_bits(double systime_unit, double hr_unit) {
    const double ratio = systime_unit / hr_unit;
    if (!std::isfinite(ratio)) {
        return 0;
    }
    int exponent = 0;
    std::frexp(ratio, &exponent);
    return static_cast<unsigned>(std::max(exponent - 1, 0));
}

} // namespace

time_sync::time_sync() {
    configure(1e-07, 0.001, 1e-12, 0.000001, 49, 0);
}

template<class Count>
void time_sync::set_range(counter<Count>& c, Count mask, Count threshold) {
    c.mask = mask;
    c.wrap_threshold = threshold;
    c.period = static_cast<double>(mask) * c.unit + c.unit;
}

void time_sync::init(double systime_unit, double pps_unit) {
    const double hr_pps_unit = hr_.pps_unit;
    sys_ = {};
    hr_ = {};
    sys_.unit = systime_unit;
    sys_.pps_unit = pps_unit;
    hr_.unit = systime_unit * 1.9073486328125e-06;
    hr_.pps_unit = hr_pps_unit;
    set_range(sys_, ~std::uint32_t{0}, std::uint32_t{1073741823});
    set_range(hr_, ~std::uint64_t{0}, std::uint64_t{1073741823});

    first_ = {0.0, 1.0, 0.0};
    second_internal_ = no_time;
    later_.clear();
    next_ = 0;
    first_conversion_done_ = false;
    pps_seen_ = false;
    locked_ = false;
    valid_ = false;
}

void time_sync::configure(double systime_unit, double pps_unit, double hr_unit, double hr_pps_unit,
                          std::uint32_t bits, std::uint32_t strict) {
    init(systime_unit, pps_unit);
    hr_.unit = hr_unit;
    hr_.pps_unit = hr_pps_unit;

    const std::uint64_t hr_mask = bits < 64 ? (std::uint64_t{1} << bits) - 1 : ~std::uint64_t{0};
    const unsigned shift = extra_bits(systime_unit, hr_unit);
    const auto sys_mask = static_cast<std::uint32_t>(shift < 64 ? hr_mask >> shift : 0);
    set_range(sys_, sys_mask, strict != 0 ? strict : sys_mask / 4);
    set_range(hr_, hr_mask, strict != 0 ? std::uint64_t{strict} : hr_mask / 4);
}

/// The first conversion decides in which turn of the counter the stream began: the one nearest to
/// the newest pair.
template<class Count>
void time_sync::take_first_conversion(counter<Count>& c, double in_turn) {
    first_conversion_done_ = true;
    first_ = newest();
    later_.clear();
    next_ = 0;
    second_internal_ = no_time;
    if (!valid_) {
        return;
    }
    const double d = first_.t_internal - in_turn;
    const Count k = saturate<Count>(d / c.period);
    const Count below = k - 1;
    const Count above = k + 1;
    const auto distance = [&](Count turns) {
        return std::fabs(static_cast<double>(turns) * c.period - d);
    };
    if (distance(k) < distance(below) && distance(k) < distance(above)) {
        c.wraps = k;
    } else if (distance(below) < distance(k) && distance(below) < distance(above)) {
        c.wraps = below;
    } else {
        c.wraps = above;
    }
}

/// Drops anchors until the second is not before `t`.
void time_sync::advance(double t) {
    while (next_ < later_.size() && t > later_[next_].t_internal) {
        first_ = later_[next_];
        ++next_;
    }
    second_internal_ = next_ < later_.size() ? later_[next_].t_internal : no_time;
}

void time_sync::push(const sync_anchor& a) {
    if (!first_conversion_done_) {
        // The first conversion starts from the newest anchor whatever stands before it.
        first_ = a;
        return;
    }
    if (later_.size() - next_ == anchor_limit - 1) {
        first_ = later_[next_];
        ++next_;
    }
    if (next_ > later_.size() / 2) {
        later_.erase(later_.begin(), later_.begin() + static_cast<std::ptrdiff_t>(next_));
        next_ = 0;
    }
    later_.push_back(a);
    second_internal_ = later_[next_].t_internal;
}

template<class Count>
sync_time time_sync::pps_with(counter<Count>& c, Count ticks, Count pps_time) {
    constexpr pps_rules rule = rules(Count{});
    const sync_anchor last = newest();
    const Count masked = ticks & c.mask;
    if (pps_time == c.pps_last || masked == c.sys_last_at_pps) {
        return {last.t_internal, last.t_external};
    }

    const bool turned = masked < c.sys_last_at_pps;
    Count moved = masked - c.sys_last_at_pps;
    if (turned) {
        moved += c.mask;
    }
    Count dpps = pps_time - c.pps_last;
    if (pps_time < c.pps_last) {
        dpps += static_cast<Count>(c.pps_last < rule.day ? rule.day : rule.week);
    }
    const double dsys = static_cast<double>(moved) * c.unit;
    const Count acc = dpps + c.pps_accumulated;
    const double t_ext = static_cast<double>(acc) * c.pps_unit;
    double slope = static_cast<double>(dpps) * c.pps_unit / dsys;

    bool starts_over = false;
    if (locked_) {
        if (rule.smooth) {
            slope = 0.5 * last.slope + 0.5 * slope;
        }
        if (!(std::fabs(1 - slope) < rule.tolerance)) {
            return {last.t_internal, t_ext};
        }
    } else if (!pps_seen_) {
        pps_seen_ = true;
        if (!valid_ && first_conversion_done_) {
            c.wraps_at_pps = c.wraps;
        }
        if (!std::isnan(pulse_repetition_rate_)) {
            timeout_ = 0.5 / (pulse_repetition_rate_ * std::max(5e-08, c.unit));
        }
    } else if (std::fabs(1 - slope) < rule.tolerance) {
        starts_over = true;
        locked_ = true;
        valid_ = true;
    }

    if (turned) {
        ++c.wraps_at_pps;
    }
    c.pps_accumulated = acc;
    c.sys_last_at_pps = masked;
    c.pps_last = pps_time;
    const double t_int =
        c.period * static_cast<double>(c.wraps_at_pps) + static_cast<double>(masked) * c.unit;
    const sync_anchor a{t_int, slope, t_ext};
    if (starts_over) {
        later_.clear();
        next_ = 0;
        first_ = a;
        second_internal_ = no_time;
    } else {
        push(a);
    }
    return {t_int, t_ext};
}

template void time_sync::take_first_conversion(counter<std::uint32_t>&, double);
template void time_sync::take_first_conversion(counter<std::uint64_t>&, double);
template sync_time time_sync::pps_with(counter<std::uint32_t>&, std::uint32_t, std::uint32_t);
template sync_time time_sync::pps_with(counter<std::uint64_t>&, std::uint64_t, std::uint64_t);

} // namespace scanlib
