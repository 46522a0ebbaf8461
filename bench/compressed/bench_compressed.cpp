#include "scanlib/compressed/packed_stream.hpp"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <random>

using namespace scanlib;
using namespace scanlib::testing;

namespace {

constexpr std::uint32_t shots = 20000;

/// Shots at an even pace with 0 to 5 echoes, as a wheel over a rough scene gives them.
std::vector<shot_record> scene() {
    std::mt19937 engine(7);
    const auto random = [&] { return static_cast<std::uint32_t>(engine()); };
    std::vector<shot_record> records(shots);
    for (std::uint32_t i = 0; i < shots; ++i) {
        shot_record& r = records[i];
        r.shot = {1000 + 100 * std::uint64_t{i}, 40 * (i % 2000) + random() % 3, i / 2000, 0};
        std::uint32_t range = 20000 + random() % 4000;
        for (auto n = random() % 6; n > 0; --n) {
            range += random() % 2000;
            r.echoes.push_back({range, static_cast<std::uint16_t>(1000 + random() % 500),
                                static_cast<std::uint16_t>(900 + random() % 300), 0,
                                static_cast<std::uint16_t>(random() % 100)});
        }
    }
    return records;
}

class no_handlers : public compressed_packets {
  public:
    no_handlers() : compressed_packets(true) {}
};

void expand(benchmark::State& state, packed_form form) {
    const auto records = scene();
    const auto packets = packed(records, form);
    record_reader check;
    feed(check, packets);
    if (check.records != records) {
        state.SkipWithError("what was packed does not come back");
        return;
    }
    std::size_t echoes = 0, bytes = 0;
    for (const shot_record& r : records) {
        echoes += r.echoes.size();
    }
    for (const words& w : packets) {
        bytes += 4 * w.size();
    }
    no_handlers reader;
    for (auto _ : state) {
        feed(reader, packets);
        benchmark::DoNotOptimize(reader.packet_total);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(echoes));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

// Items are echoes; their shots, two for five echoes, come with them.
BENCHMARK_CAPTURE(expand, shot_echo, packed_form::shot_echo)->Name("expand/shot-echo");
BENCHMARK_CAPTURE(expand, blocks, packed_form::shot_echo_blocks)->Name("expand/shot-echo-blocks");
BENCHMARK_CAPTURE(expand, packed, packed_form::packed)->Name("expand/packed");
BENCHMARK_CAPTURE(expand, packed_hr, packed_form::packed_hr)->Name("expand/packed-hr");

} // namespace
