#include "simulator/digitiser.hpp"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <numeric>

namespace simulator {
namespace {

constexpr double zero_level = 100;
constexpr double counts_at_0_db = 8;

scan_settings sampled_settings(waveform_form form) {
    scan_settings settings;
    settings.waveforms = form;
    return settings;
}

received_echo echo_at(double range, double decibels, double depth = 0) {
    received_echo e{};
    e.range = range;
    e.amplitude = static_cast<std::uint16_t>(std::lround(decibels * 100));
    e.depth = depth;
    return e;
}

/// Where light that went `range` far is sampled, counted as `first` of a run.
double position_of(double range, const sampled_shot& s) {
    return (2 * range / 299704944.0 + s.phase) * 640e6;
}

/// Sum over samples [from, to) of what lies above the zero level.
double light(const sample_run& run, double from, double to) {
    double sum = 0;
    for (std::size_t i = 0; i < run.count; ++i) {
        const double at = static_cast<double>(i) + run.first;
        sum += at >= from && at < to ? run.room[i] - zero_level : 0;
    }
    return sum;
}

/// Middle of the light near a position.
double centroid(const sample_run& run, double near) {
    double sum = 0;
    double moment = 0;
    for (std::size_t i = 0; i < run.count; ++i) {
        const double at = static_cast<double>(i) + run.first;
        if (std::abs(at - near) < 6) {
            sum += run.room[i] - zero_level;
            moment += (run.room[i] - zero_level) * at;
        }
    }
    return moment / sum;
}

TEST(Digitiser, EveryRunOfAShotHasItsChannelAndALengthWithinTheLimits) {
    digitiser d(sampled_settings(waveform_form::channel));
    std::size_t least = 1000;
    std::size_t most = 0;
    for (std::uint64_t n = 0; n < 3000; ++n) {
        const double range = 2 + 0.1 * static_cast<double>(n);
        const received_echo echoes[] = {echo_at(range, 20),
                                        echo_at(range + static_cast<double>(n % 60), 20)};
        const sampled_shot& s = d.sample(n * 1000, echoes);
        ASSERT_EQ(s.runs().size(), 3U);
        EXPECT_EQ(s.runs()[0].channel, 3);
        EXPECT_EQ(s.runs()[1].channel, 0);
        EXPECT_EQ(s.runs()[2].channel, 1);
        for (const sample_run& run : s.runs()) {
            least = std::min(least, run.count);
            most = std::max(most, run.count);
        }
    }
    EXPECT_EQ(least, 60U);
    EXPECT_EQ(most, 200U);
}

TEST(Digitiser, ShotsWithoutEchoesHaveTheReferencePulseOnly) {
    digitiser d(sampled_settings(waveform_form::channel));
    const sampled_shot& s = d.sample(5, {});
    ASSERT_EQ(s.runs().size(), 1U);
    EXPECT_EQ(s.runs()[0].channel, 3);
    EXPECT_TRUE(s.pulses.empty());
}

TEST(Digitiser, PulsesLieAtTwiceTheRangeOverTheGroupVelocity) {
    digitiser d(sampled_settings(waveform_form::channel));
    for (std::uint64_t n = 0; n < 500; ++n) {
        const received_echo e = echo_at(2 + 0.613 * static_cast<double>(n), 40);
        const sampled_shot& s = d.sample(n * 777, std::span(&e, 1));
        const double expected = position_of(e.range, s);
        ASSERT_NEAR(centroid(s.runs()[1], expected), expected, 0.05);
        ASSERT_EQ(s.pulses.size(), 1U);
        EXPECT_NEAR(s.pulses[0].position, expected, 1e-4);
        EXPECT_NEAR(s.pulses[0].amplitude, 40, 1e-4);
        // The pulse leaves at the time of the shot.
        ASSERT_NEAR(centroid(s.runs()[0], s.phase * 640e6), s.phase * 640e6, 0.05);
    }
}

TEST(Digitiser, ShotsLieAnywhereBetweenTwoSamplesOrOnOne) {
    const std::uint64_t ticks = 3 * 8192 + 2048;
    digitiser free_running(sampled_settings(waveform_form::hr));
    EXPECT_DOUBLE_EQ(free_running.sample(ticks, {}).phase, 0.25 / 640e6);
    digitiser started(sampled_settings(waveform_form::parameters));
    EXPECT_EQ(started.sample(ticks, {}).phase, 0);
    EXPECT_EQ(started.newest().runs()[0].first, 0);
}

TEST(Digitiser, AmplitudesAreDecibelsAndTheLowPowerChannelSeesASixteenth) {
    digitiser d(sampled_settings(waveform_form::channel));
    const received_echo e = echo_at(50, 44);
    const sampled_shot& s = d.sample(0, std::span(&e, 1));
    const double middle = position_of(50, s);
    // A Gaussian of a width of 1.4 samples.
    const double expected = counts_at_0_db * std::pow(10, 2.2) * 1.4 * std::sqrt(2 * 3.14159265);
    const double high = light(s.runs()[1], middle - 8, middle + 8);
    EXPECT_NEAR(high, expected, 0.03 * expected);
    EXPECT_NEAR(light(s.runs()[2], middle - 8, middle + 8), high / 16, 0.05 * high / 16 + 30);
}

TEST(Digitiser, StrongEchoesCutTheHighPowerChannelOffButNotTheOther) {
    digitiser d(sampled_settings(waveform_form::channel));
    const received_echo e = echo_at(5, 62);
    const sampled_shot& s = d.sample(0, std::span(&e, 1));
    const auto high = s.runs()[1].samples();
    const auto low = s.runs()[2].samples();
    EXPECT_EQ(*std::max_element(high.begin(), high.end()), 4095);
    EXPECT_GT(std::count(high.begin(), high.end(), 4095), 2);
    EXPECT_LT(*std::max_element(low.begin(), low.end()), 1000);
    EXPECT_GT(*std::max_element(low.begin(), low.end()), 500);
}

TEST(Digitiser, EchoesThatOverlapAddUp) {
    digitiser one(sampled_settings(waveform_form::channel));
    digitiser both(sampled_settings(waveform_form::channel));
    const received_echo echoes[] = {echo_at(80, 40), echo_at(80.5, 40)};
    const double middle = position_of(80.25, one.sample(0, std::span(echoes, 1)));
    const double single = light(one.newest().runs()[1], middle - 12, middle + 12);
    const sampled_shot& s = both.sample(0, echoes);
    EXPECT_NEAR(light(s.runs()[1], middle - 12, middle + 12), 2 * single, 0.05 * single);
    // Two samples apart they are one hump, wider than one pulse.
    const auto samples = s.runs()[1].samples();
    EXPECT_GT(std::count_if(samples.begin(), samples.end(), [](int v) { return v > 500; }), 5);
    EXPECT_EQ(s.pulses.size(), 2U);
}

TEST(Digitiser, WaterFadesFromTheSurfaceToTheBottom) {
    digitiser d(sampled_settings(waveform_form::channel));
    constexpr double depth = 3.5;
    const received_echo e = echo_at(60, 45, depth);
    const sampled_shot& s = d.sample(0, std::span(&e, 1));
    const double surface = position_of(60, s);
    const double bottom = position_of(60 + depth, s);
    const sample_run& run = s.runs()[1];
    const double upper = light(run, surface + 5, surface + 7) / 2;
    const double lower = light(run, surface + 8, surface + 10) / 2;
    EXPECT_GT(upper, lower);
    EXPECT_GT(lower, 10);
    EXPECT_GT(light(run, bottom - 1, bottom + 1) / 2, 1.5 * lower);
    EXPECT_NEAR(light(run, bottom + 7, bottom + 11) / 4, 0, 6);
    EXPECT_NEAR(centroid(run, bottom), bottom, 1.0);
}

TEST(Digitiser, NoiseIsFaintUnbiasedAndNeverTheSame) {
    digitiser d(sampled_settings(waveform_form::channel));
    double sum = 0;
    double squares = 0;
    std::size_t count = 0;
    std::vector<std::uint16_t> before;
    for (std::uint64_t n = 0; n < 500; ++n) {
        const sample_run& run = d.sample(0, {}).runs()[0];
        for (std::size_t i = 40; i < run.count; ++i) { // behind the pulse
            const double off = run.room[i] - zero_level;
            sum += off;
            squares += off * off;
            ++count;
        }
        const std::vector<std::uint16_t> now(run.samples().begin(), run.samples().end());
        EXPECT_NE(now, before);
        before = now;
    }
    EXPECT_NEAR(sum / static_cast<double>(count), 0, 0.2);
    EXPECT_NEAR(std::sqrt(squares / static_cast<double>(count)), 2, 0.2);
}

TEST(Digitiser, FollowsFromItsSeed) {
    scan_settings settings = sampled_settings(waveform_form::channel);
    digitiser a(settings);
    digitiser b(settings);
    settings.seed = 2;
    digitiser c(settings);
    const received_echo e = echo_at(30, 30);
    const auto high = [&](digitiser& d) {
        const auto samples = d.sample(9, std::span(&e, 1)).runs()[1].samples();
        return std::vector<std::uint16_t>(samples.begin(), samples.end());
    };
    const auto first = high(a);
    EXPECT_EQ(first, high(b));
    EXPECT_NE(first, high(c));
}

TEST(Digitiser, WhatLiesTooFarBehindTheFirstEchoIsNotSampled) {
    digitiser d(sampled_settings(waveform_form::channel));
    const received_echo echoes[] = {echo_at(20, 30), echo_at(150, 30)};
    const sampled_shot& s = d.sample(0, echoes);
    EXPECT_EQ(s.pulses.size(), 1U);
    EXPECT_LE(s.runs()[1].count, 200U);
}

} // namespace
} // namespace simulator
