#pragma once

#include "bundle_interface/k7_reader.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace host {

/// A column of a grid, as somebody wants to read it.
struct grid_column {
    const char* name;
    std::size_t width; ///< values in a row
};

/// The rows of one grid over all its fragments, block by block. `file` outlives it. Operations
/// throw Skein::K7ReadError, also where the columns of a fragment do not fit each other.
class grid_blocks {
  public:
    /// A grid that is missing has no rows.
    grid_blocks(const Skein::K7Reader& file, const std::string& grid,
                std::vector<grid_column> columns);

    const std::vector<grid_column>& columns() const noexcept { return columns_; }
    /// Rows of all fragments of the first column.
    std::uint64_t size() const noexcept { return size_; }

    /// Goes to the next rows, at most `most`, all of one fragment. Returns their number, 0 behind
    /// the last.
    std::uint64_t next(std::uint64_t most);
    /// Type of the values of a column in these rows.
    Skein::K7Type type(std::size_t which) const { return arrays_[which].type(); }
    /// Copies the values of a column in these rows. T is their type.
    template<class T>
    void read(std::size_t which, T* to) const {
        arrays_[which].read(first_, count_, to);
    }

  private:
    bool open_next_fragment();

    const Skein::K7Reader& file_;
    std::string chart_;
    std::vector<grid_column> columns_;
    std::vector<std::uint32_t> fragments_; // that any of the columns has
    std::uint64_t size_ = 0;
    std::size_t next_fragment_ = 0;
    std::vector<Skein::K7Array> arrays_;
    std::uint64_t first_ = 0; // of the rows, in the open fragment
    std::uint64_t count_ = 0;
};

} // namespace host
