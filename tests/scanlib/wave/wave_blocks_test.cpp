// Sample blocks of all three generations: headers, samples, starts.
#include "recording_wave.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

using namespace scanlib;
using namespace scanlib::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr double sample = fed_wave::sample;
constexpr double hr_tick = fed_wave::hr_tick;
constexpr double t_null = 0x1p-20; ///< of fed_wave::describe

/// A count 5 ticks into a sample of 2048.
constexpr std::uint64_t count = 1000 * 2048 + 5;

void expect_unused(const wave_peak& peak) {
    EXPECT_TRUE(std::isnan(peak.first));
    EXPECT_TRUE(std::isnan(peak.second));
}

/// The only block, after its shot has ended.
wave_block block_of_hr_shot(fed_wave& w, std::uint64_t ticks = count) {
    w.whole_shot_hr(ticks);
    EXPECT_THAT(w.blocks, SizeIs(1));
    return w.blocks.empty() ? wave_block{} : w.blocks.back();
}

/// A group of compressed samples: width 3, steps 1 2 3 4 5 6 7 0, width 0; 32 bits.
constexpr std::uint32_t group =
    3U | 1U << 4 | 2U << 7 | 3U << 10 | 4U << 13 | 5U << 16 | 6U << 19 | 7U << 22;

} // namespace

// Headers.

TEST(wave_headers, first_generation_tells_two_pulses_a_reference_time_and_a_sample) {
    fed_wave w;
    w.describe();
    // 2000 ticks; fields 2 to 8 are 160, 80, 12, 20, 777, 1024, 300.
    w.raw(18, {2000, 160U | 80U << 16, 12U | 20U << 8 | 777U << 16, 1024U | 300U << 18});
    EXPECT_TRUE(w.have_wave_data);
    w.whole_shot(2000);
    ASSERT_THAT(w.blocks, SizeIs(1));
    const wave_block& b = w.blocks[0];
    EXPECT_EQ(b.time_internal, 2000 * 0x1p-20);
    EXPECT_EQ(b.time, 2000 * 0x1p-20);
    ASSERT_THAT(b.peaks, SizeIs(4));
    EXPECT_EQ(b.peaks[0], wave_peak(5, 5));  // 80 / 16, 20 / 4
    EXPECT_EQ(b.peaks[1], wave_peak(10, 3)); // 160 / 16, 12 / 4
    expect_unused(b.peaks[2]);
    expect_unused(b.peaks[3]);
    ASSERT_THAT(b.records, SizeIs(2));
    EXPECT_EQ(b.records[0].channel, 3U);
    EXPECT_EQ(b.records[0].time_sorg, 299.75 * sample + t_null);
    EXPECT_THAT(b.records[0].samples, IsEmpty());
    EXPECT_EQ(b.records[1].channel, 2U);
    EXPECT_EQ(b.records[1].time_sorg, 0);
    EXPECT_THAT(b.records[1].samples, ElementsAre(777));
    EXPECT_EQ(b.records[1].is_compressed, 0);
}

TEST(wave_headers, second_generation_has_its_fields_elsewhere_and_no_fine_time) {
    fed_wave w;
    w.describe();
    w.raw(80, {static_cast<std::uint32_t>(count), 0, 160U | 80U << 16, 12U | 20U << 8 | 777U << 16,
               0xFFFF});
    const wave_block b = block_of_hr_shot(w);
    EXPECT_EQ(b.time_internal, static_cast<double>(count) * hr_tick);
    ASSERT_THAT(b.peaks, SizeIs(4));
    EXPECT_EQ(b.peaks[0], wave_peak(5, 5));
    EXPECT_EQ(b.peaks[1], wave_peak(10, 3));
    expect_unused(b.peaks[2]);
    expect_unused(b.peaks[3]);
    ASSERT_THAT(b.records, SizeIs(2));
    EXPECT_EQ(b.records[0].channel, 3U);
    EXPECT_EQ(b.records[0].time_sorg, t_null);
    EXPECT_EQ(b.records[1].channel, 2U);
    EXPECT_EQ(b.records[1].time_sorg, 0);
    EXPECT_THAT(b.records[1].samples, ElementsAre(777));
}

TEST(wave_headers, by_channel_lists_its_pulses) {
    fed_wave w;
    w.describe();
    w.raw(88, {static_cast<std::uint32_t>(count), 0, 0xFFFFFFFF, 0xFFFFFFFF, 0x54321U | 40U << 20,
               16U | 0xFFFU << 20});
    const wave_block b = block_of_hr_shot(w);
    EXPECT_THAT(b.peaks, ElementsAre(wave_peak(0x54321 / 16.0F, 2.5F), wave_peak(1, 255.9375F)));
    ASSERT_THAT(b.records, SizeIs(1));
    EXPECT_EQ(b.records[0].channel, 3U);
    EXPECT_EQ(b.records[0].time_sorg, t_null);
    EXPECT_THAT(b.records[0].samples, IsEmpty());
}

TEST(wave_headers, by_channel_without_pulses_has_none) {
    fed_wave w;
    w.describe();
    w.raw(88, {static_cast<std::uint32_t>(count), 0, 0, 0});
    EXPECT_THAT(block_of_hr_shot(w).peaks, IsEmpty());
}

TEST(wave_headers, newest_form_puts_pulses_into_sixteen_slots) {
    fed_wave w;
    w.describe();
    w.raw(110, {static_cast<std::uint32_t>(count), 0, 0, 0, 2U | 48U << 4 | 8U << 22,
                15U | 0x3FFFFU << 4 | 0x3FFU << 22, 2U | 64U << 4 | 12U << 22});
    const wave_block b = block_of_hr_shot(w);
    ASSERT_THAT(b.peaks, SizeIs(16));
    EXPECT_EQ(b.peaks[2], wave_peak(4, 3)); // the later entry of a slot stands
    EXPECT_EQ(b.peaks[15], wave_peak(0x3FFFF / 16.0F, 1023 / 4.0F));
    for (std::size_t slot = 0; slot < 16; ++slot) {
        if (slot != 2 && slot != 15) {
            expect_unused(b.peaks[slot]);
        }
    }
    ASSERT_THAT(b.records, SizeIs(1));
    EXPECT_EQ(b.records[0].channel, 3U);
    EXPECT_EQ(b.records[0].time_sorg, t_null);
}

TEST(wave_headers, first_one_starts_the_measurement) {
    fed_wave w;
    w.units();
    w.channel(0, "high_power", 0x1p-22F);
    w.header_hr(count);
    ASSERT_THAT(w.channels, SizeIs(4));
    EXPECT_EQ(w.channels[3].name, "reference");
    EXPECT_EQ(block_of_hr_shot(w).records[0].time_sorg, 0x1p-22);
}

// Samples of the first generation.

TEST(wave_data, first_generation_holds_two_samples_a_word) {
    fed_wave w;
    w.describe();
    w.raw(18, {2000, 0, 0, 0});
    w.raw(19, {40U | 1U << 16, 0x00020001, 0xFFFF0003});
    w.whole_shot(2000);
    ASSERT_THAT(w.blocks, SizeIs(1));
    ASSERT_THAT(w.blocks[0].records, SizeIs(3));
    const wave_record& r = w.blocks[0].records[2];
    EXPECT_EQ(r.channel, 1U);
    EXPECT_EQ(r.time_sorg, 40 * sample);
    EXPECT_EQ(r.is_compressed, 0);
    EXPECT_THAT(r.samples, ElementsAre(1, 2, 3, 0xFFFF));
}

TEST(wave_data, odd_flag_leaves_the_last_sample_out) {
    fed_wave w;
    w.describe();
    w.raw(18, {2000, 0, 0, 0});
    w.raw(19, {40U | 1U << 16 | 1U << 27, 0x00020001, 0xFFFF0003});
    w.whole_shot(2000);
    EXPECT_THAT(w.blocks[0].records[2].samples, ElementsAre(1, 2, 3));
}

TEST(wave_data, start_of_the_first_generation_has_no_sign) {
    fed_wave w;
    w.describe();
    w.raw(18, {2000, 0, 0, 0});
    w.raw(19, {0xFFFFU, 0x00020001});
    w.whole_shot(2000);
    EXPECT_EQ(w.blocks[0].records[2].channel, 0U);
    EXPECT_EQ(w.blocks[0].records[2].time_sorg, 65535 * sample);
}

TEST(wave_data, each_channel_has_its_own_sampling_time) {
    fed_wave w;
    w.describe();
    w.channel(2, "super_high_power", 0, 0x1p27);
    w.raw(18, {2000, 0, 0, 0});
    w.raw(19, {3U | 2U << 16, 0});
    w.whole_shot(2000);
    EXPECT_EQ(w.blocks[0].records[2].time_sorg, 3 * 0x1p-27);
}

TEST(wave_data, packet_without_samples_gives_an_empty_record) {
    fed_wave w;
    w.describe();
    w.raw(18, {2000, 0, 0, 0});
    w.raw(19, {40U | 1U << 16});
    w.raw(19, {40U | 1U << 16 | 1U << 27});
    w.whole_shot(2000);
    ASSERT_THAT(w.blocks[0].records, SizeIs(4));
    EXPECT_THAT(w.blocks[0].records[2].samples, IsEmpty());
    EXPECT_THAT(w.blocks[0].records[3].samples, IsEmpty());
}

TEST(wave_data, compressed_of_the_first_generation_in_both_settings) {
    for (const bool uncompress : {false, true}) {
        fed_wave w(false, uncompress);
        w.describe();
        w.raw(18, {2000, 0, 0, 0});
        w.raw(55, {40U | 1U << 16, group});
        w.whole_shot(2000);
        ASSERT_THAT(w.blocks[0].records, SizeIs(3));
        const wave_record& r = w.blocks[0].records[2];
        EXPECT_EQ(r.channel, 1U);
        EXPECT_EQ(r.time_sorg, 40 * sample);
        if (uncompress) {
            EXPECT_EQ(r.is_compressed, 0);
            EXPECT_THAT(r.samples, ElementsAre(1, 3, 6, 10, 15, 21, 28, 28));
        } else {
            EXPECT_EQ(r.is_compressed, 1);
            EXPECT_THAT(r.samples, ElementsAre(group & 0xFFFF, group >> 16));
        }
    }
}

TEST(wave_data, odd_flag_of_compressed_data_leaves_the_last_word_out) {
    fed_wave raw_words(false, false);
    fed_wave decoded(false, true);
    for (fed_wave* w : {&raw_words, &decoded}) {
        w->describe();
        w->raw(18, {2000, 0, 0, 0});
        // A group of 12 bits; the second one lies beyond the only word left.
        w->raw(55, {1U << 16 | 1U << 27, 1U | 0xFFU << 4 | 1U << 12 | 0xFFU << 16});
        w->whole_shot(2000);
    }
    EXPECT_THAT(raw_words.blocks[0].records[2].samples, ElementsAre(0x1FF1));
    EXPECT_THAT(decoded.blocks[0].records[2].samples, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
}

TEST(wave_data, first_width_of_0_gives_no_samples_that_are_not_compressed) {
    fed_wave w(false, true);
    w.describe();
    w.raw(18, {2000, 0, 0, 0});
    w.raw(55, {1U << 16, 0xFFFFFFF0});
    w.whole_shot(2000);
    EXPECT_THAT(w.blocks[0].records[2].samples, IsEmpty());
    EXPECT_EQ(w.blocks[0].records[2].is_compressed, 0);
}

// Samples of the second generation.

TEST(wave_data, second_generation_is_packed_and_begins_inside_a_sample) {
    fed_wave w;
    w.describe();
    w.raw(80, {static_cast<std::uint32_t>(count), 0, 0, 0, 0});
    // Five samples of 12 bits: 60 bits, 28 of them in the last word.
    w.raw(77, {0xFFF0U | 1U << 16 | 28U << 18 | 12U << 23, 0x89456123, 0x0DEFABC7});
    const wave_block b = block_of_hr_shot(w);
    ASSERT_THAT(b.records, SizeIs(3));
    EXPECT_EQ(b.records[2].channel, 1U);
    EXPECT_EQ(b.records[2].time_sorg, -16 * sample - 5 * hr_tick);
    EXPECT_THAT(b.records[2].samples, ElementsAre(0x123, 0x456, 0x789, 0xABC, 0xDEF));
    EXPECT_EQ(b.records[2].is_compressed, 0);
}

TEST(wave_data, last_word_of_0_bits_counts_whole) {
    fed_wave w;
    w.describe();
    w.raw(80, {static_cast<std::uint32_t>(count), 0, 0, 0, 0});
    w.raw(77, {1U << 16 | 0U << 18 | 8U << 23, 0x04030201, 0x08070605});
    w.raw(77, {1U << 16 | 8U << 18 | 8U << 23, 0x04030201, 0x08070605});
    const wave_block b = block_of_hr_shot(w);
    EXPECT_THAT(b.records[2].samples, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
    EXPECT_THAT(b.records[3].samples, ElementsAre(1, 2, 3, 4, 5));
}

TEST(wave_data, compressed_of_the_second_generation_in_both_settings) {
    for (const bool uncompress : {false, true}) {
        fed_wave w(false, uncompress);
        w.describe();
        w.raw(80, {static_cast<std::uint32_t>(count), 0, 0, 0, 0});
        w.raw(78, {2U | 1U << 16, group});
        w.raw(78, {2U | 1U << 16 | 1U << 27, 1U | 0xFFU << 4});
        const wave_block b = block_of_hr_shot(w);
        ASSERT_THAT(b.records, SizeIs(4));
        EXPECT_EQ(b.records[2].time_sorg, 2 * sample - 5 * hr_tick);
        EXPECT_EQ(b.records[2].is_compressed, uncompress ? 0 : 1);
        if (uncompress) {
            EXPECT_THAT(b.records[2].samples, ElementsAre(1, 3, 6, 10, 15, 21, 28, 28));
            EXPECT_THAT(b.records[3].samples, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
        } else {
            EXPECT_THAT(b.records[2].samples, ElementsAre(group & 0xFFFF, group >> 16));
            EXPECT_THAT(b.records[3].samples, ElementsAre(0xFF1));
        }
    }
}

// Samples by channel.

TEST(wave_data, by_channel_is_packed_and_begins_inside_a_sample) {
    fed_wave w;
    w.describe();
    w.header_hr(count);
    w.raw(89, {0xFFF0U | 1U << 16 | 28U << 20 | 12U << 25, 0x89456123, 0x0DEFABC7});
    const wave_block b = block_of_hr_shot(w);
    ASSERT_THAT(b.records, SizeIs(2));
    EXPECT_EQ(b.records[1].channel, 1U);
    EXPECT_EQ(b.records[1].time_sorg, -16 * sample - 5 * hr_tick);
    EXPECT_THAT(b.records[1].samples, ElementsAre(0x123, 0x456, 0x789, 0xABC, 0xDEF));
}

TEST(wave_data, of_the_reference_channel_fills_the_first_record) {
    for (const bool uncompress : {false, true}) {
        fed_wave w(false, uncompress);
        w.describe();
        w.header_hr(count);
        w.data(0, 7, {1, 2, 3});
        w.data(3, -4, {4, 5, 6});
        const wave_block b = block_of_hr_shot(w);
        ASSERT_THAT(b.records, SizeIs(2));
        EXPECT_EQ(b.records[0].channel, 3U);
        EXPECT_EQ(b.records[0].time_sorg, -4 * sample - 5 * hr_tick);
        EXPECT_THAT(b.records[0].samples, ElementsAre(4, 5, 6));
        EXPECT_EQ(b.records[1].channel, 0U);
    }
}

TEST(wave_data, of_the_reference_channel_again_replaces_it) {
    fed_wave w(false, true);
    w.describe();
    w.header_hr(count);
    w.data(3, 0, {4, 5, 6});
    w.raw(90, {1U | 3U << 16, group});
    const wave_block b = block_of_hr_shot(w);
    ASSERT_THAT(b.records, SizeIs(1));
    EXPECT_EQ(b.records[0].time_sorg, sample - 5 * hr_tick);
    EXPECT_THAT(b.records[0].samples, ElementsAre(1, 3, 6, 10, 15, 21, 28, 28));
}

TEST(wave_data, compressed_by_channel_in_both_settings) {
    for (const bool uncompress : {false, true}) {
        fed_wave w(false, uncompress);
        w.describe();
        w.header_hr(count);
        w.raw(90, {2U | 1U << 16, group});
        w.raw(90, {2U | 3U << 16 | 1U << 27, group});
        const wave_block b = block_of_hr_shot(w);
        ASSERT_THAT(b.records, SizeIs(2));
        EXPECT_EQ(b.records[1].time_sorg, 2 * sample - 5 * hr_tick);
        if (uncompress) {
            EXPECT_EQ(b.records[1].is_compressed, 0);
            EXPECT_THAT(b.records[1].samples, ElementsAre(1, 3, 6, 10, 15, 21, 28, 28));
            // Of the group only 16 bits are there.
            EXPECT_THAT(b.records[0].samples, IsEmpty());
        } else {
            EXPECT_EQ(b.records[1].is_compressed, 1);
            EXPECT_THAT(b.records[1].samples, ElementsAre(group & 0xFFFF, group >> 16));
            EXPECT_EQ(b.records[0].is_compressed, 1);
            EXPECT_THAT(b.records[0].samples, ElementsAre(group & 0xFFFF));
        }
    }
}

TEST(wave_data, of_a_masked_channel_is_ignored_and_counted) {
    fed_wave w;
    w.describe();
    w.channel_mask.reset(1);
    w.header_hr(count);
    w.data(1, 0, {1});
    w.raw(90, {1U << 16, group});
    w.data(0, 0, {2});
    const wave_block b = block_of_hr_shot(w);
    ASSERT_THAT(b.records, SizeIs(2));
    EXPECT_EQ(b.records[1].channel, 0U);
    EXPECT_EQ(w.log.count(loss::masked_record), 2U);
}

TEST(wave_data, mask_does_not_reach_the_older_generations) {
    fed_wave w;
    w.describe();
    w.channel_mask.reset();
    w.raw(18, {2000, 0, 0, 0});
    w.raw(19, {1U << 16, 0});
    w.raw(55, {1U << 16, 0});
    w.whole_shot(2000);
    EXPECT_THAT(w.blocks[0].records, SizeIs(4));
}

TEST(wave_data, without_a_block_is_ignored_and_counted) {
    fed_wave w;
    w.describe();
    for (const std::uint32_t id : {19U, 55U, 77U, 78U, 89U, 90U}) {
        w.raw(id, {1U << 16, group});
    }
    EXPECT_EQ(w.log.count(loss::samples_without_block), 6U);
    w.whole_shot_hr(count);
    ASSERT_THAT(w.blocks, SizeIs(1));
    EXPECT_THAT(w.blocks[0].records, SizeIs(1));
}

TEST(wave_data, goes_to_the_newest_block) {
    fed_wave w;
    w.describe();
    w.header_hr(count);
    w.header_hr(count + 2048);
    w.data(0, 0, {9});
    w.whole_shot_hr(count);
    w.whole_shot_hr(count + 2048);
    ASSERT_THAT(w.blocks, SizeIs(2));
    EXPECT_THAT(w.blocks[0].records, SizeIs(1));
    EXPECT_THAT(w.blocks[1].records, SizeIs(2));
}

TEST(wave_data, start_is_counted_in_whole_ticks_before_and_in_nearest_ticks_by_channel) {
    // With a unit that is no power of two, great counts may come back a little too small.
    constexpr auto unit32 = 1.9073486e-13F;
    constexpr std::uint64_t ticks_per_sample = 2047;
    const double unit = unit32;
    fed_wave w;
    w.units(unit32);
    w.channel(1, "low_power", 0, 1 / (ticks_per_sample * unit));
    w.channel(3, "reference");
    std::uint64_t ticks = ticks_per_sample << 34;
    while (static_cast<double>(ticks) * unit / unit >= static_cast<double>(ticks)) {
        ticks += ticks_per_sample;
        ASSERT_LT(ticks, 1ULL << 46);
    }
    w.header_hr(ticks);
    w.raw(77, {1U << 16 | 8U << 23, 0});
    w.data(1, 0, {0});
    const wave_block b = block_of_hr_shot(w, ticks);
    ASSERT_EQ(w.channels[1].ticks_per_sample, ticks_per_sample);
    // The count divides evenly; one less is the last tick of the sample before.
    ASSERT_THAT(b.records, SizeIs(3));
    EXPECT_EQ(b.records[1].time_sorg, -2046 * unit);
    EXPECT_EQ(b.records[2].time_sorg, 0);
}
