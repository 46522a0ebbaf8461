// What the scan for header packets and an open log add to the framing of a recording of 1 GB, as
// ratio to framing alone. Both run in turns in the page cache. `ratio` is of the reading thread's
// processor time; `wall_ratio` also waits for a disk that is slower than the framing.
#include <chrono>
#include <ctime>
#include <filesystem>
#include <memory>
#include <random>
#include <string>

#include <benchmark/benchmark.h>

#include "scanlib/rxpmarker.hpp"

namespace {

constexpr std::uint64_t recording_bytes = std::uint64_t{1} << 30;

/// A recording that is removed at the end.
class recording {
  public:
    explicit recording(std::size_t words_per_packet)
        : path_(std::filesystem::temp_directory_path() /
                ("bench_reading_" + std::to_string(words_per_packet) + ".rxp")) {
        const std::shared_ptr<scanlib::basic_wconnection> out(
            scanlib::basic_wconnection::create(path_.string()));
        scanlib::encoder_rxpmarker encoder(out, scanlib::encoder_capacity,
                                           scanlib::encoder_headroom, true);
        scanlib::basic_buffer area;
        encoder.put(area);
        std::mt19937 random(1);
        for (; packets * words_per_packet * 4 < recording_bytes; ++packets) {
            area.resize(words_per_packet);
            *area.begin() = 0xFFFFFF01u;
            for (std::size_t i = 1; i < words_per_packet; ++i) {
                area.begin()[i] = static_cast<std::uint32_t>(random() >> 1);
            }
            encoder.put(area);
        }
        encoder.mark_end();
        encoder.flush();
    }
    recording(const recording&) = delete;
    recording& operator=(const recording&) = delete;
    ~recording() {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
        std::filesystem::remove(log(), ignored);
    }

    std::string path() const { return path_.string(); }
    std::string log() const { return path_.string() + ".log"; }

    std::uint64_t packets = 0;

  private:
    std::filesystem::path path_;
};

struct cost {
    double processor = 0; ///< seconds of this thread
    double wall = 0;
    std::uint64_t packets = 0;
};

double processor_seconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

cost read(const recording& r, bool scan, bool log) {
    cost c;
    // Freeing an earlier log is no part of writing one.
    std::error_code ignored;
    std::filesystem::remove(r.log(), ignored);
    const double processor = processor_seconds();
    const auto wall = std::chrono::steady_clock::now();
    const std::shared_ptr<scanlib::basic_rconnection> in(
        scanlib::basic_rconnection::create(r.path(), "", scan ? "{}" : ""));
    if (log) {
        in->log(r.log(), INT64_MAX);
    }
    scanlib::decoder_rxpmarker decoder(in, scanlib::decoder_capacity, scanlib::decoder_headroom,
                                       true);
    scanlib::basic_buffer packet;
    for (decoder.get(packet); !packet.empty(); decoder.get(packet)) {
        ++c.packets;
    }
    if (log) {
        in->close_log();
    }
    c.processor = processor_seconds() - processor;
    c.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count();
    return c;
}

void reading(benchmark::State& state, std::size_t words, bool scan, bool log) {
    const recording r(words);
    cost plain;
    cost with;
    for (auto _ : state) {
        for (const bool whole : {false, true}) {
            const cost c = read(r, whole && scan, whole && log);
            if (c.packets != r.packets) {
                state.SkipWithError("the recording does not come back whole");
                return;
            }
            cost& sum = whole ? with : plain;
            sum.processor += c.processor;
            sum.wall += c.wall;
        }
    }
    state.counters["ratio"] = with.processor / plain.processor;
    state.counters["wall_ratio"] = with.wall / plain.wall;
}

BENCHMARK_CAPTURE(reading, scan_words4, 4, true, false)->Name("reading/scan/words4")->Iterations(2);
BENCHMARK_CAPTURE(reading, scan, 256, true, false)->Name("reading/scan/words256")->Iterations(2);
BENCHMARK_CAPTURE(reading, log_words4, 4, false, true)->Name("reading/log/words4")->Iterations(2);
BENCHMARK_CAPTURE(reading, log, 256, false, true)->Name("reading/log/words256")->Iterations(2);

} // namespace
