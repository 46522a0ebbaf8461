#pragma once

#include "exported_point.hpp"

#include <cstdint>
#include <span>

namespace host {

/// Writes points in one format. Operations throw simulator::output_error.
class point_writer {
  public:
    point_writer() = default;
    point_writer(const point_writer&) = delete;
    point_writer& operator=(const point_writer&) = delete;
    virtual ~point_writer() = default;

    virtual void write(std::span<const exported_point> points) = 0;
    /// Brings everything to the output, numbers that stand in front of the points too. Nothing is
    /// written afterwards.
    virtual void finish() = 0;

    /// Points in the file.
    std::uint64_t written() const noexcept { return written_; }
    /// Points that the format cannot hold.
    std::uint64_t left_out() const noexcept { return left_out_; }

  protected:
    std::uint64_t written_ = 0;
    std::uint64_t left_out_ = 0;
};

} // namespace host
