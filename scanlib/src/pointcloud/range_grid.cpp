#include "scanlib/range_grid.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace scanlib {

namespace {

/// Two neighbouring nodes of an axis and the weight of the upper one.
struct axis_place {
    std::size_t lower;
    std::size_t upper;
    double weight;
};

axis_place place_on(const std::vector<double>& axis, double v) noexcept {
    const auto above = std::upper_bound(axis.begin(), axis.end(), v);
    if (above == axis.begin()) {
        return {0, 0, 0};
    }
    const auto lower = static_cast<std::size_t>(above - axis.begin()) - 1;
    if (above == axis.end()) {
        return {lower, lower, 0};
    }
    return {lower, lower + 1, (v - axis[lower]) / (*above - axis[lower])};
}

/// On the edge the neighbour is left out, so that no infinity of another node comes in.
double between(double lower, double upper, double weight) noexcept {
    return weight == 0 ? lower : (1 - weight) * lower + weight * upper;
}

std::vector<double> scaled(std::span<const std::uint16_t> raw, double factor, double offset) {
    std::vector<double> out(raw.size());
    std::transform(raw.begin(), raw.end(), out.begin(),
                   [=](std::uint16_t v) { return v * factor + offset; });
    return out;
}

} // namespace

range_grid range_grid::read(std::size_t row_count, std::size_t column_count,
                            const range_grid_scaling& scaling, std::span<const std::uint16_t> raw) {
    // In this order, so that no count overflows.
    const bool axes_fit = row_count <= raw.size() && column_count <= raw.size() - row_count;
    const std::size_t behind = axes_fit ? raw.size() - row_count - column_count : 0;
    if (!axes_fit || (column_count != 0 && row_count > behind / column_count)) {
        throw std::runtime_error("range grid: " + std::to_string(raw.size()) +
                                 " numbers are too few for " + std::to_string(row_count) + " x " +
                                 std::to_string(column_count) + " nodes");
    }
    range_grid grid;
    grid.rows = scaled(raw.first(row_count), scaling.row_factor, scaling.row_offset);
    grid.columns =
        scaled(raw.subspan(row_count, column_count), scaling.column_factor, scaling.column_offset);
    grid.values = scaled(raw.subspan(row_count + column_count, row_count * column_count),
                         scaling.value_factor, scaling.value_offset);
    return grid;
}

double range_grid::corrected(double range, double amplitude) const noexcept {
    if (values.empty()) {
        return range;
    }
    const axis_place r = place_on(rows, range);
    const axis_place c = place_on(columns, amplitude);
    const double* lower = values.data() + r.lower * columns.size();
    const double* upper = values.data() + r.upper * columns.size();
    return range + between(between(lower[c.lower], lower[c.upper], c.weight),
                           between(upper[c.lower], upper[c.upper], c.weight), r.weight);
}

} // namespace scanlib
