// Staging rows by index, without storing them.
#include <cstdint>
#include <filesystem>
#include <vector>

#include <benchmark/benchmark.h>

#include "staging.hpp"

namespace {

constexpr std::uint32_t rows = 100000;

Riegl::Input input() {
    Riegl::Input made;
    made.OutDir = std::filesystem::temp_directory_path();
    made.FragSize = rows;
    made.Exported_FWF_LENGTH = 256;
    return made;
}

/// Rows of "Shots", the staging object renewed for each fragment as in a conversion.
void stage_shots(benchmark::State& state) {
    const Riegl::Input parameters = input();
    Riegl::BundleWriter writer("staging_bench.rxp", parameters);
    for (auto _ : state) {
        writer.prepare_fragment(rows, 256);
        Riegl::ShotsStaging& shots = writer.shots();
        for (std::uint32_t i = 0; i < rows; ++i) {
            const double t = i * 1e-5;
            shots.ensure_row(i);
            shots.column<"GPSTime">()[i] = t;
            shots.column<"Waveforms.DirectionDelta">()[i] = {t, 0, 1};
            shots.column<"Positions">()[i] = {1, 2, t};
        }
        benchmark::ClobberMemory();
        if (writer.last_shot_time() != (rows - 1) * 1e-5) {
            state.SkipWithError("a row is missing");
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * rows);
    writer.finish();
    std::filesystem::remove(parameters.OutDir / "staging_bench.k7");
}
BENCHMARK(stage_shots)->Unit(benchmark::kMillisecond);

void stage_waveforms(benchmark::State& state) {
    const Riegl::Input parameters = input();
    Riegl::BundleWriter writer("staging_bench.rxp", parameters);
    const std::vector<unsigned short> samples(static_cast<std::size_t>(state.range(0)), 7);
    for (auto _ : state) {
        writer.prepare_fragment(rows, 256);
        Riegl::WaveformsStaging& waveforms = writer.waveforms();
        auto& column = waveforms.column<"Waveforms">();
        for (std::uint32_t i = 0; i < rows; ++i) {
            waveforms.ensure_row(i);
            column.assign(i, samples.data(), samples.size());
        }
        benchmark::DoNotOptimize(column.cell(rows - 1, 0));
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * rows);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * rows * state.range(0) *
                            2);
    writer.finish();
    std::filesystem::remove(parameters.OutDir / "staging_bench.k7");
}
BENCHMARK(stage_waveforms)->Arg(60)->Arg(240)->Unit(benchmark::kMillisecond);

} // namespace
