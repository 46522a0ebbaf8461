#pragma once

#include "grid_blocks.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace host {

/// The rows of one grid, one after the other over all its fragments, as doubles. Holds a block of
/// rows. `file` outlives it. Throws Skein::K7ReadError.
class grid_rows {
  public:
    grid_rows(const Skein::K7Reader& file, const std::string& grid,
              std::vector<grid_column> columns);

    /// Rows of all fragments; 0 where the grid is missing.
    std::uint64_t size() const noexcept { return source_.size(); }
    /// Goes to the first row, then to each next one; false behind the last.
    bool next();
    /// A value of the row.
    double value(std::size_t which, std::size_t component = 0) const {
        return blocks_[which][row_ * width(which) + component];
    }
    /// Values of the row from the first component on.
    const double* values(std::size_t which) const {
        return blocks_[which].data() + row_ * width(which);
    }

  private:
    std::size_t width(std::size_t which) const { return source_.columns()[which].width; }

    grid_blocks source_;
    std::vector<std::vector<double>> blocks_;
    std::size_t block_rows_ = 0;
    std::size_t row_ = 0;
};

} // namespace host
