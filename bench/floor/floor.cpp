// floor INPUT OUTPUT SHOTS ECHOES [WAVEFORMS WIDTH [FRAGMENT_ROWS]]: the least that a conversion
// must do: reads the input once and writes the same columns, without decoding anything. What a
// conversion takes beyond it is the price of its work.
#include <algorithm>
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

class waveform_column : public column {
  public:
    waveform_column(Skein::Representation& representation, const std::string& name,
                    std::size_t rows, std::size_t width)
        : width_(width), chunk_(new Holdfast::Chunk<unsigned short>(rows * width)) {
        Skein::FieldProxy proxy =
            representation.makeField(representation.makeFieldID(name), {}, {});
        field_ = static_cast<Holdfast::StrongPtr<Skein::Field>&>(proxy);
    }
    void store(const std::string& fragment, std::size_t rows) override {
        const Holdfast::StrongPtr<Skein::MemBase> array(
            new Skein::MemArray<2, unsigned short>(chunk_, rows, width_));
        field_->setPersistentData(array, field_->makeFragmentID(fragment), {}, "");
    }

  private:
    std::size_t width_;
    Holdfast::StrongPtr<Holdfast::Chunk<unsigned short>> chunk_;
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

columns waveform_columns(Skein::Representation& r, std::size_t rows, std::size_t width) {
    columns c;
    c.push_back(std::make_unique<typed_column<double>>(r, "GPSTime", rows));
    c.push_back(std::make_unique<typed_column<unsigned short>>(r, "FWFLength", rows));
    c.push_back(std::make_unique<waveform_column>(r, "Waveforms", rows, width));
    c.push_back(std::make_unique<typed_column<unsigned char>>(r, "Channel", rows));
    c.push_back(std::make_unique<typed_column<double>>(r, "SBL_Time", rows));
    c.push_back(std::make_unique<typed_column<point>>(r, "Positions", rows));
    return c;
}

/// Rows of each grid, and samples of a waveform.
struct extent {
    std::size_t shots;
    std::size_t echoes;
    std::size_t waveforms;
    std::size_t width;
};

/// What belongs to fragment `n` of `count`, where grids are cut together.
std::size_t part(std::size_t rows, std::size_t n, std::size_t count) {
    return rows * (n + 1) / count - rows * n / count;
}

void store(const columns& grid, const std::string& fragment, std::size_t rows) {
    for (const auto& c : grid) {
        if (rows > 0) {
            c->store(fragment, rows);
        }
    }
}

void write_output(const std::string& path, const extent& all, std::size_t fragment_rows) {
    Skein::BundlePtr bundle(new Skein::Bundle);
    bundle->bindToNew(path, {});
    const auto slice = bundle.create()[0.0];
    const auto chart = [&](const char* grid) {
        return (*slice)[grid]->makeCartesianRepresentation(3, "StandardCartesianChart3D", 0);
    };
    const auto shots_chart = chart("Shots");
    const auto opp_chart = chart("OPP");
    const auto waveforms_chart = chart("Waveforms");
    const columns of_shots = shots_columns(*shots_chart, fragment_rows);
    const columns of_opp = opp_columns(*opp_chart, fragment_rows);
    const columns of_waveforms = waveform_columns(*waveforms_chart, fragment_rows, all.width);
    const std::size_t most = std::max({all.shots, all.echoes, all.waveforms});
    const std::size_t fragments = (most + fragment_rows - 1) / fragment_rows;
    for (std::size_t n = 0; n < fragments; ++n) {
        const std::string fragment = "Fragment_" + std::to_string(n);
        store(of_shots, fragment, part(all.shots, n, fragments));
        store(of_opp, fragment, part(all.echoes, n, fragments));
        store(of_waveforms, fragment, part(all.waveforms, n, fragments));
    }
    bundle->finish();
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: floor INPUT OUTPUT SHOTS ECHOES [WAVEFORMS WIDTH "
                             "[FRAGMENT_ROWS]]\n");
        return 2;
    }
    const auto number = [&](int i, std::size_t otherwise) {
        return argc > i ? static_cast<std::size_t>(std::strtoull(argv[i], nullptr, 10)) : otherwise;
    };
    try {
        std::printf("%llu\n", static_cast<unsigned long long>(read_input(argv[1])));
        write_output(argv[2], {number(3, 0), number(4, 0), number(5, 0), number(6, 0)},
                     number(7, 100000));
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "floor: %s\n", e.what());
        return 1;
    }
}
