// Which block goes with which shot.
#include "recording_wave.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <utility>

using namespace scanlib;
using namespace scanlib::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr std::uint32_t second = 1U << 20; ///< in ticks of the system counter
constexpr std::uint64_t hr_second = 1ULL << 40;

void pps(fed_wave& w, std::uint32_t ticks, std::uint32_t milliseconds) {
    w.feed<packets::pps_sync_writer>([&](auto& p) {
        p.system_counter(ticks);
        p.pps_time(milliseconds);
    });
}

/// Seconds 1 and 2 of the counter are 101 and 102 s of the PPS.
void synchronise(fed_wave& w) {
    pps(w, second, 101000);
    pps(w, 2 * second, 102000);
}

/// A block whose only sample of channel 0 is `mark`.
void block(fed_wave& w, std::uint64_t ticks, std::uint16_t mark) {
    w.header_hr(ticks);
    w.data(0, 0, {mark});
}

/// What each shot got: the mark of its block, 0 for the empty block.
std::vector<int> marks(const fed_wave& w) {
    std::vector<int> found;
    for (const wave_block& b : w.blocks) {
        found.push_back(b.records.size() == 2 ? b.records[1].samples.at(0) : 0);
    }
    return found;
}

void expect_empty_block(const wave_block& b) {
    ASSERT_THAT(b.records, SizeIs(1));
    EXPECT_EQ(b.records[0].channel, 3U);
    EXPECT_EQ(b.records[0].time_sorg, 0x1p-20);
    EXPECT_EQ(b.records[0].is_compressed, 0);
    EXPECT_THAT(b.records[0].samples, IsEmpty());
    EXPECT_THAT(b.peaks, IsEmpty());
}

} // namespace

TEST(wave_pairing, block_of_the_shot_takes_over_time_beam_and_angles) {
    fed_wave w;
    w.describe();
    w.feed<packets::device_geometry_writer>(
        [](auto& p) {
            p.laser_direction(2, 1.0F);
            p.mirror_axis_direction(0, 1.0F);
            p.element(0).normal(2, 1.0F);
            p.element(1).normal(2, 1.0F);
        },
        2);
    block(w, 4096, 9);
    w.shot_hr(4096, 2250); // of 3600 counts, so facet 1 of 2
    ASSERT_THAT(w.blocks, IsEmpty());
    w.line_stop();
    w.shot_hr(8192);
    ASSERT_THAT(w.blocks, SizeIs(1));
    const wave_block& b = w.blocks[0];
    EXPECT_EQ(b.time, 4096 * 0x1p-40);
    EXPECT_EQ(b.time_internal, 4096 * 0x1p-40);
    const auto& shot = w.shots.at(0);
    EXPECT_EQ(b.beam_origin, shot.origin);
    EXPECT_EQ(b.beam_direction, shot.direction);
    EXPECT_NE(b.beam_direction, vector3{});
    EXPECT_EQ(b.facet, 1U);
    EXPECT_EQ(b.facet, shot.facet);
    EXPECT_EQ(b.line_angle, shot.line_angle);
    EXPECT_NE(b.line_angle, 0);
    EXPECT_EQ(b.frame_angle, shot.frame_angle);
}

TEST(wave_pairing, block_of_no_shot_is_dropped_and_the_shot_gets_the_empty_one) {
    fed_wave w;
    w.describe();
    block(w, 4096, 9);
    w.whole_shot_hr(4097);
    ASSERT_THAT(w.blocks, SizeIs(1));
    expect_empty_block(w.blocks[0]);
    EXPECT_EQ(w.blocks[0].time_internal, 4097 * 0x1p-40);
    EXPECT_EQ(w.blocks[0].time, 4097 * 0x1p-40);
    EXPECT_EQ(w.blocks[0].beam_direction, w.shots.at(0).direction);
    EXPECT_EQ(w.blocks[0].line_angle, w.shots.at(0).line_angle);
    EXPECT_EQ(w.log.count(loss::block_without_shot), 1U);
}

TEST(wave_pairing, block_ahead_of_the_shot_waits_for_its_own) {
    fed_wave w;
    w.describe();
    block(w, 5000, 5);
    w.whole_shot_hr(4000);
    w.whole_shot_hr(5000);
    w.whole_shot_hr(6000);
    EXPECT_THAT(marks(w), ElementsAre(0, 5, 0));
    EXPECT_EQ(w.log.count(loss::block_without_shot), 0U);
}

TEST(wave_pairing, all_older_blocks_are_dropped) {
    fed_wave w;
    w.describe();
    for (std::uint16_t i = 1; i <= 5; ++i) {
        block(w, i * 1000U, i);
    }
    w.whole_shot_hr(4000);
    w.whole_shot_hr(5000);
    EXPECT_THAT(marks(w), ElementsAre(4, 5));
    EXPECT_EQ(w.log.count(loss::block_without_shot), 3U);
}

TEST(wave_pairing, first_block_later_than_the_second_is_dropped) {
    fed_wave w;
    w.describe();
    block(w, 3000, 3);
    block(w, 2000, 2);
    w.whole_shot_hr(2000);
    EXPECT_THAT(marks(w), ElementsAre(2));
    EXPECT_EQ(w.log.count(loss::block_without_shot), 1U);
}

TEST(wave_pairing, one_later_block_is_dropped_a_shot) {
    fed_wave w;
    w.describe();
    block(w, 5000, 5);
    block(w, 4000, 4);
    block(w, 3000, 3);
    w.whole_shot_hr(3000);
    EXPECT_THAT(marks(w), ElementsAre(0));
    w.whole_shot_hr(3000);
    EXPECT_THAT(marks(w), ElementsAre(0, 3));
}

TEST(wave_pairing, two_blocks_of_one_time_go_to_two_shots_of_that_time) {
    fed_wave w;
    w.describe();
    block(w, 3000, 1);
    block(w, 3000, 2);
    w.whole_shot_hr(3000);
    w.whole_shot_hr(3000);
    w.whole_shot_hr(3000);
    EXPECT_THAT(marks(w), ElementsAre(1, 2, 0));
}

TEST(wave_pairing, time_that_runs_backwards_costs_blocks_and_no_shot) {
    fed_wave w;
    w.describe();
    for (const std::uint64_t ticks : {3000ULL, 2000ULL, 1000ULL}) {
        block(w, ticks, static_cast<std::uint16_t>(ticks));
    }
    for (const std::uint64_t ticks : {3000ULL, 2000ULL, 1000ULL}) {
        w.whole_shot_hr(ticks);
    }
    // The first goes since it is later than the second, the others since they are before the shot.
    EXPECT_THAT(marks(w), ElementsAre(0, 0, 0));
    EXPECT_EQ(w.log.count(loss::block_without_shot), 3U);
}

TEST(wave_pairing, every_shot_gets_one_block_once_there_are_channels) {
    fed_wave w;
    w.units();
    w.whole_shot_hr(500);
    EXPECT_THAT(w.blocks, IsEmpty());
    w.describe();
    for (std::uint64_t i = 1; i <= 100; ++i) {
        if (i % 3 == 0) {
            block(w, i * 1000, static_cast<std::uint16_t>(i));
        }
        w.shot_hr(i * 1000);
    }
    w.line_stop();
    w.feed<packets::meas_stop_writer>();
    ASSERT_THAT(w.blocks, SizeIs(100));
    for (std::size_t i = 1; i <= 100; ++i) {
        EXPECT_EQ(marks(w)[i - 1], i % 3 == 0 ? static_cast<int>(i) : 0);
    }
}

TEST(wave_pairing, block_of_a_shot_without_channels_is_handed_over) {
    fed_wave w;
    w.units();
    w.header_hr(1000);
    w.whole_shot_hr(1000);
    ASSERT_THAT(w.blocks, SizeIs(1));
    EXPECT_EQ(w.blocks[0].records.at(0).channel, 3U);
}

TEST(wave_pairing, before_the_first_synchronisation_there_are_no_blocks) {
    fed_wave w(true);
    w.describe();
    block(w, hr_second / 2, 1);
    EXPECT_FALSE(w.have_wave_data);
    w.whole_shot_hr(hr_second / 2);
    pps(w, second, 101000);
    block(w, hr_second + 5, 2);
    w.whole_shot_hr(hr_second + 5);
    EXPECT_THAT(w.blocks, IsEmpty());
    EXPECT_EQ(w.log.count(loss::samples_without_block), 2U);
    pps(w, 2 * second, 102000);
    block(w, 2 * hr_second + hr_second / 2, 3);
    EXPECT_TRUE(w.have_wave_data);
    w.whole_shot_hr(2 * hr_second + hr_second / 2);
    EXPECT_THAT(marks(w), ElementsAre(3));
}

TEST(wave_pairing, each_of_the_four_headers_waits_for_the_synchronisation) {
    fed_wave w(true);
    w.describe();
    w.raw(18, {100, 0, 0, 0});
    w.raw(80, {100, 0, 0, 0, 0});
    w.raw(88, {100, 0, 0, 0});
    w.raw(110, {100, 0, 0, 0});
    EXPECT_FALSE(w.have_wave_data);
    EXPECT_EQ(w.log.count(loss::shot_held_back), 4U);
}

TEST(wave_pairing, synchronised_block_has_pps_time_and_lock) {
    fed_wave w(true);
    w.describe();
    synchronise(w);
    block(w, 2 * hr_second + hr_second / 4, 3);
    w.whole_shot_hr(2 * hr_second + hr_second / 4);
    w.whole_shot_hr(2 * hr_second + hr_second / 2); // has no block
    ASSERT_THAT(w.blocks, SizeIs(2));
    EXPECT_EQ(w.blocks[0].time_internal, 2.25);
    EXPECT_NEAR(w.blocks[0].time, 102.25, 1e-9);
    EXPECT_EQ(w.blocks[0].is_pps_locked, 1);
    EXPECT_EQ(w.blocks[1].time_internal, 2.5);
    EXPECT_NEAR(w.blocks[1].time, 102.5, 1e-9);
    EXPECT_EQ(w.blocks[1].is_pps_locked, 1);
}

TEST(wave_pairing, lock_that_is_lost_is_told_and_the_time_goes_on) {
    fed_wave w(true);
    w.describe();
    synchronise(w);
    block(w, 60 * hr_second, 3);
    w.whole_shot_hr(60 * hr_second);
    w.whole_shot_hr(61 * hr_second);
    ASSERT_THAT(w.blocks, SizeIs(2));
    EXPECT_EQ(w.blocks[0].is_pps_locked, 0);
    EXPECT_NEAR(w.blocks[0].time, 160, 1e-9);
    EXPECT_EQ(w.blocks[1].is_pps_locked, 0);
}

TEST(wave_pairing, high_resolution_pairs_synchronise_blocks_too) {
    fed_wave w(true);
    w.describe();
    for (const std::uint64_t s : {1ULL, 2ULL}) {
        w.feed<packets::pps_sync_hr_writer>([&](auto& p) {
            p.system_counter_hr(s * hr_second);
            p.pps_time_hr((100 + s) * 1000000);
        });
    }
    block(w, 2 * hr_second + hr_second / 4, 3);
    w.whole_shot_hr(2 * hr_second + hr_second / 4);
    EXPECT_THAT(marks(w), ElementsAre(3));
    EXPECT_NEAR(w.blocks[0].time, 102.25, 1e-9);
}

TEST(wave_pairing, blocks_by_the_system_counter_meet_shots_by_it) {
    fed_wave w;
    w.describe();
    w.raw(18, {2000, 0, 0, 0});
    w.raw(18, {2001, 0, 0, 0});
    w.whole_shot(2000);
    w.whole_shot(2001);
    ASSERT_THAT(w.blocks, SizeIs(2));
    EXPECT_THAT(w.blocks[0].records, SizeIs(2));
    EXPECT_THAT(w.blocks[1].records, SizeIs(2));
}

TEST(wave_pairing, counters_of_blocks_and_shots_wrap_alike) {
    fed_wave w;
    w.describe();
    constexpr std::uint64_t turn = 1ULL << 49;
    for (const std::uint64_t ticks : {turn - 1000, turn - 1, std::uint64_t{1000}}) {
        block(w, ticks, static_cast<std::uint16_t>(ticks % 60000 + 1));
        w.whole_shot_hr(ticks);
    }
    ASSERT_THAT(w.blocks, SizeIs(3));
    EXPECT_EQ(w.blocks[2].time_internal, 512 + 1000 * 0x1p-40);
    EXPECT_THAT(w.blocks[2].records, SizeIs(2));
}

TEST(wave_pairing, block_is_the_consumers_to_change) {
    class taking_wave : public fed_wave {
      public:
        int shots_with_samples = 0;

      protected:
        void on_wave(wave_block& b) override {
            const auto taken = std::move(b.records);
            shots_with_samples += taken.size() == 2 && taken[1].samples.size() == 4096;
            b.peaks.assign(3, {});
        }
    };
    taking_wave w;
    w.describe();
    // Three times what may be open at once.
    for (std::uint64_t i = 1; i <= 3 * wave::open_sample_limit / 4096; ++i) {
        w.header_hr(i * 1000);
        w.data(0, 0, samples_list(4096));
        w.whole_shot_hr(i * 1000);
    }
    EXPECT_EQ(w.shots_with_samples, static_cast<int>(3 * wave::open_sample_limit / 4096));
    EXPECT_EQ(w.log.count(loss::block_beyond_limit), 0U);
}

TEST(wave_pairing, consumer_that_fails_loses_its_block_alone) {
    class failing_wave : public fed_wave {
      protected:
        void on_wave(wave_block& b) override {
            if (std::exchange(fails_, false)) {
                throw std::runtime_error("full");
            }
            fed_wave::on_wave(b);
        }

      private:
        bool fails_ = true;
    };
    failing_wave w;
    w.describe();
    block(w, 1000, 1);
    w.shot_hr(1000);
    block(w, 2000, 2);
    EXPECT_THROW(w.shot_hr(2000), std::runtime_error);
    w.whole_shot_hr(2000);
    EXPECT_EQ(w.blocks.back().records.size(), 2U);
}
