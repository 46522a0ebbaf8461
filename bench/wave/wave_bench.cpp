#include "scanlib/packet_writers.hpp"
#include "scanlib/sample_codec.hpp"
#include "scanlib/wave.hpp"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

using namespace scanlib;

namespace {

constexpr unsigned resolution = 12;
constexpr std::uint32_t shots_in_run = 1000;
constexpr std::uint64_t ticks_between_shots = 5242880; ///< 1 us
constexpr std::uint32_t header_code = 1;
constexpr std::uint32_t data_code = 2;
constexpr std::uint32_t shot_code = 3;
constexpr std::uint32_t long_code = 0xFF;

/// Packets in one run of words, under the heads that a recording has.
struct packet_run {
    std::vector<std::uint32_t> words;
    std::vector<std::pair<std::size_t, std::size_t>> packets;

    template<class Writer, class Fill>
    void add(std::uint32_t code, Fill&& fill, std::size_t elements = 0) {
        const std::size_t begin = words.size();
        words.push_back(0xFFFFFF00 | code);
        if (code == long_code) {
            words.push_back(Writer::id << 16 | Writer::version);
        }
        const std::size_t payload = words.size();
        words.resize(payload + Writer::words(elements));
        Writer writer(words.data() + payload);
        fill(writer);
        packets.emplace_back(begin, words.size());
    }

    void feed(basic_packets& consumer) const {
        for (const auto& [begin, end] : packets) {
            consumer.dispatch(words.data() + begin, words.data() + end);
        }
    }
};

enum class form { packed, compressed };

template<form Form>
using data_writer = std::conditional_t<Form == form::packed, packets::sbl_dg_channel_data_writer,
                                       packets::sbl_dg_channel_data_compressed_writer>;

/// A pulse above some noise.
std::vector<std::uint16_t> pulse(std::size_t length, std::uint32_t seed) {
    std::vector<std::uint16_t> samples(length);
    for (std::size_t i = 0; i < length; ++i) {
        const double x = (static_cast<double>(i) - static_cast<double>(length) / 2) / 4;
        const std::uint32_t noise = (seed + static_cast<std::uint32_t>(i)) * 2654435761U >> 29;
        samples[i] = static_cast<std::uint16_t>(40 + noise + 2000 * std::exp(-x * x));
    }
    return samples;
}

/// Codes, units and four channels.
template<form Form>
packet_run instrument() {
    packet_run run;
    run.add<packets::header_writer>(
        long_code,
        [](auto& w) {
            w.element(0).id(packets::sbl_dg_channel_header_1_writer::id);
            w.element(1).id(data_writer<Form>::id);
            w.element(2).id(packets::laser_shot_2angles_hr_writer::id);
        },
        3);
    run.add<packets::units_writer>(long_code, [](auto& w) {
        w.range_unit(0.0005F);
        w.line_circle_count(921600);
        w.frame_circle_count(921600);
        w.systime_unit(1e-07F);
    });
    const char* names[] = {"high_power", "low_power", "super_high_power", "reference"};
    for (std::uint8_t i = 0; i < 4; ++i) {
        run.add<packets::sbl_dg_channel_writer>(long_code, [&](auto& w) {
            w.channel(i);
            w.name(names[i]);
            w.adc_resolution_bits(resolution);
            w.sampling_rate(1e9);
        });
    }
    return run;
}

/// A shot's samples of one channel; returns how many they are.
template<form Form>
std::size_t add_samples(packet_run& run, std::uint8_t channel,
                        const std::vector<std::uint16_t>& samples) {
    std::vector<std::uint32_t> words;
    unsigned last = 0;
    bool odd = false;
    if constexpr (Form == form::packed) {
        last = pack_samples(samples, resolution, words);
    } else {
        std::vector<std::uint16_t> words16;
        compress_samples(samples, resolution, words16);
        odd = words16.size() % 2 == 1;
        words.resize((words16.size() + 1) / 2);
        for (std::size_t i = 0; i < words16.size(); ++i) {
            words[i / 2] |= std::uint32_t{words16[i]} << (i % 2 * 16);
        }
    }
    run.add<data_writer<Form>>(
        data_code,
        [&](auto& w) {
            w.block_field(-10);
            w.channel(channel);
            if constexpr (Form == form::packed) {
                w.bit_width(resolution);
                w.last_word_bits(static_cast<std::uint8_t>(last % 32));
            } else {
                w.odd(odd ? 1 : 0);
            }
            for (std::size_t i = 0; i < words.size(); ++i) {
                w.element(i, words[i]);
            }
        },
        words.size());
    return samples.size();
}

/// Shots with a block of three channels each, of 60 to 200 samples.
struct shot_run {
    packet_run run;
    std::size_t samples = 0;
};

template<form Form>
shot_run shots() {
    shot_run made;
    for (std::uint32_t s = 0; s < shots_in_run; ++s) {
        made.run.add<packets::sbl_dg_channel_header_1_writer>(
            header_code, [&](auto& w) { w.time_counter_hr(s * ticks_between_shots); }, 2);
        for (const std::uint8_t channel : {std::uint8_t{0}, std::uint8_t{1}, std::uint8_t{3}}) {
            const std::size_t length = 60 + (s * 37 + channel * 53U) % 141;
            made.samples += add_samples<Form>(made.run, channel, pulse(length, s));
        }
        made.run.add<packets::laser_shot_2angles_hr_writer>(shot_code, [&](auto& w) {
            w.time_counter_hr(s * ticks_between_shots);
            w.line_counter(97 * s % 921600);
        });
    }
    return made;
}

/// Looks at each record, as a consumer that copies it would.
class counting_wave : public wave {
  public:
    explicit counting_wave(bool uncompress) : wave(false, uncompress) {}
    std::size_t samples = 0;
    std::uint64_t sum = 0;

  protected:
    void on_wave(wave_block& block) override {
        for (const wave_record& r : block.records) {
            samples += r.samples.size();
            sum += r.samples.empty() ? 0U : r.samples.back();
        }
    }
};

/// From packets to blocks with their shots.
template<form Form, bool Uncompress>
void waves(benchmark::State& state) {
    counting_wave consumer(Uncompress);
    instrument<Form>().feed(consumer);
    const shot_run made = shots<Form>();
    made.run.feed(consumer);
    // The last shot ends with the next run, and compressed groups have eight samples.
    const bool whole = Form == form::packed || Uncompress;
    if (whole && consumer.samples + 3 * 200 < made.samples) {
        state.SkipWithError("samples are missing");
        return;
    }
    for (auto _ : state) {
        made.run.feed(consumer);
    }
    benchmark::DoNotOptimize(consumer.sum);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(made.samples));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(made.run.words.size()) *
                            4);
}
BENCHMARK(waves<form::packed, false>)->Name("waves/packed");
BENCHMARK(waves<form::compressed, true>)->Name("waves/compressed");
BENCHMARK(waves<form::compressed, false>)->Name("waves/compressed-kept");

/// Samples of one width alone.
void unpack(benchmark::State& state) {
    const auto width = static_cast<unsigned>(state.range(0));
    const std::vector<std::uint16_t> samples = pulse(130, 1);
    std::vector<std::uint32_t> words;
    const unsigned last = pack_samples(samples, width, words);
    const std::size_t bits = (words.size() - 1) * 32 + last;
    std::vector<std::uint16_t> out(packed_sample_count(bits, width));
    for (auto _ : state) {
        unpack_samples(words.data(), out.size(), width, out.data());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    for (std::size_t i = 0; i < out.size(); ++i) {
        if (out[i] != (samples[i] & ((1U << width) - 1))) {
            state.SkipWithError("wrong samples");
            return;
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(out.size()));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(words.size()) * 4);
}
BENCHMARK(unpack)->Name("waves/unpack")->Arg(5)->DenseRange(8, 12)->Arg(14)->Arg(16);

} // namespace
