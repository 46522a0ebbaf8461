#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "bundle_interface/k7_reader.hpp"

/// K7 files that the storage library agrees with and a reader of K7 files must not believe.
namespace odd_k7 {

/// Hands out the bytes of an input; zeros behind its end.
class Bytes {
  public:
    Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    bool empty() const { return at_ == size_; }
    unsigned next() { return empty() ? 0 : data_[at_++]; }
    /// A number below `count`.
    std::size_t below(std::size_t count) { return next() % count; }
    template<class T, std::size_t N>
    const T& pick(const std::array<T, N>& choices) {
        return choices[below(N)];
    }

  private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t at_ = 0;
};

/// Names that groups and arrays get, and that are asked for.
inline const std::array<std::string, 20> names = {"Slice_0",
                                                  "Shots",
                                                  "StandardCartesianChart3D",
                                                  "GPSTime",
                                                  "Fragment_0",
                                                  "Fragment_1",
                                                  "Fragment_4294967295",
                                                  "Fragment_4294967296",
                                                  "Fragment_01",
                                                  "Fragment_",
                                                  "Fragment_-1",
                                                  "Slice_1",
                                                  "Slice_00",
                                                  "OPP",
                                                  "Range",
                                                  "Waveforms",
                                                  "\n\x1b[31m\xff",
                                                  "..",
                                                  " ",
                                                  std::string(300, 'n')};

inline const std::array<std::string, 6> attribute_names = {"Format", "Time",   "Element",
                                                           "units",  "serial", "refltab"};

/// An array with nothing wrong with it, and what reading it must give.
struct Sound {
    std::string path;
    Skein::K7Type type;
    std::vector<std::uint64_t> shape;
};

/// Value `i` of each sound array.
inline std::uint8_t value(std::size_t i) {
    return static_cast<std::uint8_t>(i % 251);
}

/// Writes to `path` what the bytes tell, and lists the arrays that can be read.
std::vector<Sound> write(const char* path, Bytes& bytes);

/// Objects of the storage library that are open.
std::size_t open_objects();

} // namespace odd_k7
