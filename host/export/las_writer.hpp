#pragma once

#include "byte_output.hpp"
#include "point_writer.hpp"

#include <array>
#include <cstdint>
#include <string>

namespace host {

/// LAS 1.4, point format 6 with the reflectance as an extra float of each point. Layout and meaning
/// of the fields are those of the public description of the format.
///
/// Coordinates are stored to `scale` m as 32-bit numbers from an offset, the first point's place
/// rounded to kilometres. Points more than 214 km away from it along an axis are left out, and so
/// are those before the first one within 1e8 m of the origin.
class las_writer : public point_writer {
  public:
    /// `instrument` is told as the system. The output outlives it.
    las_writer(byte_output& to, std::string instrument);
    void write(std::span<const exported_point> points) override;
    std::string head() const override;

    static constexpr double scale = 0.0001;
    /// Intensity of an amplitude of 1 dB; it is 0 below 0 dB and where the amplitude is NaN.
    static constexpr double intensity_per_decibel = 100;
    static constexpr std::uint8_t most_returns = 15;

  private:
    using steps = std::array<std::int32_t, 3>; ///< coordinates in steps of the scale

    void choose_offset(const exported_point& p);
    bool quantise(const exported_point& p, steps& to) const;
    void write_point(const exported_point& p, const steps& place);

    byte_output& to_;
    std::string instrument_;
    std::array<double, 3> offset_{};
    bool has_offset_ = false;
    steps least_{};
    steps greatest_{};
    std::array<std::uint64_t, most_returns> by_return_{};
};

} // namespace host
