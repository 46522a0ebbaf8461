// What the scan for header packets and an open log add to the framing of a recording of 1 GiB, as
// ratio to framing alone.
//
// Both run in turns on the same recording, and their medians are compared:
//   ratio            wall time from opening the recording to its last packet
//   processor_ratio  processor time of the reading thread up to there
//   closed_ratio     wall time until the log is closed, too
//
// Recording and log lie in memory where there is a file system for it, or where TMPDIR says, so
// that no disk takes part.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include "scanlib/rxpmarker.hpp"

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t recording_bytes = std::uint64_t{1} << 30;

fs::path folder() {
    const fs::path in_memory = "/dev/shm";
    std::error_code none;
    if (std::getenv("TMPDIR") == nullptr &&
        fs::space(in_memory, none).available > 3 * recording_bytes && !none) {
        return in_memory;
    }
    return fs::temp_directory_path();
}

/// A recording that is removed at the end.
class recording {
  public:
    explicit recording(std::size_t words_per_packet)
        : words(words_per_packet)
        , path_(folder() / ("bench_reading_" + std::to_string(getpid()) + ".rxp")) {
        const std::shared_ptr<scanlib::basic_wconnection> out(
            scanlib::basic_wconnection::create(path_.string()));
        scanlib::encoder_rxpmarker encoder(out, scanlib::encoder_capacity,
                                           scanlib::encoder_headroom, true);
        scanlib::basic_buffer area;
        encoder.put(area);
        std::mt19937 random(1);
        for (; packets * words * 4 < recording_bytes; ++packets) {
            area.resize(words);
            *area.begin() = 0xFFFFFF01u;
            for (std::size_t i = 1; i < words; ++i) {
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
        fs::remove(path_, ignored);
        fs::remove(log(), ignored);
    }

    std::string path() const { return path_.string(); }
    std::string log() const { return path_.string() + ".log"; }

    std::size_t words;
    std::uint64_t packets = 0;

  private:
    fs::path path_;
};

/// The one recording that is there; made when another is asked for.
const recording& recording_of(std::size_t words) {
    static std::unique_ptr<recording> present;
    if (!present || present->words != words) {
        present.reset();
        present = std::make_unique<recording>(words);
        sync(); // on a disk, writing it down is no part of reading it
    }
    return *present;
}

/// Seconds of one run.
struct cost {
    double wall = 0;
    double processor = 0;
    double closed = 0;
    bool whole = false;
};

double processor_seconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

cost read(const recording& r, bool scan, bool log) {
    using clock = std::chrono::steady_clock;
    const auto since = [](clock::time_point begin) {
        return std::chrono::duration<double>(clock::now() - begin).count();
    };
    // Freeing an earlier log is no part of writing one.
    std::error_code ignored;
    fs::remove(r.log(), ignored);
    cost c;
    std::uint64_t packets = 0;
    const double processor = processor_seconds();
    const auto begin = clock::now();
    const std::shared_ptr<scanlib::basic_rconnection> in(
        scanlib::basic_rconnection::create(r.path(), "", scan ? "{}" : ""));
    if (log) {
        in->log(r.log(), INT64_MAX);
    }
    scanlib::decoder_rxpmarker decoder(in, scanlib::decoder_capacity, scanlib::decoder_headroom,
                                       true);
    scanlib::basic_buffer packet;
    for (decoder.get(packet); !packet.empty(); decoder.get(packet)) {
        ++packets;
    }
    c.wall = since(begin);
    c.processor = processor_seconds() - processor;
    in->close_log();
    c.closed = since(begin);
    c.whole = packets == r.packets && (!log || fs::file_size(r.log()) == fs::file_size(r.path()));
    return c;
}

double median(const std::vector<cost>& costs, double cost::*part) {
    std::vector<double> values;
    for (const cost& c : costs) {
        values.push_back(c.*part);
    }
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void reading(benchmark::State& state, std::size_t words, bool scan, bool log) {
    const recording& r = recording_of(words);
    std::vector<cost> plain;
    std::vector<cost> with;
    for (auto _ : state) {
        plain.push_back(read(r, false, false));
        with.push_back(read(r, scan, log));
        if (!plain.back().whole || !with.back().whole) {
            state.SkipWithError("recording or log is not whole");
            return;
        }
    }
    const auto ratio = [&](double cost::*part) { return median(with, part) / median(plain, part); };
    state.counters["ratio"] = ratio(&cost::wall);
    state.counters["processor_ratio"] = ratio(&cost::processor);
    state.counters["closed_ratio"] = ratio(&cost::closed);
}

void reading_of(const char* name, std::size_t words, bool scan, bool log) {
    benchmark::RegisterBenchmark(name, reading, words, scan, log)->Iterations(5);
}

const bool registered = [] {
    reading_of("reading/scan/words4", 4, true, false);
    reading_of("reading/log/words4", 4, false, true);
    reading_of("reading/scan+log/words4", 4, true, true);
    reading_of("reading/scan/words256", 256, true, false);
    reading_of("reading/log/words256", 256, false, true);
    reading_of("reading/scan+log/words256", 256, true, true);
    return true;
}();

} // namespace
