#include "scanlib/dynamic_trigger.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>

namespace {

using scanlib::dynamic_trigger;
using scanlib::target;
using flags_type = std::vector<std::uint8_t>;
using row = dynamic_trigger::threshold_row;

constexpr float nan32 = std::numeric_limits<float>::quiet_NaN();
constexpr float inf32 = std::numeric_limits<float>::infinity();

target echo(double range, float amplitude) {
    target t;
    t.echo_range = range;
    t.amplitude = amplitude;
    return t;
}

flags_type marked(dynamic_trigger& trigger, const std::vector<target>& targets) {
    flags_type flags{9, 9, 9};
    const std::size_t count = trigger.mark(targets, flags);
    std::size_t set = 0;
    for (const auto f : flags) {
        EXPECT_LE(f, 1);
        set += f;
    }
    EXPECT_EQ(count, set);
    EXPECT_EQ(flags.size(), targets.size());
    return flags;
}

/// Each amplitude has the same row.
dynamic_trigger with_row(const row& r) {
    dynamic_trigger t;
    t.set_rows(0, 1, {r});
    return t;
}

std::string error_of(std::size_t pairs, std::size_t values) {
    dynamic_trigger t;
    try {
        t.set_pre(pairs, std::vector<float>(values, 1.0F));
    } catch (const std::runtime_error& e) {
        EXPECT_FALSE(t.present());
        return e.what();
    }
    return {};
}

TEST(dynamic_trigger, nothing_is_marked_without_tables) {
    dynamic_trigger t;
    EXPECT_FALSE(t.present());
    EXPECT_EQ(marked(t, {echo(1, 50), echo(1.1, 0)}), (flags_type{0, 0}));
    EXPECT_EQ(marked(t, {}), flags_type{});
}

TEST(dynamic_trigger, empty_list_only_makes_it_present) {
    dynamic_trigger t;
    t.set_rows(3, 4, {});
    EXPECT_TRUE(t.present());
    EXPECT_FALSE(t.table_form());
    EXPECT_EQ(t.offset(), 0);
    EXPECT_EQ(marked(t, {echo(1, 50), echo(1.1, 0)}), (flags_type{0, 0}));
}

TEST(dynamic_trigger, empty_list_keeps_the_rows_that_were_there) {
    dynamic_trigger t;
    t.set_rows(1, 2, {{20, 0, 0, 0, 0, 0}});
    t.set_rows(3, 4, {});
    EXPECT_EQ(t.offset(), 1);
    EXPECT_EQ(t.scale(), 2);
    ASSERT_EQ(t.rows().size(), 1u);
    EXPECT_EQ(marked(t, {echo(1, 50), echo(1.1, 10)}), (flags_type{0, 1}));
}

TEST(dynamic_trigger, weak_echo_behind_a_strong_one_is_marked) {
    // 20 dB from 1 m behind the strong echo, falling by 5 dB/m.
    auto t = with_row({20, 1, 5, 0, 0, 0});
    EXPECT_EQ(marked(t, {echo(10, 50), echo(11, 20)}), (flags_type{0, 1}));
    EXPECT_EQ(marked(t, {echo(10, 50), echo(11, 20.5F)}), (flags_type{0, 0}));
    EXPECT_EQ(marked(t, {echo(10, 50), echo(13, 10)}), (flags_type{0, 1}));
    EXPECT_EQ(marked(t, {echo(10, 50), echo(13, 10.5F)}), (flags_type{0, 0}));
}

TEST(dynamic_trigger, threshold_behind_never_exceeds_its_plateau) {
    // Closer than 1 m the line alone would be above 20 dB.
    auto t = with_row({20, 1, 5, 0, 0, 0});
    EXPECT_EQ(marked(t, {echo(10, 50), echo(10.5, 20)}), (flags_type{0, 1}));
    EXPECT_EQ(marked(t, {echo(10, 50), echo(10.5, 21)}), (flags_type{0, 0}));
}

TEST(dynamic_trigger, weak_echo_before_a_strong_one_is_marked) {
    // 20 dB up to 1 m before the strong echo, falling by 5 dB/m further before.
    auto t = with_row({0, 0, 0, 20, 1, 5});
    EXPECT_EQ(marked(t, {echo(9.5, 20), echo(10, 50)}), (flags_type{1, 0}));
    EXPECT_EQ(marked(t, {echo(9.5, 21), echo(10, 50)}), (flags_type{0, 0}));
    EXPECT_EQ(marked(t, {echo(7, 10), echo(10, 50)}), (flags_type{1, 0}));
    EXPECT_EQ(marked(t, {echo(7, 10.5F), echo(10, 50)}), (flags_type{0, 0}));
}

TEST(dynamic_trigger, threshold_of_zero_is_no_threshold) {
    auto t = with_row({0, 0, -100, 0, 0, 100});
    EXPECT_EQ(marked(t, {echo(1, -5), echo(2, -5), echo(3, -5)}), (flags_type{0, 0, 0}));
}

TEST(dynamic_trigger, row_is_that_of_the_nearest_amplitude) {
    dynamic_trigger t;
    // Only the row of 14 dB (offset 10, step 4) has a threshold.
    t.set_rows(10, 4, {{}, {20, 0, 0, 0, 0, 0}, {}});
    for (const auto& [amplitude, expected] : std::vector<std::pair<float, int>>{
             {11.5F, 0}, {12.5F, 1}, {14, 1}, {15.5F, 1}, {16.5F, 0}}) {
        EXPECT_EQ(marked(t, {echo(1, amplitude), echo(2, 5)})[1], expected) << amplitude;
    }
}

TEST(dynamic_trigger, amplitude_beyond_the_rows_takes_the_nearest) {
    dynamic_trigger t;
    t.set_rows(10, 1, {{}, {20, 0, 0, 0, 0, 0}});
    EXPECT_EQ(marked(t, {echo(1, 1e30F), echo(2, 5)})[1], 1);
    EXPECT_EQ(marked(t, {echo(1, inf32), echo(2, 5)})[1], 1);
    EXPECT_EQ(marked(t, {echo(1, -1e30F), echo(2, 5)})[1], 0);
    EXPECT_EQ(marked(t, {echo(1, nan32), echo(2, 5)})[1], 0);
}

TEST(dynamic_trigger, odd_offset_and_scale_do_not_leave_the_rows) {
    for (const float offset : {0.0F, nan32, inf32, -inf32}) {
        for (const float scale : {0.0F, -1.0F, nan32, inf32, 1e-45F}) {
            dynamic_trigger t;
            t.set_rows(offset, scale, {{20, 0, 0, 20, 0, 0}, {20, 0, 0, 20, 0, 0}});
            EXPECT_EQ(marked(t, {echo(1, 50), echo(2, 5)})[1], 1) << offset << ' ' << scale;
        }
    }
}

TEST(dynamic_trigger, marked_echo_still_hides_others) {
    dynamic_trigger t;
    // 30 dB hides up to 20 dB behind, 20 dB hides up to 10 dB behind, with a reach of 1 m.
    t.set_rows(0, 10, {{}, {}, {10, 1, 1000, 0, 0, 0}, {20, 1, 1000, 0, 0, 0}});
    EXPECT_EQ(marked(t, {echo(10, 30), echo(11, 20), echo(12, 10)}), (flags_type{0, 1, 1}));
    EXPECT_EQ(marked(t, {echo(10, 30), echo(12, 10)}), (flags_type{0, 0}));
}

TEST(dynamic_trigger, targets_are_not_sorted) {
    // The weak echo is nearer, but comes later in the list: it counts as one behind.
    auto behind = with_row({20, 0, 5, 0, 0, 0});
    EXPECT_EQ(marked(behind, {echo(10, 50), echo(5, 1)}), (flags_type{0, 1}));
    auto before = with_row({0, 0, 0, 20, 0, 5});
    EXPECT_EQ(marked(before, {echo(10, 50), echo(5, 1)}), (flags_type{0, 0}));
}

TEST(dynamic_trigger, single_target_is_left_as_it_is) {
    auto t = with_row({20, 0, 0, 20, 0, 0});
    EXPECT_EQ(marked(t, {echo(1, 1)}), flags_type{0});
}

TEST(dynamic_trigger, targets_without_a_number_are_not_marked_by_rows) {
    auto t = with_row({20, 0, 1, 20, 0, 1});
    const double nan = nan32;
    EXPECT_EQ(marked(t, {echo(10, 50), echo(nan, 1)}), (flags_type{0, 0}));
    EXPECT_EQ(marked(t, {echo(10, 50), echo(10, nan32)}), (flags_type{0, 0}));
}

/// A target of the first form is marked if any other one marks it; written from the side of the
/// weak echo, with the lines as thresholds.
flags_type marked_by_each_other(float offset, float scale, const std::vector<row>& rows,
                                const std::vector<target>& targets) {
    flags_type flags;
    for (std::size_t weak = 0; weak < targets.size(); ++weak) {
        bool hidden = false;
        for (std::size_t strong = 0; strong < targets.size(); ++strong) {
            const double index = std::round((targets[strong].amplitude - offset) / scale);
            const double last = static_cast<double>(rows.size() - 1);
            const row& r = rows[static_cast<std::size_t>(std::fmin(std::fmax(index, 0), last))];
            const double behind = targets[weak].echo_range - targets[strong].echo_range;
            double threshold = -1e300;
            if (weak < strong && r.thra2 != 0) {
                threshold = std::fmin(r.thra2, r.thra2 + (behind + r.del2) * r.dec2);
            } else if (weak > strong && r.thra1 != 0) {
                threshold = std::fmin(r.thra1, r.thra1 - (behind - r.del1) * r.dec1);
            }
            hidden = hidden || targets[weak].amplitude <= threshold;
        }
        flags.push_back(hidden);
    }
    return flags;
}

TEST(dynamic_trigger, rows_agree_with_the_view_of_the_weak_echo) {
    std::mt19937 random(4);
    const auto quarter = [&](int low, int high) {
        return 0.25F *
               static_cast<float>(std::uniform_int_distribution<int>(4 * low, 4 * high)(random));
    };
    std::size_t set = 0;
    for (int round = 0; round < 2000; ++round) {
        std::vector<row> rows;
        for (int j = 0; j < 5; ++j) {
            rows.push_back({quarter(0, 12), quarter(0, 3), quarter(0, 4), quarter(0, 12),
                            quarter(0, 3), quarter(0, 4)});
        }
        std::vector<target> targets;
        for (int i = 0; i < 7; ++i) {
            targets.push_back(echo(quarter(0, 20), quarter(0, 25)));
        }
        dynamic_trigger t;
        t.set_rows(2, 5, rows);
        const flags_type flags = marked(t, targets);
        EXPECT_EQ(flags, marked_by_each_other(2, 5, rows, targets));
        for (const auto f : flags) {
            set += f;
        }
    }
    EXPECT_GT(set, 1000u) << "the scenes are too tame to tell anything";
}

/// Thresholds that are the same for all amplitudes from 10 to 30 dB: 20 dB at 1 m, 10 dB at 3 m.
const std::vector<float> simple_grid{10, 1, 20, 3, 10, 30, 1, 20, 3, 10};

TEST(dynamic_trigger, grid_behind_interpolates_over_distance) {
    dynamic_trigger t;
    t.set_post(2, simple_grid);
    EXPECT_TRUE(t.present());
    EXPECT_TRUE(t.table_form());
    EXPECT_EQ(marked(t, {echo(10, 25), echo(12, 15)}), (flags_type{0, 1}));
    EXPECT_EQ(marked(t, {echo(10, 25), echo(12, 15.5F)}), (flags_type{0, 0}));
    EXPECT_EQ(marked(t, {echo(10, 25), echo(11, 20)}), (flags_type{0, 1}));
}

TEST(dynamic_trigger, grid_before_works_by_the_distance_to_the_strong_echo) {
    dynamic_trigger t;
    t.set_pre(2, simple_grid);
    EXPECT_EQ(marked(t, {echo(8, 15), echo(10, 25)}), (flags_type{1, 0}));
    EXPECT_EQ(marked(t, {echo(8, 15.5F), echo(10, 25)}), (flags_type{0, 0}));
    EXPECT_EQ(marked(t, {echo(10, 25), echo(12, 15)}), (flags_type{0, 0})) << "nothing behind";
}

TEST(dynamic_trigger, distance_outside_the_grid_hides_nothing) {
    dynamic_trigger t;
    t.set_post(2, simple_grid);
    EXPECT_EQ(marked(t, {echo(10, 25), echo(10.5, -50)}), (flags_type{0, 0}));
    EXPECT_EQ(marked(t, {echo(10, 25), echo(13, -50)}), (flags_type{0, 0}));
    EXPECT_EQ(marked(t, {echo(10, 25), echo(5, -50)}), (flags_type{0, 0}));
}

TEST(dynamic_trigger, amplitude_outside_the_keys_hides_nothing) {
    dynamic_trigger t;
    t.set_post(2, simple_grid);
    EXPECT_EQ(marked(t, {echo(10, 9.75F), echo(12, -50)})[1], 0);
    EXPECT_EQ(marked(t, {echo(10, 10), echo(12, -50)})[1], 1);
    EXPECT_EQ(marked(t, {echo(10, 29.75F), echo(12, -50)})[1], 1);
    EXPECT_EQ(marked(t, {echo(10, 30), echo(12, -50)})[1], 0);
    EXPECT_EQ(marked(t, {echo(10, nan32), echo(12, -50)})[1], 0);
}

TEST(dynamic_trigger, grid_interpolates_distances_and_thresholds_over_amplitude) {
    dynamic_trigger t;
    // At 20 dB, halfway: 12 dB at 2 m to 24 dB at 6 m, so 18 dB at 4 m.
    t.set_post(2, std::vector<float>{10, 1, 4, 4, 8, 30, 3, 20, 8, 40});
    EXPECT_EQ(marked(t, {echo(10, 20), echo(14, 18)}), (flags_type{0, 1}));
    EXPECT_EQ(marked(t, {echo(10, 20), echo(14, 18.25F)}), (flags_type{0, 0}));
    EXPECT_EQ(marked(t, {echo(10, 20), echo(11.75, -50)}), (flags_type{0, 0}));
    EXPECT_EQ(marked(t, {echo(10, 20), echo(16, -50)}), (flags_type{0, 0}));
}

TEST(dynamic_trigger, grids_win_over_rows) {
    dynamic_trigger t;
    t.set_post(2, simple_grid);
    t.set_rows(0, 1, {{100, 100, 0, 100, 100, 0}});
    EXPECT_TRUE(t.table_form());
    EXPECT_EQ(marked(t, {echo(10, 50), echo(10.5, 1)}), (flags_type{0, 0}));
    EXPECT_EQ(marked(t, {echo(10, 25), echo(12, 1)}), (flags_type{0, 1}));
}

TEST(dynamic_trigger, values_that_do_not_fill_the_rows_are_refused) {
    EXPECT_EQ(error_of(2, 11), "dynamic_trigger: inconsistent table dimensions");
    EXPECT_EQ(error_of(255, 510), "dynamic_trigger: inconsistent table dimensions");
}

TEST(dynamic_trigger, too_few_rows_or_pairs_are_refused) {
    EXPECT_EQ(error_of(2, 0), "dynamic_trigger: table too small");
    EXPECT_EQ(error_of(2, 5), "dynamic_trigger: table too small");
    EXPECT_EQ(error_of(1, 6), "dynamic_trigger: table too small");
    EXPECT_EQ(error_of(0, 6), "dynamic_trigger: table too small");
    EXPECT_EQ(error_of(2, 10), "");
}

TEST(dynamic_trigger, refused_values_keep_the_table_that_was_there) {
    dynamic_trigger t;
    t.set_post(2, simple_grid);
    EXPECT_THROW(t.set_post(2, std::vector<float>(5)), std::runtime_error);
    EXPECT_EQ(marked(t, {echo(10, 25), echo(12, 15)}), (flags_type{0, 1}));
}

TEST(dynamic_trigger, grids_of_odd_numbers_do_not_fault) {
    const std::vector<float> odd{nan32, inf32, -inf32, 0, 1, 1, 2, -3e38F, 3e38F};
    std::mt19937 random(5);
    std::uniform_int_distribution<std::size_t> pick(0, odd.size() - 1);
    for (int round = 0; round < 3000; ++round) {
        std::vector<float> values(3 * 7);
        for (auto& v : values) {
            v = odd[pick(random)];
        }
        std::vector<target> targets;
        for (int i = 0; i < 4; ++i) {
            targets.push_back(echo(odd[pick(random)], odd[pick(random)]));
        }
        dynamic_trigger t;
        t.set_pre(3, values);
        t.set_post(3, values);
        EXPECT_EQ(marked(t, targets).size(), 4u);
    }
}

/// Value of a table's column at an amplitude, by a walk over its rows; false outside.
bool column_at(const std::vector<float>& grid, std::size_t pairs, std::size_t column, double a,
               double& value) {
    const std::size_t width = 2 * pairs + 1;
    for (std::size_t r = 0; r < grid.size(); r += width) {
        if (grid[r] > a) {
            if (r == 0) {
                return false;
            }
            const double before = grid[r - width];
            value = grid[r - width + column] + (a - before) *
                                                   (grid[r + column] - grid[r - width + column]) /
                                                   (grid[r] - before);
            return true;
        }
    }
    return false;
}

bool grid_hides(const std::vector<float>& grid, std::size_t pairs, const target& strong,
                double distance, const target& weak) {
    double before = 0;
    double before_threshold = 0;
    for (std::size_t j = 0; j < pairs; ++j) {
        double d = 0;
        double threshold = 0;
        if (!column_at(grid, pairs, 1 + 2 * j, strong.amplitude, d) ||
            !column_at(grid, pairs, 2 + 2 * j, strong.amplitude, threshold)) {
            return false;
        }
        if (d > distance) {
            const double at = before_threshold +
                              (distance - before) * (threshold - before_threshold) / (d - before);
            return j > 0 && at >= weak.amplitude;
        }
        before = d;
        before_threshold = threshold;
    }
    return false;
}

TEST(dynamic_trigger, grids_agree_with_a_walk_even_when_unordered) {
    std::mt19937 random(6);
    const auto number = [&](int low, int high) {
        return static_cast<float>(std::uniform_int_distribution<int>(low, high)(random));
    };
    std::size_t set = 0;
    for (int round = 0; round < 2000; ++round) {
        constexpr std::size_t pairs = 4;
        const auto make = [&] {
            std::vector<float> grid;
            for (int r = 0; r < 5; ++r) {
                grid.push_back(10.0F * static_cast<float>(r) + number(-8, 8));
                for (std::size_t j = 0; j < pairs; ++j) {
                    grid.push_back(4.0F * static_cast<float>(j) + number(-4, 3));
                    grid.push_back(number(0, 30));
                }
            }
            return grid;
        };
        const auto pre = make();
        const auto post = make();
        std::vector<target> targets;
        for (int i = 0; i < 6; ++i) {
            // Off the integers, so that rounding decides nothing.
            targets.push_back(echo(number(0, 30) + 0.37, number(-5, 45) + 0.123F));
        }
        flags_type expected;
        for (std::size_t weak = 0; weak < targets.size(); ++weak) {
            bool hidden = false;
            for (std::size_t strong = 0; strong < targets.size(); ++strong) {
                const double d = targets[strong].echo_range - targets[weak].echo_range;
                hidden =
                    hidden ||
                    (weak < strong && grid_hides(pre, pairs, targets[strong], d, targets[weak])) ||
                    (weak > strong && grid_hides(post, pairs, targets[strong], -d, targets[weak]));
            }
            expected.push_back(hidden);
            set += hidden;
        }
        dynamic_trigger t;
        t.set_pre(pairs, pre);
        t.set_post(pairs, post);
        EXPECT_EQ(marked(t, targets), expected) << round;
    }
    EXPECT_GT(set, 1000u) << "the scenes are too tame to tell anything";
}

TEST(dynamic_trigger, strong_echo_reaches_a_limited_number_of_neighbours) {
    constexpr std::size_t limit = dynamic_trigger::neighbour_limit;
    std::vector<target> targets(2 * limit + 3, echo(10, 1));
    targets[limit + 1].amplitude = 50;
    dynamic_trigger t;
    t.set_rows(0, 50, {{}, {20, 0, 0, 20, 0, 0}});
    const auto by_rows = marked(t, targets);
    t.set_pre(2, std::vector<float>{40, -1, 20, 1, 20, 60, -1, 20, 1, 20});
    t.set_post(2, std::vector<float>{40, -1, 20, 1, 20, 60, -1, 20, 1, 20});
    const auto by_grids = marked(t, targets);
    flags_type expected(targets.size(), 1);
    expected.front() = expected.back() = expected[limit + 1] = 0;
    EXPECT_EQ(by_rows, expected);
    EXPECT_EQ(by_grids, expected);
}

} // namespace
