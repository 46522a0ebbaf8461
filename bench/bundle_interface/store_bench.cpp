// Storing columns as fragments, against writing the same bytes to a plain file.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bundle_interface/skein.hpp"

namespace {

constexpr std::size_t rows = 100000;
constexpr unsigned fragments = 125; // 100 MB of 64-bit floats

std::filesystem::path file_for(const char* name) {
    return std::filesystem::temp_directory_path() / (std::string(name) + ".k7");
}

Holdfast::StrongPtr<Holdfast::Chunk<double>> times() {
    Holdfast::StrongPtr<Holdfast::Chunk<double>> chunk(new Holdfast::Chunk<double>(rows));
    std::generate_n(chunk->data(), rows, [t = 0.0]() mutable { return t += 1e-5; });
    return chunk;
}

void store_column(benchmark::State& state) {
    const auto path = file_for("store_bench");
    const Holdfast::StrongPtr<Skein::MemBase> array(new Skein::MemArray<1, double>(times()));
    Holdfast::StrongPtr<Skein::StorageTransformations> transformations;
    if (state.range(0) != 0) {
        transformations =
            Holdfast::StrongPtr<Skein::StorageTransformations>(new Skein::StorageTransformations);
        transformations->Shuffle = true;
        transformations->DeflateLevel = static_cast<std::uint32_t>(state.range(0));
    }
    std::uint64_t size = 0;
    for (auto _ : state) {
        Skein::Bundle bundle;
        bundle.bindToNew(path, transformations);
        const auto grid = (*bundle[0.0])["Shots"];
        const auto representation =
            grid->makeCartesianRepresentation(3, "StandardCartesianChart3D", 0);
        for (unsigned i = 0; i < fragments; ++i) {
            Skein::FieldProxy proxy =
                representation->makeField(representation->makeFieldID("GPSTime"), {}, {});
            const Holdfast::StrongPtr<Skein::Field>& field = proxy;
            field->setPersistentData(array, field->makeFragmentID("Fragment_" + std::to_string(i)),
                                     Holdfast::Cache::MemCache(), "");
            bundle.flush();
        }
        bundle.finish();
        size = bundle.fileSize();
    }
    if (state.range(0) == 0 && size < rows * sizeof(double) * fragments) {
        state.SkipWithError("the file is smaller than what was stored");
    }
    state.SetBytesProcessed(
        static_cast<std::int64_t>(state.iterations() * rows * sizeof(double) * fragments));
    std::filesystem::remove(path);
}
BENCHMARK(store_column)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

/// The floor: the same bytes, written to a plain file.
void write_plain_file(benchmark::State& state) {
    const auto path = file_for("store_bench_floor");
    const auto chunk = times();
    for (auto _ : state) {
        std::FILE* file = std::fopen(path.c_str(), "wb");
        if (file == nullptr) {
            state.SkipWithError("cannot create the file");
            break;
        }
        std::setvbuf(file, nullptr, _IONBF, 0);
        for (unsigned i = 0; i < fragments; ++i) {
            benchmark::DoNotOptimize(std::fwrite(chunk->raw(), sizeof(double), rows, file));
        }
        std::fclose(file);
    }
    state.SetBytesProcessed(
        static_cast<std::int64_t>(state.iterations() * rows * sizeof(double) * fragments));
    std::filesystem::remove(path);
}
BENCHMARK(write_plain_file)->Unit(benchmark::kMillisecond)->UseRealTime();

/// What a fragment costs beyond its bytes.
void store_single_rows(benchmark::State& state) {
    const auto path = file_for("store_bench_rows");
    Holdfast::StrongPtr<Holdfast::Chunk<double>> chunk(new Holdfast::Chunk<double>(1));
    const Holdfast::StrongPtr<Skein::MemBase> array(new Skein::MemArray<1, double>(chunk));
    const auto count = static_cast<unsigned>(state.range(0));
    for (auto _ : state) {
        Skein::Bundle bundle;
        bundle.bindToNew(path, {});
        const auto grid = (*bundle[0.0])["Shots"];
        const auto representation =
            grid->makeCartesianRepresentation(3, "StandardCartesianChart3D", 0);
        Skein::FieldProxy proxy =
            representation->makeField(representation->makeFieldID("GPSTime"), {}, {});
        const Holdfast::StrongPtr<Skein::Field>& field = proxy;
        for (unsigned i = 0; i < count; ++i) {
            field->setPersistentData(array, field->makeFragmentID("Fragment_" + std::to_string(i)),
                                     Holdfast::Cache::MemCache(), "");
            bundle.flush();
        }
        bundle.finish();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * count);
    std::filesystem::remove(path);
}
BENCHMARK(store_single_rows)->Arg(100)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
