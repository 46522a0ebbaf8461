// A replayed recording over loopback TCP: what the client takes in, and what framing makes of it,
// in comparison with framing of the same bytes in memory. Sender and receiver share the machine.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include "replay_server.hpp"
#include "scanlib/connection.hpp"
#include "scanlib/rxpmarker.hpp"
#include "support/memory_connections.hpp"

namespace {

constexpr std::size_t stream_bytes = 256u << 20;
constexpr std::size_t packet_words = 64;
constexpr std::size_t read_bytes = 256u << 10;

std::vector<unsigned char> make_stream() {
    std::mt19937 random(1);
    auto out = std::make_shared<test_support::memory_wconnection>();
    {
        scanlib::encoder_rxpmarker encoder(out, scanlib::encoder_capacity,
                                           scanlib::encoder_headroom, true);
        scanlib::basic_buffer area;
        encoder.put(area);
        for (std::size_t bytes = 0; bytes < stream_bytes; bytes += packet_words * 4) {
            area.resize(packet_words);
            *area.begin() = 0xFFFFFF01u;
            for (std::size_t i = 1; i < packet_words; ++i) {
                area.begin()[i] = static_cast<std::uint32_t>(random() >> 1);
            }
            encoder.put(area);
        }
    }
    return out->bytes();
}

/// The stream, in a file that is gone with this object, and its server.
struct replayed {
    std::vector<unsigned char> bytes = make_stream();
    std::string path = "/tmp/bench_live_XXXXXX";
    std::unique_ptr<host::replay_server> server;

    replayed() {
        const host::file_handle file(::mkstemp(path.data()));
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t k = ::write(file.get(), bytes.data() + done, bytes.size() - done);
            if (k <= 0) {
                std::abort();
            }
            done += static_cast<std::size_t>(k);
        }
        server = std::make_unique<host::replay_server>(
            std::make_shared<const host::replay_recording>(path), "127.0.0.1", "0",
            host::replay_settings{});
        ::unlink(path.c_str());
    }

    std::shared_ptr<scanlib::basic_rconnection> connect(const std::string& encoding) const {
        std::shared_ptr<scanlib::basic_rconnection> c(scanlib::basic_rconnection::create(
            "rdtp://127.0.0.1:" + std::to_string(server->port()) + "/current?encoding=" + encoding,
            "", ""));
        c->open();
        return c;
    }
};

const replayed& source() {
    static const replayed r;
    return r;
}

bool arrives_whole(const std::string& encoding) {
    const auto c = source().connect(encoding);
    std::vector<char> all(source().bytes.size() + 1);
    c->read_all(all.data(), all.size());
    return c->gcount() == source().bytes.size() &&
           std::memcmp(all.data(), source().bytes.data(), source().bytes.size()) == 0;
}

std::uint64_t count_packets(const std::shared_ptr<scanlib::basic_rconnection>& connection) {
    scanlib::decoder_rxpmarker decoder(connection, scanlib::decoder_capacity,
                                       scanlib::decoder_headroom, true);
    scanlib::basic_buffer packet;
    std::uint64_t n = 0;
    for (decoder.get(packet); !packet.empty(); decoder.get(packet)) {
        ++n;
    }
    return n;
}

void set_bytes(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(source().bytes.size()));
}

void reading(benchmark::State& state, const std::string& encoding) {
    if (!arrives_whole(encoding)) {
        state.SkipWithError("the stream does not arrive whole");
        return;
    }
    std::vector<char> block(read_bytes);
    for (auto _ : state) {
        const auto c = source().connect(encoding);
        while (c->read(block.data(), block.size()) != 0) {
        }
    }
    set_bytes(state);
}

void framing(benchmark::State& state, const std::string& encoding) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(count_packets(source().connect(encoding)));
    }
    set_bytes(state);
}

void framing_in_memory(benchmark::State& state) {
    const auto connection = std::make_shared<test_support::memory_rconnection>(source().bytes);
    for (auto _ : state) {
        connection->seek(0);
        benchmark::DoNotOptimize(count_packets(connection));
    }
    set_bytes(state);
}

BENCHMARK_CAPTURE(reading, plain, "plain")->Name("rdtp/read/plain")->UseRealTime();
BENCHMARK_CAPTURE(reading, chunked, "chunked")->Name("rdtp/read/chunked")->UseRealTime();
BENCHMARK_CAPTURE(framing, plain, "plain")->Name("rdtp/framing/plain")->UseRealTime();
BENCHMARK_CAPTURE(framing, chunked, "chunked")->Name("rdtp/framing/chunked")->UseRealTime();
BENCHMARK(framing_in_memory)->Name("rdtp/framing/memory")->UseRealTime();

} // namespace
