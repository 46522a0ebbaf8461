// floor INPUT OUTPUT SHOTS ECHOES [FRAGMENT_ROWS]: the least that a conversion must do: reads the
// input once and writes the same columns, without decoding anything. What a conversion takes beyond
// it is the price of its work.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bundle_interface/holdfast.hpp"
#include "bundle_interface/skein.hpp"
#include "bundle_interface/tern.hpp"

namespace {

using Tern::PhysicalSpace::point;
using Tern::PhysicalSpace::vector;

constexpr std::size_t read_size = 262144;

/// Sum of the input's words, so that the reading cannot be left out.
std::uint64_t read_input(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> buffer(read_size);
    std::uint64_t sum = 0;
    while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || in.gcount() > 0) {
        sum += static_cast<unsigned char>(buffer[0]) + static_cast<std::uint64_t>(in.gcount());
    }
    return sum;
}

/// One column: its field and one fragment's worth of rows, filled once.
class column {
  public:
    virtual ~column() = default;
    virtual void store(const std::string& fragment, std::size_t rows) = 0;
};

template<class T>
class typed_column : public column {
  public:
    typed_column(Skein::Representation& representation, const std::string& name, std::size_t rows)
        : chunk_(new Holdfast::Chunk<T>(rows)) {
        Skein::FieldProxy proxy =
            representation.makeField(representation.makeFieldID(name), {}, {});
        field_ = static_cast<Holdfast::StrongPtr<Skein::Field>&>(proxy);
    }
    void store(const std::string& fragment, std::size_t rows) override {
        const Holdfast::StrongPtr<Skein::MemBase> array(new Skein::MemArray<1, T>(chunk_, rows, 1));
        field_->setPersistentData(array, field_->makeFragmentID(fragment), {}, "");
    }

  private:
    Holdfast::StrongPtr<Holdfast::Chunk<T>> chunk_;
    Holdfast::StrongPtr<Skein::Field> field_;
};

using columns = std::vector<std::unique_ptr<column>>;

columns shots_columns(Skein::Representation& r, std::size_t rows) {
    columns c;
    c.push_back(std::make_unique<typed_column<double>>(r, "GPSTime", rows));
    c.push_back(std::make_unique<typed_column<vector>>(r, "Waveforms.DirectionDelta", rows));
    c.push_back(std::make_unique<typed_column<point>>(r, "Positions", rows));
    return c;
}

columns opp_columns(Skein::Representation& r, std::size_t rows) {
    columns c;
    c.push_back(std::make_unique<typed_column<double>>(r, "GPSTime", rows));
    c.push_back(std::make_unique<typed_column<double>>(r, "Range", rows));
    c.push_back(std::make_unique<typed_column<float>>(r, "Amplitude", rows));
    c.push_back(std::make_unique<typed_column<unsigned char>>(r, "Channel", rows));
    c.push_back(std::make_unique<typed_column<point>>(r, "Positions", rows));
    c.push_back(std::make_unique<typed_column<float>>(r, "Reflectance", rows));
    return c;
}

void write_output(const std::string& path, std::size_t shots, std::size_t echoes,
                  std::size_t fragment_rows) {
    Skein::BundlePtr bundle(new Skein::Bundle);
    bundle->bindToNew(path, {});
    const auto slice = bundle.create()[0.0];
    const auto chart = [&](const char* grid) {
        return (*slice)[grid]->makeCartesianRepresentation(3, "StandardCartesianChart3D", 0);
    };
    const auto shots_chart = chart("Shots");
    const auto opp_chart = chart("OPP");
    const columns of_shots = shots_columns(*shots_chart, fragment_rows);
    const columns of_opp = opp_columns(*opp_chart, fragment_rows);
    for (std::size_t n = 0; shots > 0 || echoes > 0; ++n) {
        const std::string fragment = "Fragment_" + std::to_string(n);
        const std::size_t s = std::min(shots, fragment_rows);
        const std::size_t e = std::min(echoes, fragment_rows);
        for (const auto& c : of_shots) {
            if (s > 0) {
                c->store(fragment, s);
            }
        }
        for (const auto& c : of_opp) {
            if (e > 0) {
                c->store(fragment, e);
            }
        }
        shots -= s;
        echoes -= e;
    }
    bundle->finish();
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: floor INPUT OUTPUT SHOTS ECHOES [FRAGMENT_ROWS]\n");
        return 2;
    }
    try {
        std::printf("%llu\n", static_cast<unsigned long long>(read_input(argv[1])));
        write_output(argv[2], std::strtoull(argv[3], nullptr, 10),
                     std::strtoull(argv[4], nullptr, 10),
                     argc > 5 ? std::strtoull(argv[5], nullptr, 10) : 100000);
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "floor: %s\n", e.what());
        return 1;
    }
}
