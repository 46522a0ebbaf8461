#include "scanlib/time_sync.hpp"

#include "scanlib/saturate.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using scanlib::sync_time;
using scanlib::time_sync;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

namespace {

/// System counter of 32 bits at 10 MHz, PPS time in milliseconds.
time_sync full_width(u32 strict = 0) {
    time_sync s;
    s.configure(1e-07, 0.001, 1e-07, 0.000001, 32, strict);
    return s;
}

/// High-resolution counter of 49 bits in picoseconds, PPS time in microseconds.
time_sync high_resolution() {
    time_sync s;
    s.configure(1e-07, 0.001, 1e-12, 0.000001, 49, 0);
    return s;
}

/// External time of the third of three pairs a second apart, where PPS time falls from the last
/// second of a period to 0. `ticks` and `units` are those of a second.
template<class Count>
double external_past_midnight(time_sync& s, Count period, Count ticks, Count units) {
    s.pps(ticks, static_cast<Count>((period - 2) * units));
    s.pps(static_cast<Count>(2 * ticks), static_cast<Count>((period - 1) * units));
    return s.pps(static_cast<Count>(3 * ticks), Count{0}).external;
}

/// Two pairs a second apart, so that the synchroniser is locked: count 0x1000 is PPS `start` ms.
void lock(time_sync& s, u32 start = 1000) {
    s.pps(u32{0x1000}, start);
    s.pps(u32{0x1000 + 10000000}, start + 1000);
}

} // namespace

TEST(time_sync, external_time_is_nan_before_any_pair_and_internal_time_has_no_offset) {
    time_sync s = full_width();
    const sync_time t = s.convert(u32{123456});
    EXPECT_DOUBLE_EQ(t.internal, 123456 * 1e-07);
    EXPECT_TRUE(std::isnan(t.external));
    EXPECT_FALSE(s.locked());
    EXPECT_FALSE(s.valid());
}

TEST(time_sync, second_pair_with_believable_slope_locks) {
    time_sync s = full_width();
    s.pps(u32{0x1000}, u32{5000});
    EXPECT_FALSE(s.locked());
    EXPECT_FALSE(s.valid());
    const sync_time anchor = s.pps(u32{0x1000 + 10000000}, u32{6000});
    EXPECT_TRUE(s.locked());
    EXPECT_TRUE(s.valid());
    EXPECT_DOUBLE_EQ(anchor.external, 6.0);
    EXPECT_DOUBLE_EQ(anchor.internal, (0x1000 + 10000000) * 1e-07);
    EXPECT_NEAR(s.convert(u32{0x1000 + 15000000}).external, 6.5, 1e-9);
}

TEST(time_sync, second_pair_with_wild_slope_does_not_lock) {
    time_sync s = full_width();
    s.pps(u32{0x1000}, u32{5000});
    s.pps(u32{0x1000 + 10000000}, u32{6002});
    EXPECT_FALSE(s.locked());
    s.pps(u32{0x1000 + 20000000}, u32{7002});
    EXPECT_TRUE(s.locked());
}

TEST(time_sync, repeated_pps_time_changes_nothing) {
    time_sync s = full_width();
    lock(s);
    s.convert(u32{0x1000 + 10000000});
    const sync_time before = s.pps(u32{0x1000 + 20000000}, u32{3000});
    const std::size_t anchors = s.anchor_count();
    const sync_time again = s.pps(u32{0x1000 + 25000000}, u32{3000});
    EXPECT_EQ(again.internal, before.internal);
    EXPECT_EQ(again.external, before.external);
    EXPECT_EQ(s.anchor_count(), anchors);
    EXPECT_NEAR(s.convert(u32{0x1000 + 22000000}).external, 3.2, 1e-9);
}

TEST(time_sync, repeated_counter_changes_nothing) {
    time_sync s = full_width();
    lock(s);
    const sync_time again = s.pps(u32{0x1000 + 10000000}, u32{99999});
    EXPECT_DOUBLE_EQ(again.external, 2.0);
    EXPECT_NEAR(s.convert(u32{0x1000 + 12000000}).external, 2.2, 1e-9);
}

TEST(time_sync, small_step_back_is_no_wrap_unless_strict) {
    time_sync lenient = full_width();
    lenient.convert(u32{1000});
    EXPECT_DOUBLE_EQ(lenient.convert(u32{900}).internal, 900 * 1e-07);
    time_sync strict = full_width(1);
    strict.convert(u32{1000});
    EXPECT_DOUBLE_EQ(strict.convert(u32{900}).internal, 4294967296.0 * 1e-07 + 900 * 1e-07);
}

TEST(time_sync, step_back_by_one_is_no_wrap_even_when_strict) {
    time_sync s = full_width(1);
    s.convert(u32{1000});
    EXPECT_DOUBLE_EQ(s.convert(u32{999}).internal, 999 * 1e-07);
    EXPECT_GT(s.convert(u32{997}).internal, 429.0);
}

TEST(time_sync, step_back_of_more_than_a_quarter_is_a_wrap) {
    time_sync s = full_width();
    s.convert(u32{0xFFFFFF00});
    EXPECT_DOUBLE_EQ(s.convert(u32{5}).internal, 4294967296.0 * 1e-07 + 5 * 1e-07);
}

TEST(time_sync, pps_time_falling_from_the_last_second_of_the_day_adds_one_day) {
    time_sync s = full_width();
    EXPECT_DOUBLE_EQ(external_past_midnight<u32>(s, 86400, 10000000, 1000), 86400.0);
    EXPECT_TRUE(s.locked());
}

TEST(time_sync, pps_time_falling_from_the_last_second_of_the_week_adds_one_week) {
    time_sync s = full_width();
    EXPECT_DOUBLE_EQ(external_past_midnight<u32>(s, 604800, 10000000, 1000), 604800.0);
    EXPECT_TRUE(s.locked());
}

TEST(time_sync, high_resolution_pps_time_wraps_at_day_and_week) {
    for (const u64 period : {u64{86400}, u64{604800}}) {
        time_sync s = high_resolution();
        EXPECT_DOUBLE_EQ(external_past_midnight<u64>(s, period, 1000000000000, 1000000),
                         static_cast<double>(period));
        EXPECT_TRUE(s.locked());
    }
}

TEST(time_sync, pulse_repetition_rate_sets_the_timeout_at_the_first_pair) {
    time_sync s = full_width();
    EXPECT_DOUBLE_EQ(s.timeout(), 1.5);
    s.set_pulse_repetition_rate(1000000);
    EXPECT_DOUBLE_EQ(s.timeout(), 1.5);
    s.pps(u32{0x1000}, u32{1000});
    EXPECT_DOUBLE_EQ(s.timeout(), 5.0);
}

TEST(time_sync, timeout_of_the_high_resolution_path_takes_its_own_unit) {
    time_sync s = high_resolution();
    s.set_pulse_repetition_rate(1000000);
    s.pps(u64{1000}, u64{1000});
    EXPECT_DOUBLE_EQ(s.timeout(), 0.5 / (1000000 * 5e-08));
}

TEST(time_sync, lock_is_lost_past_the_timeout_but_validity_stays) {
    time_sync s = full_width();
    lock(s);
    s.convert(u32{0x1000 + 10000000 + 14900000});
    EXPECT_TRUE(s.locked());
    const sync_time t = s.convert(u32{0x1000 + 10000000 + 15100000});
    EXPECT_FALSE(s.locked());
    EXPECT_TRUE(s.valid());
    EXPECT_NEAR(t.external, 2.0 + 1.51, 1e-9);
    // Two further pairs win the lock back.
    s.pps(u32{0x1000 + 30000000}, u32{4000});
    EXPECT_FALSE(s.locked());
    s.pps(u32{0x1000 + 40000000}, u32{5000});
    EXPECT_TRUE(s.locked());
}

TEST(time_sync, pair_astray_while_locked_is_refused) {
    time_sync s = full_width();
    lock(s);
    const sync_time t = s.pps(u32{0x1000 + 20000000}, u32{3010});
    EXPECT_DOUBLE_EQ(t.internal, (0x1000 + 10000000) * 1e-07);
    EXPECT_DOUBLE_EQ(t.external, 3.01);
    EXPECT_TRUE(s.locked());
    EXPECT_NEAR(s.convert(u32{0x1000 + 20000000}).external, 3.0, 1e-9);
}

TEST(time_sync, slope_is_smoothed_on_the_system_counter_only) {
    time_sync s = full_width();
    s.pps(u32{0}, u32{1000});
    lock(s);
    // 0.04 % fast: averaged with 1 it is 0.02 %.
    s.pps(u32{0x1000 + 10000000 + 9996000}, u32{3000});
    const double base = s.convert(u32{0x1000 + 10000000 + 9996000}).external;
    EXPECT_NEAR(s.convert(u32{0x1000 + 10000000 + 9996000 + 5000000}).external - base, 0.5 * 1.0002,
                1e-6);

    time_sync h;
    h.configure(1e-07, 0.001, 1e-12, 0.000001, 49, 0);
    h.pps(u64{1000000000000}, u64{1000000});
    h.pps(u64{2000000000000}, u64{2000000});
    h.pps(u64{2999995000000}, u64{3000000});
    const double start = h.convert(u64{2999995000000}).external;
    EXPECT_NEAR(h.convert(u64{3499995000000}).external - start, 0.5 * (1 / 0.999995), 1e-12);
}

TEST(time_sync, first_conversion_takes_the_turn_nearest_to_the_newest_pair) {
    time_sync s = full_width();
    s.pps(u32{0xF0000000}, u32{1000});
    s.pps(u32{0xF0000000 + 10000000}, u32{2000});
    // Counter wraps between the pair and the first shot.
    const sync_time t = s.convert(u32{100});
    EXPECT_DOUBLE_EQ(t.internal, 4294967296.0 * 1e-07 + 100 * 1e-07);
    EXPECT_NEAR(t.external, 2.0 + (4294967296.0 + 100 - 0xF0000000 - 10000000) * 1e-07, 1e-6);
}

TEST(time_sync, first_conversion_without_validity_keeps_the_turn) {
    time_sync s = full_width();
    s.pps(u32{0xF0000000}, u32{1000});
    EXPECT_DOUBLE_EQ(s.convert(u32{100}).internal, 100 * 1e-07);
}

TEST(time_sync, system_counter_width_follows_from_the_units) {
    time_sync s;
    s.configure(1e-07, 0.001, 1.9073486328125e-13, 0.000001, 49, 0);
    // 2^19 fine counts a count, so 49 bits leave 30.
    s.convert(u32{0x3FFFFFFF});
    EXPECT_DOUBLE_EQ(s.convert(u32{7}).internal, (1073741824.0 + 7) * 1e-07);
    EXPECT_DOUBLE_EQ(s.convert(u32{0x40000008}).internal, (1073741824.0 + 8) * 1e-07);
}

TEST(time_sync, unit_ratio_below_a_half_keeps_the_width) {
    time_sync s;
    s.configure(1e-12, 0.001, 1e-07, 0.000001, 16, 0);
    s.convert(u32{0xFFFF});
    EXPECT_DOUBLE_EQ(s.convert(u32{3}).internal, (65536.0 + 3) * 1e-12);
}

TEST(time_sync, init_keeps_timeout_rate_and_high_resolution_pps_unit) {
    time_sync s;
    s.configure(1e-07, 0.001, 1e-12, 0.5, 49, 0);
    s.set_pulse_repetition_rate(1000000);
    s.pps(u32{5}, u32{5});
    s.init(1e-07, 0.001);
    EXPECT_DOUBLE_EQ(s.timeout(), 5.0);
    EXPECT_DOUBLE_EQ(s.pulse_repetition_rate(), 1000000);
    EXPECT_DOUBLE_EQ(s.pps(u64{100}, u64{8}).external, 4.0);
    EXPECT_DOUBLE_EQ(s.convert(u64{1}).internal, 1e-07 * 1.9073486328125e-06);
}

TEST(time_sync, anchors_behind_the_conversion_are_dropped) {
    time_sync s = full_width();
    lock(s);
    s.convert(u32{0x1000 + 10000000});
    for (u32 i = 2; i < 10; ++i) {
        s.pps(u32{0x1000} + i * 10000000, 1000 + i * 1000);
    }
    EXPECT_EQ(s.anchor_count(), 9U);
    s.convert(u32{0x1000 + 95000000});
    EXPECT_EQ(s.anchor_count(), 1U);
}

TEST(time_sync, pairs_without_conversions_need_bounded_memory) {
    time_sync s = full_width();
    u32 ticks = 0;
    for (u32 i = 0; i < 200000; ++i) {
        s.pps(ticks += 10000, i + 1);
    }
    EXPECT_EQ(s.anchor_count(), 1U);
    s.convert(ticks);
    for (u32 i = 200000; i < 400000; ++i) {
        s.pps(ticks += 10000, i + 1);
    }
    EXPECT_LE(s.anchor_count(), time_sync::anchor_limit);
    EXPECT_NEAR(s.convert(ticks).external, 400.0, 1e-5);
}

TEST(time_sync, unwrapped_time_of_a_running_counter_is_monotone) {
    std::mt19937 random(1);
    for (int round = 0; round < 20; ++round) {
        time_sync s = full_width();
        u64 count = random();
        std::uniform_int_distribution<u64> step(0, u64{3} << 29);
        double last = -1;
        for (int i = 0; i < 2000; ++i) {
            const double t = s.convert(static_cast<u32>(count)).internal;
            ASSERT_GE(t, last);
            last = t;
            count += step(random);
        }
    }
}

TEST(time_sync, drifting_counter_maps_to_pps_time_within_a_microsecond) {
    std::mt19937 random(2);
    std::uniform_real_distribution<double> drift(-5e-06, 5e-06);
    for (int round = 0; round < 20; ++round) {
        const double rate = 1e12 * (1 + drift(random));
        const double phase = std::uniform_real_distribution<double>(0, 1e15)(random);
        const u64 bits = (u64{1} << 49) - 1;
        time_sync s = high_resolution();
        const double start = 86390;
        const auto count = [&](double t) {
            return scanlib::saturate<u64>(phase + (t - start) * rate) & bits;
        };
        double worst = 0;
        for (int second = 0; second < 40; ++second) {
            const double t = start + second;
            s.pps(count(t), scanlib::saturate<u64>(std::fmod(t, 86400) * 1e6 + 0.5));
            for (int i = 0; i < 50 && second > 1; ++i) {
                const double shot = t + i * 0.02;
                worst = std::max(worst, std::fabs(s.convert(count(shot)).external - shot));
            }
        }
        EXPECT_LT(worst, 1e-06) << "round " << round;
    }
}

TEST(time_sync, hostile_units_and_values_do_not_fault) {
    const double odd[] = {0.0,
                          -1.0,
                          1e-300,
                          1e300,
                          std::numeric_limits<double>::quiet_NaN(),
                          std::numeric_limits<double>::infinity(),
                          -std::numeric_limits<double>::infinity()};
    std::mt19937 random(3);
    int finite = 0;
    for (const double unit : odd) {
        for (const double hr : odd) {
            for (const u32 bits : {0U, 1U, 49U, 63U, 64U, 65U, 0xFFFFFFFFU}) {
                time_sync s;
                s.configure(unit, unit, hr, hr, bits, bits & 1);
                s.set_pulse_repetition_rate(hr);
                for (int i = 0; i < 8; ++i) {
                    s.pps(static_cast<u32>(random()), static_cast<u32>(random()));
                    s.pps(u64{random()} << 20, u64{random()} << 20);
                }
                for (int i = 0; i < 4; ++i) {
                    finite += std::isfinite(s.convert(static_cast<u32>(random())).internal);
                    finite += std::isfinite(s.convert(u64{random()} << 25).internal);
                }
            }
        }
    }
    EXPECT_GT(finite, 0);
}

TEST(saturate, takes_the_nearer_bound_and_turns_nan_into_zero) {
    using scanlib::saturate;
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(saturate<std::int32_t>(2147483647.9), 2147483647);
    EXPECT_EQ(saturate<std::int32_t>(2147483648.0), 2147483647);
    EXPECT_EQ(saturate<std::int32_t>(-2147483648.9), -2147483647 - 1);
    EXPECT_EQ(saturate<std::int32_t>(-1.9), -1);
    EXPECT_EQ(saturate<std::int32_t>(nan), 0);
    EXPECT_EQ(saturate<std::uint32_t>(-5.0), 0U);
    EXPECT_EQ(saturate<std::uint32_t>(-0.5), 0U);
    EXPECT_EQ(saturate<std::uint32_t>(inf), 0xFFFFFFFFU);
    EXPECT_EQ(saturate<u64>(1e30), ~u64{0});
    EXPECT_EQ(saturate<u64>(9223372036854775808.0), u64{1} << 63);
    EXPECT_EQ(saturate<std::int64_t>(inf), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(saturate<std::int16_t>(-inf), -32768);
    EXPECT_EQ(saturate<std::uint16_t>(65535.5), 65535);
}
