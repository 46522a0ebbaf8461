#include "scanlib/time_sync.hpp"

#include <benchmark/benchmark.h>

namespace {

/// Conversions of a counter that runs 100 counts from one shot to the next, with a pair every
/// second.
void convert(benchmark::State& state) {
    scanlib::time_sync s;
    s.configure(1e-07, 0.001, 1.9073486328125e-13, 0.000001, 49, 0);
    std::uint32_t ticks = 0;
    std::uint32_t second = 1;
    double sum = 0;
    for (auto _ : state) {
        ticks += 100;
        if (ticks % 10000000 == 0) {
            s.pps(ticks, 1000 * ++second);
        }
        sum += s.convert(ticks).external;
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(convert)->Name("time_sync/convert");

} // namespace
