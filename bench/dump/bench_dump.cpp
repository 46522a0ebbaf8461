// Recordings as text: a file in the page cache, read, framed and printed to memory.
#include "dump_lines.hpp"
#include "simulator/recorder.hpp"
#include "simulator/recording_file.hpp"

#include "scanlib/connection.hpp"
#include "scanlib/rxpmarker.hpp"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

/// A simulated recording of plain shots and echoes, removed at the end.
class recording {
  public:
    recording()
        : path_(std::filesystem::temp_directory_path() /
                ("bench_dump_" + std::to_string(getpid()) + ".rxp")) {
        const auto file = std::make_shared<simulator::recording_file>(path_);
        const auto encoder = std::make_shared<scanlib::encoder_rxpmarker>(
            file, scanlib::encoder_capacity, scanlib::encoder_headroom, true);
        scanlib::packet_emitter emitter(encoder);
        simulator::scan_settings settings;
        settings.shots = 500000;
        simulator::recorder(settings, emitter).run([](std::uint64_t) {});
        encoder->mark_end();
        encoder->flush();
        packets_ = emitter.packets();
        bytes_ = file->bytes_written();
    }
    recording(const recording&) = delete;
    recording& operator=(const recording&) = delete;
    ~recording() {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }

    std::string path() const { return path_.string(); }
    std::uint64_t packets() const { return packets_; }
    std::uint64_t bytes() const { return bytes_; }

  private:
    std::filesystem::path path_;
    std::uint64_t packets_ = 0;
    std::uint64_t bytes_ = 0;
};

const recording& input() {
    static const recording made;
    return made;
}

/// Prints the recording in pieces of text; returns the number of lines.
std::uint64_t dump(const host::dump_form& form, std::string& text) {
    const std::shared_ptr<scanlib::basic_rconnection> connection(
        scanlib::basic_rconnection::create(input().path(), "", ""));
    connection->open();
    scanlib::decoder_rxpmarker decoder(connection, scanlib::decoder_capacity,
                                       scanlib::decoder_headroom, true);
    scanlib::loss_log losses;
    host::dump_lines lines(form, losses);
    std::uint64_t n = 0;
    scanlib::basic_buffer packet;
    for (decoder.get(packet); !packet.empty(); decoder.get(packet)) {
        n += lines.take(packet.begin(), packet.end(), text) ? 1 : 0;
        if (text.size() > 65536) {
            benchmark::DoNotOptimize(text.data());
            text.clear();
        }
        if (decoder.packet_truncated()) {
            break;
        }
    }
    return n;
}

void dump_packets(benchmark::State& state, const host::dump_form& form, std::uint64_t wanted) {
    std::string text;
    if (dump(form, text) != wanted) {
        state.SkipWithError("not every packet that is asked for has its line");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(dump(form, text));
    }
    const auto rounds = static_cast<std::int64_t>(state.iterations());
    state.SetBytesProcessed(rounds * static_cast<std::int64_t>(input().bytes()));
}

void all(benchmark::State& state) {
    dump_packets(state, {}, input().packets());
}

void rare(benchmark::State& state) {
    host::dump_form form;
    form.selection = scanlib::packet_mask{}.set(scanlib::packet_index::meas_start);
    dump_packets(state, form, 1);
}

BENCHMARK(all)->Name("dump/all");
BENCHMARK(rare)->Name("dump/rare");

} // namespace
