#include "scanlib/pointcloud/allocation_counter.hpp"

#include "scanlib/dynamic_trigger.hpp"
#include "scanlib/mta_history.hpp"
#include "scanlib/notch_filter.hpp"

#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

namespace {

using scanlib::testing::allocation_count;

TEST(calibration_allocation, dynamic_trigger_in_steady_state_allocates_nothing) {
    scanlib::dynamic_trigger rows;
    rows.set_rows(0, 1, {{20, 0, 1, 20, 0, 1}, {20, 0, 1, 20, 0, 1}});
    scanlib::dynamic_trigger grids;
    const std::vector<float> grid{0, 1, 20, 3, 10, 100, 1, 20, 3, 10};
    grids.set_pre(2, grid);
    grids.set_post(2, grid);
    std::vector<scanlib::target> targets(6);
    for (std::size_t i = 0; i < targets.size(); ++i) {
        targets[i].echo_range = 1.5 * static_cast<double>(i);
        targets[i].amplitude = i % 2 == 0 ? 50.0F : 5.0F;
    }
    std::vector<std::uint8_t> flags;
    rows.mark(targets, flags);
    const std::size_t before = allocation_count();
    std::size_t marked = 0;
    for (int i = 0; i < 1000; ++i) {
        marked += rows.mark({targets.data(), 1 + static_cast<std::size_t>(i % 6)}, flags);
        marked += grids.mark(targets, flags);
    }
    EXPECT_EQ(allocation_count(), before);
    EXPECT_GT(marked, 0u);
}

TEST(calibration_allocation, history_allocates_nothing_once_it_was_full) {
    scanlib::mta_history history;
    history.resize(100);
    scanlib::mta_shot shot;
    const auto push_many = [&] {
        for (int i = 0; i < 1000; ++i) {
            shot.ticks += 1000;
            history.push(shot);
        }
    };
    push_many();
    const std::size_t before = allocation_count();
    for (int i = 0; i < 10; ++i) {
        push_many();
        history.clear();
        history.resize(10);
        history.resize(100);
    }
    EXPECT_EQ(allocation_count(), before);
    EXPECT_EQ(history.size(), 100u);
}

TEST(calibration_allocation, notch_allocates_nothing_from_shot_to_shot) {
    scanlib::calibration_tables curves;
    for (const std::uint16_t id : std::initializer_list<std::uint16_t>{14, 15, 20, 21}) {
        curves.set(id, {{0, 1}, {360, 2}});
    }
    scanlib::notch_filter notch;
    notch.set_angular(curves, 360000, 1, {0.001, 0.01});
    const std::size_t before = allocation_count();
    int rejected = 0;
    for (std::uint32_t line = 0; line < 360000; line += 100) {
        notch.start_shot(line, 0, {0.001, 0.01});
        rejected += notch.rejects(1000, 10);
    }
    EXPECT_EQ(allocation_count(), before);
    EXPECT_GT(rejected, 0);
}

} // namespace
