// Writes bundles for the checks with an independent reader:
//   bundle_writer sample PATH [plain|deflate]   one of every kind of array and attribute
//   bundle_writer endless PATH ROWS             fragments until killed; prints each number once it
//   is flushed
//   bundle_writer finish PATH ROWS COUNT        that many fragments; prints a line before the
//   finish
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include <unistd.h>

#include "bundle_builder.hpp"
#include "bundle_interface/rdb2skein.hpp"

namespace {

using namespace bundle_test;
using Tern::PhysicalSpace::point;
using Tern::PhysicalSpace::vector;

constexpr std::size_t sample_rows = 7;

StrongPtr<Skein::StorageTransformations> transformations(const std::string& kind) {
    if (kind != "deflate") {
        return {};
    }
    StrongPtr<Skein::StorageTransformations> made(new Skein::StorageTransformations);
    made->ChunkRows = 3;
    made->Shuffle = true;
    made->DeflateLevel = 4;
    return made;
}

Riegl::AttributesForFWFProcessing sample_attributes() {
    Riegl::AttributesForFWFProcessing a;
    a.group_velocity = 299702547.0;
    a.sampling_time = 2e-9;
    a.wavelength = 1064.0;
    a.t_ref = 1.5e-7;
    a.unambiguous_range = 500.0;
    a.refltab_delta = 0.125;
    a.ampl_unit = 0.25;
    a.serial = "S1234567";
    a.type_id = "kind \xC3\xA4";
    a.build = "b-1";
    a.refltab = StrongPtr<Chunk<float>>(new Chunk<float>(20000));
    for (std::size_t i = 0; i < a.refltab->size(); ++i) {
        (*a.refltab)[i] = static_cast<float>(i) / 4;
    }
    a.pulse_A_real = StrongPtr<Chunk<double>>(new Chunk<double>(3));
    (*a.pulse_A_real)[2] = -1.5;
    return a;
}

void write_sample(const std::string& path, const std::string& kind) {
    const Skein::BundlePtr bundle(new Skein::Bundle);
    bundle->bindToNew(path, transformations(kind));
    const auto shots = shots_of(*bundle);
    const auto coordinates = [](std::size_t i) {
        const auto x = static_cast<double>(i);
        return point{x, x + 0.5, -x};
    };
    const auto direction = [](std::size_t i) {
        const auto x = static_cast<double>(i);
        return vector{x, 0, 1};
    };
    const auto times = field_of(shots, "GPSTime");
    store(times, 0, counting(sample_rows, 100));
    store(times, 1, counting(0));
    store(times, 5, counting(2, 0.25));
    StrongPtr<Chunk<unsigned char>> added(new Chunk<unsigned char>(1));
    times->attributes.setAttribute("LeapSecondsAdded?", StrongPtr<Holdfast::ChunkBase>(added));
    store(field_of(shots, "Positions"), 0, column<point>(sample_rows, coordinates));
    store(field_of(shots, "Waveforms.DirectionDelta"), 0, column<vector>(sample_rows, direction));
    store(field_of(shots, "Amplitude"), 0,
          column<float>(sample_rows, [](std::size_t i) { return static_cast<float>(i) / 2; }));
    store(field_of(shots, "Channel"), 0, column<unsigned char>(sample_rows, [](std::size_t i) {
              return static_cast<unsigned char>(i);
          }));
    const auto waveforms = field_of(shots, "Waveforms");
    store(waveforms, 0, counting_rows(sample_rows, 5));
    store(waveforms, 1, counting_rows(sample_rows, 0));
    field_of(shots, "Reflectance");
    bundle->flush();
    const std::string text = sample_attributes().addAttributeToK7File({}, shots, {}, {}, -1);
    if (!text.empty()) {
        throw std::runtime_error(text);
    }
    bundle->finish();
}

const Skein::BundlePtr written(const std::string& path, std::size_t rows, unsigned long count,
                               bool tell) {
    Skein::BundlePtr bundle(new Skein::Bundle);
    bundle->bindToNew(path, {});
    const auto shots = shots_of(*bundle);
    for (unsigned fragment = 0; fragment < count; ++fragment) {
        for (const char* name : {"GPSTime", "Range", "Amplitude", "Channel"}) {
            store(field_of(shots, name), fragment, counting(rows, fragment));
        }
        bundle->flush();
        if (tell) {
            std::printf("%u\n", fragment);
            std::fflush(stdout);
        }
    }
    return bundle;
}

void write_endless(const std::string& path, std::size_t rows, unsigned long count) {
    const Skein::BundlePtr bundle = written(path, rows, count, true);
    for (;;) {
        pause();
    }
}

void write_finished(const std::string& path, std::size_t rows, unsigned long count) {
    const Skein::BundlePtr bundle = written(path, rows, count, false);
    const std::string text =
        sample_attributes().addAttributeToK7File({}, shots_of(*bundle), {}, {}, -1);
    if (!text.empty()) {
        throw std::runtime_error(text);
    }
    bundle->flush();
    std::puts("finishing");
    std::fflush(stdout);
    bundle->finish();
}

} // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 2 ? argv[1] : "";
    const std::string last = argc > 3 ? argv[3] : "";
    const unsigned long count = std::strtoul(argc > 4 ? argv[4] : "0", nullptr, 10);
    try {
        if (mode == "sample") {
            write_sample(argv[2], last);
        } else if (mode == "endless") {
            write_endless(argv[2], std::strtoul(last.c_str(), nullptr, 10), count);
        } else if (mode == "finish") {
            write_finished(argv[2], std::strtoul(last.c_str(), nullptr, 10), count);
        } else {
            std::fprintf(stderr, "bundle_writer sample|endless|finish PATH ...\n");
            return 2;
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    return 0;
}
