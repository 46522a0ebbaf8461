#pragma once

#include <cstdint>
#include <random>

namespace simulator {

/// Random numbers that are the same for a seed wherever the program runs: the distributions of the
/// standard library are not, so that only its engine is used.
class random_source {
  public:
    explicit random_source(std::uint64_t seed) : engine_(seed) {}

    /// A whole number of 64 random bits.
    std::uint64_t bits() { return engine_(); }
    /// From 0 up to, not including, 1.
    double unit() { return static_cast<double>(engine_() >> 11) * 0x1p-53; }
    double between(double low, double high) { return low + (high - low) * unit(); }
    bool chance(double probability) { return unit() < probability; }

  private:
    std::mt19937_64 engine_;
};

} // namespace simulator
