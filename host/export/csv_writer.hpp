#pragma once

#include "byte_output.hpp"
#include "point_writer.hpp"

namespace host {

/// Comma-separated values: a line of names, then a line a point. Each number has as many digits as
/// it takes to read it back unchanged; what is none is "nan", "inf" or "-inf".
class csv_writer : public point_writer {
  public:
    /// The output outlives it.
    explicit csv_writer(byte_output& to);
    void write(std::span<const exported_point> points) override;

  private:
    byte_output& to_;
};

} // namespace host
