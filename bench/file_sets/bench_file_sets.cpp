#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "scanlib/connection.hpp"
#include "scanlib/file_set.hpp"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t stream_bytes = 128u << 20;
constexpr std::uint32_t files_of_set = 5;

/// The same bytes as one file and as a set; both in the page cache, for they were just written.
class recordings {
  public:
    recordings() {
        std::string name = (fs::temp_directory_path() / "bench_file_setsXXXXXX").string();
        folder_ = mkdtemp(name.data());
        std::mt19937_64 random(1);
        std::vector<std::uint64_t> words(stream_bytes / sizeof(std::uint64_t));
        for (std::uint64_t& w : words) {
            w = random();
        }
        const char* const bytes = reinterpret_cast<const char*>(words.data());
        write(whole(), bytes, stream_bytes);
        const scanlib::file_set_names names(set());
        for (std::uint32_t i = 0; i < files_of_set; ++i) {
            const std::size_t begin = stream_bytes / files_of_set * i;
            const std::size_t end =
                i + 1 == files_of_set ? stream_bytes : stream_bytes / files_of_set * (i + 1);
            write(names.continuation(i), bytes + begin, end - begin);
        }
    }
    recordings(const recordings&) = delete;
    recordings& operator=(const recordings&) = delete;
    ~recordings() { fs::remove_all(folder_); }

    std::string whole() const { return (folder_ / "whole.rxp").string(); }
    std::string set() const { return (folder_ / "set.rxp").string(); }

  private:
    static void write(const std::string& name, const char* bytes, std::size_t n) {
        std::ofstream(name, std::ios::binary).write(bytes, static_cast<std::streamsize>(n));
    }

    fs::path folder_;
};

struct pass {
    std::uint64_t bytes = 0;
    std::uint64_t sum = 0; ///< of one byte of each read
    double seconds = 0;
};

/// Reads a stream to its end; the buffer is filled before it is used, as framing does.
pass read_through(const std::string& path, std::vector<char>& buffer) {
    const auto begin = std::chrono::steady_clock::now();
    const std::shared_ptr<scanlib::basic_rconnection> connection(
        scanlib::basic_rconnection::create(path, "", ""));
    pass p;
    std::uint64_t filled = 0;
    while (const std::uint64_t k =
               connection->read(buffer.data() + filled, buffer.size() - filled)) {
        p.bytes += k;
        filled += k;
        if (filled == buffer.size()) {
            p.sum = p.sum * 31 + static_cast<unsigned char>(buffer.back());
            filled = 0;
        }
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    p.seconds = took.count();
    return p;
}

/// Reads the set and the one file in turns. "ratio" is the time of the set over that of the file.
void file_set(benchmark::State& state, std::size_t read_bytes) {
    const recordings files;
    std::vector<char> buffer(read_bytes);
    const pass whole = read_through(files.whole(), buffer);
    const pass set = read_through(files.set(), buffer);
    if (whole.bytes != stream_bytes || set.bytes != whole.bytes || set.sum != whole.sum) {
        state.SkipWithError("the set does not read as the whole file");
        return;
    }
    double whole_seconds = 0;
    double set_seconds = 0;
    for (auto _ : state) {
        set_seconds += read_through(files.set(), buffer).seconds;
        state.PauseTiming();
        whole_seconds += read_through(files.whole(), buffer).seconds;
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(stream_bytes));
    state.counters["ratio"] = set_seconds / whole_seconds;
}

BENCHMARK_CAPTURE(file_set, reads4K, 4096)->Name("file-sets/set-of-5/reads4K");
BENCHMARK_CAPTURE(file_set, reads1M, 1u << 20)->Name("file-sets/set-of-5/reads1M");

} // namespace
