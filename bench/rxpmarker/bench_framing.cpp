#include <memory>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "scanlib/rxpmarker.hpp"
#include "support/memory_connections.hpp"

namespace {

constexpr std::size_t stream_bytes = 64u << 20;

struct stream {
    std::vector<unsigned char> bytes;
    std::uint64_t packets = 0;
    std::uint64_t words = 0;
};

struct words_per_packet {
    std::size_t least;
    std::size_t most;
};

/// Packets of evenly spread sizes; `escapes` of 1000 body words need an escape.
stream make_stream(words_per_packet range, unsigned escapes) {
    std::mt19937 random(1);
    auto out = std::make_shared<test_support::memory_wconnection>();
    stream s;
    {
        scanlib::encoder_rxpmarker encoder(out, scanlib::encoder_capacity,
                                           scanlib::encoder_headroom, true);
        scanlib::basic_buffer area;
        encoder.put(area);
        for (; s.words * 4 < stream_bytes; ++s.packets) {
            const std::size_t words = range.least + random() % (range.most - range.least + 1);
            s.words += words;
            area.resize(words);
            *area.begin() = 0xFFFFFF01u;
            for (std::size_t i = 1; i < words; ++i) {
                area.begin()[i] = random() % 1000 < escapes
                                      ? 0xFFFFFF07u
                                      : static_cast<std::uint32_t>(random() >> 1);
            }
            encoder.put(area);
        }
    }
    s.bytes = out->bytes();
    return s;
}

struct count {
    std::uint64_t packets = 0;
    std::uint64_t words = 0;
};

count decode(const std::shared_ptr<scanlib::basic_rconnection>& connection) {
    scanlib::decoder_rxpmarker decoder(connection, scanlib::decoder_capacity,
                                       scanlib::decoder_headroom, true);
    scanlib::basic_buffer packet;
    count c;
    for (decoder.get(packet); !packet.empty(); decoder.get(packet)) {
        ++c.packets;
        c.words += packet.size();
    }
    return c;
}

void framing(benchmark::State& state, words_per_packet range, unsigned escapes) {
    const stream s = make_stream(range, escapes);
    const auto connection = std::make_shared<test_support::memory_rconnection>(s.bytes);
    const count c = decode(connection);
    if (c.packets != s.packets || c.words != s.words) {
        state.SkipWithError("the stream does not come back whole");
        return;
    }
    for (auto _ : state) {
        connection->seek(0);
        benchmark::DoNotOptimize(decode(connection));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(s.bytes.size()));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(s.packets));
}

constexpr words_per_packet small{4, 4};
constexpr words_per_packet large{256, 256};
constexpr words_per_packet mixed{4, 60};

BENCHMARK_CAPTURE(framing, words4, small, 0)->Name("framing/words4");
BENCHMARK_CAPTURE(framing, words256, large, 0)->Name("framing/words256");
BENCHMARK_CAPTURE(framing, mixed, mixed, 0)->Name("framing/mixed");
BENCHMARK_CAPTURE(framing, words4_escapes, small, 10)->Name("framing/words4/escapes");
BENCHMARK_CAPTURE(framing, words256_escapes, large, 10)->Name("framing/words256/escapes");

} // namespace
