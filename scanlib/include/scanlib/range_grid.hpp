#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace scanlib {

/// How a grid's raw numbers become values: value = raw * factor + offset.
struct range_grid_scaling {
    double row_factor = 1;    ///< m
    double row_offset = 0;    ///< m
    double column_factor = 1; ///< dB
    double column_offset = 0; ///< dB
    double value_factor = 1;  ///< m
    double value_offset = 0;  ///< m
};

/// Range correction over range and amplitude: a grid of values, bilinear between its nodes.
struct range_grid {
    std::vector<double> rows;    ///< m, ascending: the ranges of the nodes
    std::vector<double> columns; ///< dB, ascending: the amplitudes of the nodes
    std::vector<double> values;  ///< m, to be added; one row after the other

    bool empty() const noexcept { return values.empty(); }

    /// Makes a grid of its raw numbers: the rows, the columns, then the values, one row after the
    /// other. Numbers behind these are ignored. Throws std::runtime_error where the numbers are
    /// fewer than the counts ask for.
    static range_grid read(std::size_t row_count, std::size_t column_count,
                           const range_grid_scaling& scaling, std::span<const std::uint16_t> raw);

    /// `range` (m) with the grid's value at this range and `amplitude` (dB) added. Outside the grid
    /// on an axis, the edge stands for that axis. An empty grid leaves the range as it is.
    double corrected(double range, double amplitude) const noexcept;
};

} // namespace scanlib
