#pragma once

#include "exported_point.hpp"

#include <cstdint>
#include <span>
#include <string>

namespace host {

/// Makes the bytes of points in one format. Failures of the output pass through.
class point_writer {
  public:
    point_writer() = default;
    point_writer(const point_writer&) = delete;
    point_writer& operator=(const point_writer&) = delete;
    virtual ~point_writer() = default;

    virtual void write(std::span<const exported_point> points) = 0;
    /// What the file begins with now that all points are written; its first bytes until then only
    /// hold the place. Empty for a format that has no such numbers.
    virtual std::string head() const { return {}; }

    /// Points in the file.
    std::uint64_t written() const noexcept { return written_; }
    /// Points that the format cannot hold.
    std::uint64_t left_out() const noexcept { return left_out_; }

  protected:
    std::uint64_t written_ = 0;
    std::uint64_t left_out_ = 0;
};

} // namespace host
