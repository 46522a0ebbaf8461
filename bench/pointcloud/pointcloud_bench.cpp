#include "scanlib/packet_writers.hpp"
#include "scanlib/pointcloud.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

using namespace scanlib;

namespace {

/// Packets in one run of words, under the heads that a recording has.
struct packet_run {
    std::vector<std::uint32_t> words;
    std::vector<std::pair<std::size_t, std::size_t>> packets;

    template<class Writer, class Fill>
    void add(std::uint32_t code, Fill&& fill, std::size_t elements = 0) {
        const std::size_t begin = words.size();
        words.push_back(0xFFFFFF00 | code);
        if (code == 0xFF) {
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

constexpr std::uint32_t shot_code = 1;
constexpr std::uint32_t echo_code = 2;
constexpr std::uint32_t long_code = 0xFF;

/// Codes, units, a reflectance table, atmosphere and a wheel of three facets.
packet_run instrument() {
    packet_run run;
    run.add<packets::header_writer>(
        long_code,
        [](auto& w) {
            w.element(0).id(10);
            w.element(0).version(2);
            w.element(1).id(42);
        },
        2);
    run.add<packets::units_writer>(long_code, [](auto& w) {
        w.range_unit(0.0005F);
        w.line_circle_count(921600);
        w.frame_circle_count(921600);
        w.systime_unit(1e-07F);
    });
    run.add<packets::atmosphere_3_writer>(long_code, [](auto& w) {
        w.group_velocity(299702560.0F);
        w.attenuation(0.05F);
    });
    run.add<packets::reftab_table_writer>(
        long_code,
        [](auto& w) {
            w.step_counter(10000);
            for (std::size_t i = 0; i < 600; ++i) {
                w.element(i, static_cast<std::int16_t>(i));
            }
        },
        600);
    run.add<packets::device_geometry_writer>(
        long_code,
        [](auto& w) {
            w.laser_direction(2, 1.0F);
            w.mirror_axis_direction(0, 1.0F);
            for (std::size_t i = 0; i < 3; ++i) {
                w.element(i).normal(2, 1.0F);
                w.element(i).dist(0.03F);
            }
        },
        3);
    return run;
}

/// A line of shots, each of them with `echoes` echoes.
packet_run line(std::uint32_t shots, std::uint32_t echoes) {
    packet_run run;
    for (std::uint32_t s = 0; s < shots; ++s) {
        run.add<packets::laser_shot_2angles_writer>(shot_code, [&](auto& w) {
            w.time_counter(100 * s);
            w.line_counter(97 * s % 921600);
            w.frame_counter(1234);
        });
        for (std::uint32_t e = 0; e < echoes; ++e) {
            run.add<packets::echo_writer>(echo_code, [&](auto& w) {
                w.range_counter(static_cast<std::int32_t>(20000 + 4000 * e + s));
                w.amplitude(static_cast<std::uint16_t>(500 + s));
                w.reflectance(static_cast<std::int16_t>(s % 100));
            });
        }
    }
    return run;
}

/// Adds up what is reported, so that none of it can be left out.
class summing_cloud : public pointcloud {
  public:
    summing_cloud() : pointcloud(false) { instrument().feed(*this); }
    double sum = 0;
    std::uint64_t echoes = 0;
    std::uint32_t zone = 0; ///< farthest one seen

  protected:
    void on_shot() override { sum += beam_direction[2]; }
    void on_echo_ready(echo_position /*position*/) override {
        const target& t = newest_target();
        sum += t.echo_range + t.reflectance + t.vertex[2];
        zone = std::max<std::uint32_t>(zone, t.mta_zone);
        ++echoes;
    }
};

/// Echoes of shots with four of them each: reflectance table, attenuation and the point of a mirror
/// wheel.
void targets_plain(benchmark::State& state) {
    summing_cloud cloud;
    const packet_run run = line(1000, 4);
    for (auto _ : state) {
        run.feed(cloud);
    }
    benchmark::DoNotOptimize(cloud.sum);
    state.SetItemsProcessed(static_cast<std::int64_t>(cloud.echoes));
}
BENCHMARK(targets_plain)->Name("targets/plain");

/// Shots without echoes: time and the beam of a mirror wheel.
void shots_mirrorwheel(benchmark::State& state) {
    summing_cloud cloud;
    const packet_run run = line(1000, 0);
    for (auto _ : state) {
        run.feed(cloud);
    }
    benchmark::DoNotOptimize(cloud.sum);
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(shots_mirrorwheel)->Name("shots/mirrorwheel");

/// Echoes of shots with four of them each, as targets/plain, whose zone is searched among five.
void targets_mta(benchmark::State& state) {
    summing_cloud cloud;
    constexpr std::uint32_t ticks_per_shot = 1U << 23; // 1.6 us, or 240 m
    packet_run settings;
    settings.add<packets::mta_settings_1_writer>(long_code, [](auto& w) {
        w.gate_low(700.0F);
        w.gate_high(1100.0F);
        w.unambiguous_range(240.0F);
    });
    settings.feed(cloud);
    packet_run run;
    for (std::uint32_t s = 0; s < 1000; ++s) {
        run.add<packets::laser_shot_2angles_hr_writer>(long_code, [&](auto& w) {
            w.time_counter_hr(std::uint64_t{ticks_per_shot} * (s + 1));
            w.line_counter(97 * s % 921600);
            w.frame_counter(1234);
        });
        for (std::uint32_t e = 0; e < 4; ++e) {
            run.add<packets::echo_writer>(echo_code, [&](auto& w) {
                w.range_counter(static_cast<std::int32_t>(20000 + 40000 * e + s));
                w.amplitude(static_cast<std::uint16_t>(500 + s));
                w.reflectance(static_cast<std::int16_t>(s % 100));
            });
        }
    }
    run.feed(cloud);
    if (!(cloud.zone > 2)) {
        state.SkipWithError("no echo lay in a far zone");
    }
    cloud.echoes = 0;
    for (auto _ : state) {
        run.feed(cloud);
    }
    benchmark::DoNotOptimize(cloud.sum);
    state.SetItemsProcessed(static_cast<std::int64_t>(cloud.echoes));
}
BENCHMARK(targets_mta)->Name("targets/mta");

} // namespace
