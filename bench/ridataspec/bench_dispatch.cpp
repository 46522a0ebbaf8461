#include <vector>

#include <benchmark/benchmark.h>

#include "scanlib/basic_packets.hpp"

namespace {

using words = std::vector<std::uint32_t>;

/// Counts what arrives, to check the dispatch before it is timed.
class counting : public scanlib::basic_packets {
  public:
    unsigned calls = 0;
    void on_laser_shot(scanlib::packets::laser_shot&) override { calls += 1; }
    void on_laser_shot_1angle(scanlib::packets::laser_shot_1angle&) override { calls += 10; }
    void on_laser_shot_2angles(scanlib::packets::laser_shot_2angles&) override { calls += 100; }
};

void teach_short_code(scanlib::basic_packets& consumer) {
    words header{0xFFFFFFFFu, 1u << 16};
    header.resize(14);
    header.push_back(10u << 16 | 2u);
    consumer.dispatch(header.data(), header.data() + header.size());
}

void chain_of_three(benchmark::State& state) {
    const words packet{0xFFFFFF01u, 123456, 789, 1011};
    counting check;
    teach_short_code(check);
    check.dispatch(packet.data(), packet.data() + packet.size());
    if (check.calls != 111) {
        state.SkipWithError("the chain is not whole");
        return;
    }
    scanlib::basic_packets empty;
    teach_short_code(empty);
    for (auto _ : state) {
        const std::uint32_t* begin = packet.data();
        benchmark::DoNotOptimize(begin);
        empty.dispatch(begin, begin + packet.size());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(chain_of_three)->Name("dispatch/chain3");

} // namespace
