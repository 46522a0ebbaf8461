#pragma once

#include "byte_output.hpp"
#include "point_writer.hpp"

#include <string>

namespace host {

/// PLY 1.0, binary, lowest byte first: vertices alone, with coordinates as doubles.
class ply_writer : public point_writer {
  public:
    /// The output outlives it.
    explicit ply_writer(byte_output& to);
    void write(std::span<const exported_point> points) override;
    std::string head() const override;

  private:
    byte_output& to_;
};

} // namespace host
