// Packets that no instrument would send: a described result, and no fault.
#include "recording_wave.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <stdexcept>

using namespace scanlib;
using namespace scanlib::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr std::uint64_t count = 1000 * 2048;

/// The records of a block whose shot ends.
std::vector<wave_record> records_of(fed_wave& w, std::uint64_t ticks = count) {
    w.whole_shot_hr(ticks);
    return w.blocks.empty() ? std::vector<wave_record>{} : w.blocks.back().records;
}

} // namespace

TEST(wave_hostile, width_0_gives_records_without_samples) {
    fed_wave w;
    w.describe();
    w.header_hr(count);
    w.raw(77, {1U << 16 | 0U << 23, 1, 2, 3});
    w.raw(89, {1U << 16 | 0U << 25, 1, 2, 3});
    const auto records = records_of(w);
    ASSERT_THAT(records, SizeIs(3));
    EXPECT_THAT(records[1].samples, IsEmpty());
    EXPECT_THAT(records[2].samples, IsEmpty());
}

TEST(wave_hostile, width_beyond_16_gives_the_low_16_bits) {
    fed_wave w;
    w.describe();
    w.header_hr(count);
    w.raw(77, {1U << 16 | 32U << 23, 0x00010002, 0xFFFF8003});
    w.raw(77, {1U << 16 | 511U << 23, 1, 2, 3});
    w.raw(89, {1U << 16 | 24U << 25, 0xBB00000A, 0x000C0000, 0xFF0000DD});
    w.raw(89, {1U << 16 | 127U << 25, 0x12345678, 0, 0, 0});
    const auto records = records_of(w);
    ASSERT_THAT(records, SizeIs(5));
    EXPECT_THAT(records[1].samples, ElementsAre(2, 0x8003));
    EXPECT_THAT(records[2].samples, IsEmpty());
    EXPECT_THAT(records[3].samples, ElementsAre(0x000A, 0x00BB, 0x000C, 0x0000));
    EXPECT_THAT(records[4].samples, ElementsAre(0x5678));
}

TEST(wave_hostile, payload_gives_what_it_holds_whatever_the_head_promises) {
    fed_wave w(false, true);
    w.describe();
    w.header_hr(count);
    w.raw(89, {1U << 16 | 5U << 20 | 12U << 25}); // no words at all
    w.raw(89, {1U << 16 | 5U << 20 | 12U << 25, 0xFFFFFFFF});
    w.raw(90, {1U << 16, 15U | 0xFFFFFFF0U}); // a group of 120 bits in 28
    w.raw(90, {1U << 16});
    const auto records = records_of(w);
    ASSERT_THAT(records, SizeIs(5));
    EXPECT_THAT(records[1].samples, IsEmpty());
    EXPECT_THAT(records[2].samples, IsEmpty()); // 5 bits hold no sample
    EXPECT_THAT(records[3].samples, IsEmpty());
    EXPECT_THAT(records[4].samples, IsEmpty());
}

TEST(wave_hostile, payload_without_its_fixed_part_is_refused) {
    for (const std::uint32_t id : {19U, 55U, 77U, 78U, 88U, 89U, 90U, 110U, 107U, 82U}) {
        fed_wave w;
        w.describe();
        w.header_hr(count);
        EXPECT_THROW(w.raw(id, {}), std::range_error) << id;
        EXPECT_THAT(records_of(w), SizeIs(1)) << id;
    }
}

TEST(wave_hostile, short_fixed_packets_read_zeros) {
    fed_wave w;
    w.describe();
    w.raw(18, {});
    w.raw(80, {});
    w.raw(124, {1});
    w.raw(132, {1});
    EXPECT_EQ(w.channels[1].scale, 0);
    EXPECT_THAT(w.channels[1].expsum_ab, IsEmpty());
    w.whole_shot_hr(0);
    w.whole_shot_hr(0);
    ASSERT_THAT(w.blocks, SizeIs(2));
    EXPECT_EQ(w.blocks[0].peaks.at(0), wave_peak(0, 0));
}

TEST(wave_hostile, samples_of_a_channel_beyond_the_list_have_no_time) {
    fed_wave w;
    w.units();
    w.channel(0, "reference");
    w.header_hr(count);
    w.raw(19, {5U | 2U << 16, 0x00020001});
    w.raw(77, {5U | 3U << 16 | 8U << 23, 7});
    w.data(15, 5, {8});
    w.raw(90, {5U | 14U << 16, 0});
    const auto records = records_of(w);
    ASSERT_THAT(records, SizeIs(5));
    for (std::size_t i = 1; i < records.size(); ++i) {
        EXPECT_TRUE(std::isnan(records[i].time_sorg)) << i;
    }
    EXPECT_EQ(records[3].channel, 15U);
    EXPECT_THAT(records[3].samples, ElementsAre(8));
}

TEST(wave_hostile, stream_that_tells_nothing_of_channels_keeps_its_samples) {
    fed_wave w;
    w.header_hr(1U << 20);
    w.data(0, 3, {1, 2});
    w.data(3, 3, {3, 4}); // the reference where nothing is told
    const auto records = records_of(w, 1U << 20);
    ASSERT_THAT(records, SizeIs(2));
    EXPECT_TRUE(std::isnan(records[0].time_sorg));
    EXPECT_THAT(records[0].samples, ElementsAre(3, 4));
    EXPECT_TRUE(std::isnan(records[1].time_sorg));
    EXPECT_THAT(records[1].samples, ElementsAre(1, 2));
}

TEST(wave_hostile, sampling_time_of_no_tick_divides_nothing) {
    fed_wave w;
    w.units();
    w.channel(0, "high_power", 0, 0x1p60); // 2^-60 s is less than half a tick
    w.channel(1, "low_power", 0, 0);       // infinite
    w.channel(2, "super_high_power", 0, std::nan(""));
    w.channel(3, "reference", 0, -1);
    w.header_hr(count);
    for (std::uint8_t c = 0; c < 4; ++c) {
        w.raw(77, {1U | std::uint32_t{c} << 16 | 8U << 23, 7});
        w.data(c, 1, {9});
    }
    EXPECT_EQ(w.channels[0].ticks_per_sample, 0U);
    EXPECT_EQ(w.channels[1].ticks_per_sample, ~std::uint64_t{0});
    EXPECT_EQ(w.channels[2].ticks_per_sample, 0U);
    EXPECT_EQ(w.channels[3].ticks_per_sample, 0U);
    const auto records = records_of(w);
    EXPECT_THAT(records, SizeIs(8));
    EXPECT_EQ(records[1].time_sorg, 0x1p-60);
}

TEST(wave_hostile, channels_told_after_the_start_divide_nothing) {
    fed_wave w;
    w.units();
    w.meas_start();
    w.channel(0, "high_power");
    w.header_hr(count + 7);
    w.data(0, 1, {9});
    const auto records = records_of(w, count + 7);
    ASSERT_THAT(records, SizeIs(2));
    EXPECT_EQ(records[1].time_sorg, fed_wave::sample);
}

TEST(wave_hostile, units_that_are_no_units_do_not_fault) {
    for (const float unit : {0.0F, -1.0F, std::nanf(""), INFINITY, 1e-38F, 1e38F}) {
        fed_wave w;
        w.describe();
        w.units(unit);
        w.header_hr(count);
        w.data(0, 1, {9});
        w.raw(77, {1U | 8U << 23, 7});
        w.whole_shot_hr(count);
        w.whole_shot_hr(count + 1);
        // A time that is no number belongs to no shot.
        EXPECT_EQ(w.shots.size(), 2U);
        EXPECT_EQ(w.blocks.size(), std::isfinite(unit) ? 2U : 0U) << unit;
    }
}

TEST(wave_hostile, more_pulses_than_slots_do_not_add_up) {
    fed_wave w;
    w.describe();
    std::vector<std::uint32_t> payload(4 + 1000, 0xFFFFFFFF);
    payload[0] = static_cast<std::uint32_t>(count);
    payload[1] = 0;
    w.raw(88, payload);
    w.raw(110, payload);
    w.whole_shot_hr(count);
    w.whole_shot_hr(count);
    ASSERT_THAT(w.blocks, SizeIs(2));
    EXPECT_THAT(w.blocks[0].peaks, SizeIs(16));
    EXPECT_THAT(w.blocks[1].peaks, SizeIs(16));
}

TEST(wave_hostile, blocks_without_shots_are_bounded_in_number) {
    fed_wave w;
    w.describe();
    constexpr std::uint64_t extra = 1000;
    for (std::uint64_t i = 1; i <= wave::open_block_limit + extra; ++i) {
        w.header_hr(i * 1000);
        w.data(0, 0, {static_cast<std::uint16_t>(i)});
    }
    EXPECT_EQ(w.log.count(loss::block_beyond_limit), extra);
    // The oldest have gone, the others are there.
    w.whole_shot_hr(extra * 1000);
    w.whole_shot_hr((extra + 1) * 1000);
    ASSERT_THAT(w.blocks, SizeIs(2));
    EXPECT_THAT(w.blocks[0].records, SizeIs(1));
    EXPECT_THAT(w.blocks[1].records, SizeIs(2));
}

TEST(wave_hostile, blocks_without_shots_are_bounded_in_samples) {
    fed_wave w;
    w.describe();
    constexpr std::size_t length = 4096;
    constexpr std::uint64_t blocks = 3 * wave::open_sample_limit / length;
    const samples_list samples(length, 5);
    for (std::uint64_t i = 1; i <= blocks; ++i) {
        w.header_hr(i * 1000);
        w.data(0, 0, samples);
    }
    EXPECT_GE(w.log.count(loss::block_beyond_limit), blocks * 2 / 3);
    EXPECT_LE(w.log.count(loss::block_beyond_limit), blocks * 3 / 4);
    w.whole_shot_hr(blocks * 1000); // the newest is there
    EXPECT_THAT(w.blocks.back().records, SizeIs(2));
}

TEST(wave_hostile, block_that_gets_endless_data_is_bounded) {
    fed_wave w;
    w.describe();
    w.header_hr(1000);
    const samples_list samples(1000, 5);
    for (int i = 0; i < 20000; ++i) {
        w.data(0, 0, samples);
    }
    EXPECT_GT(w.log.count(loss::block_beyond_limit), 10000U);
    w.whole_shot_hr(1000);
    std::size_t sum = 0;
    for (const wave_record& r : w.blocks.back().records) {
        sum += r.samples.size();
    }
    EXPECT_LE(sum, wave::open_sample_limit);
    EXPECT_GE(sum, wave::open_sample_limit / 2);
    // What follows has room again.
    w.header_hr(2000);
    w.data(0, 0, samples);
    w.whole_shot_hr(2000);
    EXPECT_THAT(w.blocks.back().records, SizeIs(2));
}

TEST(wave_hostile, empty_records_without_end_are_bounded) {
    fed_wave w;
    w.describe();
    w.header_hr(1000);
    for (std::size_t i = 0; i < wave::open_sample_limit / 32; ++i) {
        w.data(0, 0, {});
    }
    w.whole_shot_hr(1000);
    EXPECT_LE(w.blocks.back().records.size(), wave::open_sample_limit / 64 + 1);
    EXPECT_GT(w.log.count(loss::block_beyond_limit), 0U);
}

TEST(wave_hostile, reference_record_written_again_and_again_takes_its_room_once) {
    fed_wave w;
    w.describe();
    w.header_hr(1000);
    const samples_list samples(4096, 5);
    for (std::size_t i = 0; i < 3 * wave::open_sample_limit / 4096; ++i) {
        w.data(3, 0, samples);
    }
    EXPECT_EQ(w.log.count(loss::block_beyond_limit), 0U);
    EXPECT_THAT(records_of(w, 1000), SizeIs(1));
}

TEST(wave_hostile, shots_without_blocks_get_empty_ones) {
    fed_wave w;
    w.describe();
    for (std::uint64_t i = 1; i <= 1000; ++i) {
        w.whole_shot_hr(i * 1000);
    }
    ASSERT_THAT(w.blocks, SizeIs(1000));
    for (const wave_block& b : w.blocks) {
        ASSERT_THAT(b.records, SizeIs(1));
        EXPECT_THAT(b.records[0].samples, IsEmpty());
    }
}

TEST(wave_hostile, random_payloads_do_not_fault) {
    constexpr std::uint32_t ids[] = {62, 87, 124, 132, 107, 82, 18, 80, 88, 110,
                                     19, 55, 77,  78,  89,  90, 10, 67, 12, 32};
    for (std::uint32_t seed = 0; seed < 40; ++seed) {
        std::mt19937 random(seed);
        fed_wave w(seed % 2 == 0, seed % 4 < 2);
        w.describe();
        for (int i = 0; i < 500; ++i) {
            std::vector<std::uint32_t> payload(random() % 70);
            for (std::uint32_t& word : payload) {
                word = static_cast<std::uint32_t>(random());
            }
            try {
                w.raw(ids[random() % std::size(ids)], payload);
            } catch (const std::exception&) {
                continue; // refused
            }
        }
        EXPECT_LE(w.channels.size(), 16U);
        for (const wave_block& b : w.blocks) {
            EXPECT_THAT(b.records, ::testing::Not(IsEmpty()));
        }
    }
}
