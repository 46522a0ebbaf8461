// What is kept of blocks that are done with.
#include "scanlib/wave_block_pool.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

using namespace scanlib;
using ::testing::IsEmpty;

namespace {

std::unique_ptr<wave_block> block_of(std::size_t records, std::size_t samples) {
    auto block = std::make_unique<wave_block>();
    block->records.resize(records);
    for (wave_record& r : block->records) {
        r.samples.resize(samples);
    }
    return block;
}

} // namespace

TEST(wave_block_pool, blocks_come_back_empty_and_lists_as_they_were) {
    wave_block_pool pool;
    auto block = block_of(1, 100);
    block->time = 1;
    block->facet = 2;
    block->is_pps_locked = 1;
    block->peaks.resize(4);
    const wave_block* const same = block.get();
    const std::uint16_t* const memory = block->records[0].samples.data();
    pool.give_back(std::move(block));
    EXPECT_GE(pool.spare_room(), 100U);
    const auto again = pool.take_block();
    EXPECT_EQ(again.get(), same);
    EXPECT_EQ(again->time, 0);
    EXPECT_EQ(again->facet, 0U);
    EXPECT_EQ(again->is_pps_locked, 0);
    EXPECT_THAT(again->records, IsEmpty());
    EXPECT_THAT(again->peaks, IsEmpty());
    const auto samples = pool.take_samples();
    EXPECT_EQ(samples.size(), 100U);
    EXPECT_EQ(samples.data(), memory);
    EXPECT_EQ(pool.spare_room(), 0U);
    EXPECT_THAT(pool.take_samples(), IsEmpty());
}

TEST(wave_block_pool, spare_lists_have_room_for_a_bounded_number_of_samples) {
    wave_block_pool pool;
    for (int i = 0; i < 40; ++i) {
        pool.give_back(block_of(1, std::size_t{1} << 20));
    }
    EXPECT_LE(pool.spare_room(), wave_block_pool::sample_limit);
    EXPECT_GE(pool.spare_room(), wave_block_pool::sample_limit / 2);
}

TEST(wave_block_pool, blocks_with_room_for_many_records_are_not_kept) {
    wave_block_pool pool;
    pool.give_back(block_of(100000, 0));
    EXPECT_LE(pool.take_block()->records.capacity(), wave_block_pool::record_limit);
}
