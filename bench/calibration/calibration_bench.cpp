#include "scanlib/amplitude_range_table.hpp"
#include "scanlib/crc_contexts.hpp"
#include "scanlib/dynamic_trigger.hpp"
#include "scanlib/mta_history.hpp"
#include "scanlib/near_range_table.hpp"
#include "scanlib/notch_filter.hpp"
#include "scanlib/range_grid.hpp"
#include "scanlib/reflectance_table.hpp"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <initializer_list>
#include <vector>

namespace {

/// Light goes a metre there and back in a tick.
constexpr double velocity = 2e8;
constexpr double unit = 1e-8;

/// Ends the program where an answer is wrong, so that no wrong answer is timed.
void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

scanlib::mta_history filled_history(std::size_t size) {
    scanlib::mta_history history;
    history.resize(size);
    scanlib::mta_shot shot;
    for (std::size_t i = 0; i < size; ++i) {
        shot.ticks += 1000;
        history.push(shot);
    }
    return history;
}

/// An echo whose zone is the argument, in a history of two entries more.
void mta_search(benchmark::State& state) {
    const auto zone = static_cast<std::size_t>(state.range(0));
    const auto history = filled_history(zone + 2);
    const double truth = 1000.0 * static_cast<double>(zone) + 100;
    const auto search = [&] {
        return history.search(100, truth - 10, truth + 900, velocity, unit);
    };
    require(search() && search()->zone == zone);
    for (auto _ : state) {
        benchmark::DoNotOptimize(search());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(mta_search)
    ->Name("calibration/mta_search")
    ->Arg(0)
    ->Arg(1)
    ->Arg(3)
    ->Arg(7)
    ->Arg(30)
    ->Arg(65534);

void mta_push(benchmark::State& state) {
    auto history = filled_history(6);
    scanlib::mta_shot shot;
    for (auto _ : state) {
        shot.ticks += 1000;
        history.push(shot);
        benchmark::ClobberMemory();
    }
    require(history[0].ticks == shot.ticks);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(mta_push)->Name("calibration/mta_push");

std::vector<scanlib::target> some_targets(std::size_t n) {
    std::vector<scanlib::target> targets(n);
    for (std::size_t i = 0; i < n; ++i) {
        targets[i].echo_range = 10 + 1.5 * static_cast<double>(i);
        targets[i].amplitude = i % 2 == 0 ? 30.0F : 5.0F;
    }
    return targets;
}

void run_trigger(benchmark::State& state, scanlib::dynamic_trigger& trigger) {
    const auto n = static_cast<std::size_t>(state.range(0));
    const auto targets = some_targets(n);
    std::vector<std::uint8_t> flags;
    require(trigger.mark(targets, flags) == n / 2);
    for (auto _ : state) {
        benchmark::DoNotOptimize(trigger.mark(targets, flags));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void trigger_rows(benchmark::State& state) {
    scanlib::dynamic_trigger trigger;
    std::vector<scanlib::dynamic_trigger::threshold_row> rows(50);
    rows[30] = {20, 1, 2, 20, 1, 2};
    trigger.set_rows(0, 1, rows);
    run_trigger(state, trigger);
}
BENCHMARK(trigger_rows)
    ->Name("calibration/trigger_rows")
    ->Arg(1)
    ->Arg(2)
    ->Arg(6)
    ->Arg(64)
    ->Arg(65536);

void trigger_grids(benchmark::State& state) {
    std::vector<float> grid;
    for (int row = 0; row < 16; ++row) {
        grid.push_back(10.0F + 2.0F * static_cast<float>(row));
        for (int j = 0; j < 16; ++j) {
            grid.push_back(static_cast<float>(j));
            grid.push_back(20.0F - static_cast<float>(j));
        }
    }
    scanlib::dynamic_trigger trigger;
    trigger.set_pre(16, grid);
    trigger.set_post(16, grid);
    run_trigger(state, trigger);
}
BENCHMARK(trigger_grids)
    ->Name("calibration/trigger_grids")
    ->Arg(1)
    ->Arg(2)
    ->Arg(6)
    ->Arg(64)
    ->Arg(65536);

/// A new window by angle for each shot.
void notch_by_angle(benchmark::State& state) {
    scanlib::calibration_curve::pairs_type pairs;
    for (int i = 0; i <= 360; ++i) {
        pairs.emplace_back(i, 0.01 * i);
    }
    scanlib::calibration_tables curves;
    for (const std::uint16_t id : std::initializer_list<std::uint16_t>{14, 15, 20, 21}) {
        curves.set(id, pairs);
    }
    constexpr std::uint32_t circle = 1 << 20;
    scanlib::notch_filter notch;
    notch.set_angular(curves, circle, 1, {0.001, 0.01});
    std::uint32_t line = 0;
    for (auto _ : state) {
        line = (line + 256) % circle;
        notch.start_shot(line, 0, {0.001, 0.01});
        benchmark::DoNotOptimize(notch.rejects(1000, 10));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(notch_by_angle)->Name("calibration/notch_by_angle");

/// All corrections of an echo.
void corrections(benchmark::State& state) {
    const scanlib::amplitude_range_table arange{1.0F, std::vector<std::int32_t>(256, 1)};
    const scanlib::near_range_table nrange{0.5F, std::vector<float>(64, 1.0F)};
    const scanlib::reflectance_table reflectance{1.0F, std::vector<float>(1000, 1.0F)};
    scanlib::range_grid grid;
    for (int i = 0; i < 32; ++i) {
        grid.rows.push_back(i);
        grid.columns.push_back(i);
    }
    grid.values.assign(32 * 32, 1.0);
    std::uint16_t amplitude = 0;
    for (auto _ : state) {
        amplitude = static_cast<std::uint16_t>((amplitude + 37) % 3000);
        double range = arange.corrected(1000 + 5 * amplitude, amplitude, 0.01) * 0.001;
        range = nrange.corrected(range);
        range = grid.corrected(range, 0.01 * amplitude);
        benchmark::DoNotOptimize(reflectance.corrected(-10.0F, range));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(corrections)->Name("calibration/corrections");

void crc(benchmark::State& state) {
    std::vector<std::uint32_t> words(static_cast<std::size_t>(state.range(0)), 0x12345678);
    std::uint32_t sum = scanlib::crc_start;
    for (auto _ : state) {
        sum = scanlib::crc32_of_words(sum, words.data(), words.data() + words.size());
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0) * 4);
}
BENCHMARK(crc)->Name("calibration/crc")->Arg(4)->Arg(256);

/// What a packet costs where no context exists.
void crc_without_contexts(benchmark::State& state) {
    scanlib::crc_contexts contexts;
    benchmark::DoNotOptimize(contexts);
    const std::uint32_t words[4] = {};
    for (auto _ : state) {
        contexts.update(static_cast<scanlib::packet_index>(7), words, words + 4);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(crc_without_contexts)->Name("calibration/crc_without_contexts");

} // namespace
