#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace host {

/// Least and greatest of finite values; empty() before there was one.
struct value_bounds {
    double min = std::numeric_limits<double>::infinity();
    double max = -std::numeric_limits<double>::infinity();
    bool empty() const noexcept { return !(min <= max); }
    double span() const noexcept { return empty() ? 0 : max - min; }
    void take(double value) {
        if (std::isfinite(value)) {
            min = std::min(min, value);
            max = std::max(max, value);
        }
    }
};

/// Index of the bin of `count` between the bounds, -1 outside.
inline std::ptrdiff_t bin_of(double value, const value_bounds& bounds, std::size_t count) {
    if (!(value >= bounds.min && value <= bounds.max) || count == 0) {
        return -1;
    }
    const double share = bounds.span() > 0 ? (value - bounds.min) / bounds.span() : 0;
    return static_cast<std::ptrdiff_t>(
        std::min(static_cast<double>(count - 1), share * static_cast<double>(count)));
}

struct histogram {
    value_bounds bounds;
    std::vector<std::uint64_t> counts;
    void take(double value) {
        const auto bin = bin_of(value, bounds, counts.size());
        if (bin >= 0) {
            ++counts[static_cast<std::size_t>(bin)];
        }
    }
};

/// A grid of cells over two bounds. A cell is untouched, touched without a value, or has one.
struct raster {
    value_bounds x;
    value_bounds y;
    std::size_t columns = 0;
    std::size_t rows = 0;
    struct cell {
        bool touched = false;
        float count = 0;
        float value = 0; ///< mean or greatest, as it was taken
    };
    std::vector<cell> cells; ///< row by row by rising y

    void shape(std::size_t across, std::size_t up) {
        columns = across;
        rows = up;
        cells.assign(across * up, {});
    }
    cell* at(double px, double py) {
        const auto column = bin_of(px, x, columns);
        const auto row = bin_of(py, y, rows);
        return column < 0 || row < 0 ? nullptr
                                     : &cells[static_cast<std::size_t>(row) * columns +
                                              static_cast<std::size_t>(column)];
    }
    void touch(double px, double py) {
        if (cell* const c = at(px, py)) {
            c->touched = true;
        }
    }
    void take_mean(double px, double py, double value) {
        cell* const c = std::isfinite(value) ? at(px, py) : nullptr;
        if (c != nullptr) {
            c->count += 1;
            c->value += (static_cast<float>(value) - c->value) / c->count;
        }
    }
    void take_greatest(double px, double py, double value) {
        cell* const c = std::isfinite(value) ? at(px, py) : nullptr;
        if (c != nullptr) {
            c->value = c->count == 0 ? static_cast<float>(value)
                                     : std::max(c->value, static_cast<float>(value));
            c->count += 1;
        }
    }
    /// Cells with a value.
    std::size_t filled() const {
        return static_cast<std::size_t>(
            std::count_if(cells.begin(), cells.end(), [](const cell& c) { return c.count > 0; }));
    }
};

} // namespace host
