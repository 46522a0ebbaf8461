#pragma once

#include "grid_blocks.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace host {

/// Rows of a grid by their number over all its fragments, read from the front to the back; T are
/// the types of the columns. The newest row that was asked for stays in memory, and `kept` rows
/// before it. Throws Skein::K7ReadError. The file outlives it.
template<class... T>
class row_window {
  public:
    row_window(const Skein::K7Reader& file, const std::string& grid,
               const std::array<grid_column, sizeof...(T)>& columns, std::size_t kept)
        : source_(file, grid, {columns.begin(), columns.end()}), kept_(kept) {
        each_column([&](auto which, auto& values) {
            values.resize((kept_ + rows_at_once) * columns[which].width);
        });
    }

    /// Rows of all fragments.
    std::uint64_t size() const noexcept { return source_.size(); }

    /// Reads up to the row; false if there is none.
    bool reach(std::uint64_t row) {
        while (row >= end_) {
            if (!load()) {
                return false;
            }
        }
        return true;
    }
    /// First row in memory.
    std::uint64_t begin() const noexcept { return begin_; }
    /// Values of a row in memory.
    template<std::size_t Which>
    const auto* values(std::uint64_t row) const {
        return std::get<Which>(columns_).data() +
               static_cast<std::size_t>(row - begin_) * source_.columns()[Which].width;
    }

  private:
    static constexpr std::size_t rows_at_once = 8192;

    template<class Use>
    void each_column(Use&& use) {
        [&]<std::size_t... Which>(std::index_sequence<Which...>) {
            (use(Which, std::get<Which>(columns_)), ...);
        }
        (std::index_sequence_for<T...>());
    }

    bool load() {
        const std::uint64_t rows = source_.next(rows_at_once);
        if (rows == 0) {
            return false;
        }
        const auto held = static_cast<std::size_t>(end_ - begin_);
        const std::size_t stay = std::min(held, kept_);
        each_column([&](std::size_t which, auto& values) {
            const std::size_t width = source_.columns()[which].width;
            const auto from = values.begin() + static_cast<std::ptrdiff_t>((held - stay) * width);
            std::copy_n(from, stay * width, values.begin());
            source_.read(which, values.data() + stay * width);
        });
        begin_ = end_ - stay;
        end_ += rows;
        return true;
    }

    grid_blocks source_;
    std::size_t kept_;
    std::tuple<std::vector<T>...> columns_;
    std::uint64_t begin_ = 0;
    std::uint64_t end_ = 0;
};

} // namespace host
