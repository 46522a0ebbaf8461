#pragma once

#include "bundle_interface/k7_reader.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace host {

/// The rows of one grid, one after the other over all its fragments, as doubles. Holds a block of
/// rows. `file` outlives it. Throws Skein::K7ReadError.
class grid_rows {
  public:
    struct column {
        const char* name;
        std::size_t width; ///< values in a row
    };

    grid_rows(const Skein::K7Reader& file, const std::string& grid, std::vector<column> columns);

    /// Rows of all fragments; 0 where the grid is missing.
    std::uint64_t size() const noexcept { return size_; }
    /// Goes to the first row, then to each next one; false behind the last.
    bool next();
    /// A value of the row.
    double value(std::size_t which, std::size_t component = 0) const {
        return blocks_[which][row_ * columns_[which].width + component];
    }
    /// Values of the row from the first component on.
    const double* values(std::size_t which) const {
        return blocks_[which].data() + row_ * columns_[which].width;
    }

  private:
    bool open_next_fragment();
    void load();

    const Skein::K7Reader& file_;
    std::string chart_;
    std::vector<column> columns_;
    std::vector<std::uint32_t> fragments_;
    std::uint64_t size_ = 0;
    std::size_t next_fragment_ = 0;
    std::vector<Skein::K7Array> arrays_;
    std::uint64_t loaded_ = 0; // rows of the open fragment up to the block's end
    std::vector<std::vector<double>> blocks_;
    std::size_t block_rows_ = 0;
    std::size_t row_ = 0;
};

} // namespace host
