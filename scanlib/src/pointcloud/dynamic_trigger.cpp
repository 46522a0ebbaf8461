#include "scanlib/dynamic_trigger.hpp"

#include "scanlib/saturate.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

namespace scanlib {

namespace {

/// For each value the greatest so far. The first value above a number is the first reach above it,
/// which a binary search finds in whatever order the values are.
void reach_of(std::span<const double> values, std::span<double> reach) noexcept {
    double greatest = -std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < values.size(); ++i) {
        // This way round, so that a NaN is passed over.
        greatest = values[i] > greatest ? values[i] : greatest;
        reach[i] = greatest;
    }
}

std::size_t first_above(const std::vector<double>& reach, double v) noexcept {
    return static_cast<std::size_t>(std::upper_bound(reach.begin(), reach.end(), v) -
                                    reach.begin());
}

} // namespace

dynamic_trigger::threshold_grid::threshold_grid(std::size_t pair_count,
                                                std::span<const float> values)
    : pairs(pair_count) {
    const std::size_t width = 2 * pairs + 1;
    if (values.size() % width != 0) {
        throw std::runtime_error("dynamic_trigger: inconsistent table dimensions");
    }
    const std::size_t row_count = values.size() / width;
    if (row_count < 2 || pairs < 2) {
        throw std::runtime_error("dynamic_trigger: table too small");
    }
    for (std::size_t row = 0; row < row_count; ++row) {
        const auto cells = values.subspan(row * width, width);
        keys.push_back(cells[0]);
        for (std::size_t j = 0; j < pairs; ++j) {
            distances.push_back(cells[1 + 2 * j]);
            thresholds.push_back(cells[2 + 2 * j]);
        }
    }
    reach.resize(row_count);
    reach_of(keys, reach);
    distance_row.resize(pairs);
    distance_reach.resize(pairs);
    threshold_row.resize(pairs);
}

bool dynamic_trigger::threshold_grid::choose(double amplitude) noexcept {
    const std::size_t u = first_above(reach, amplitude);
    if (u == 0 || u == keys.size()) {
        return false;
    }
    const double w = (amplitude - keys[u - 1]) / (keys[u] - keys[u - 1]);
    const double* d = distances.data() + (u - 1) * pairs;
    const double* t = thresholds.data() + (u - 1) * pairs;
    for (std::size_t j = 0; j < pairs; ++j) {
        distance_row[j] = (1 - w) * d[j] + w * d[j + pairs];
        threshold_row[j] = (1 - w) * t[j] + w * t[j + pairs];
    }
    reach_of(distance_row, distance_reach);
    return true;
}

bool dynamic_trigger::threshold_grid::hides(double distance, double amplitude) const noexcept {
    const std::size_t j = first_above(distance_reach, distance);
    if (j == 0 || j == pairs) {
        return false;
    }
    const double v = (distance - distance_row[j - 1]) / (distance_row[j] - distance_row[j - 1]);
    const double threshold = (1 - v) * threshold_row[j - 1] + v * threshold_row[j];
    return !(threshold < amplitude);
}

void dynamic_trigger::set_rows(float offset, float scale, std::vector<threshold_row> rows) {
    present_ = true;
    if (rows.empty()) {
        return;
    }
    offset_ = offset;
    scale_ = scale;
    rows_ = std::move(rows);
}

void dynamic_trigger::take_grid(threshold_grid& grid, std::size_t pairs,
                                std::span<const float> values) {
    grid = threshold_grid(pairs, values);
    present_ = true;
    table_form_ = true;
}

void dynamic_trigger::set_pre(std::size_t pairs, std::span<const float> values) {
    take_grid(pre_, pairs, values);
}

void dynamic_trigger::set_post(std::size_t pairs, std::span<const float> values) {
    take_grid(post_, pairs, values);
}

std::size_t dynamic_trigger::mark(std::span<const target> targets,
                                  std::vector<std::uint8_t>& flags) {
    flags.assign(targets.size(), 0);
    if (targets.size() < 2) {
        return 0;
    }
    if (table_form_) {
        mark_by_grids(targets, flags.data());
    } else if (!rows_.empty()) {
        mark_by_rows(targets, flags.data());
    }
    return static_cast<std::size_t>(std::count(flags.begin(), flags.end(), std::uint8_t{1}));
}

const dynamic_trigger::threshold_row& dynamic_trigger::row_of(float amplitude) const noexcept {
    const auto last = static_cast<std::int64_t>(rows_.size() - 1);
    const auto j = saturate<std::int64_t>(std::round((amplitude - offset_) / scale_));
    return rows_[static_cast<std::size_t>(std::clamp(j, std::int64_t{0}, last))];
}

void dynamic_trigger::mark_by_rows(std::span<const target> targets,
                                   std::uint8_t* flags) const noexcept {
    for (std::size_t i = 0; i < targets.size(); ++i) {
        const threshold_row& row = row_of(targets[i].amplitude);
        const double range = targets[i].echo_range;
        if (row.thra2 != 0) {
            for (std::size_t k = i - std::min(i, neighbour_limit); k < i; ++k) {
                const target& t = targets[k];
                if (row.thra2 >= t.amplitude &&
                    (t.echo_range - range + row.del2) * row.dec2 + row.thra2 >= t.amplitude) {
                    flags[k] = 1;
                }
            }
        }
        if (row.thra1 != 0) {
            const std::size_t end = std::min(targets.size(), i + 1 + neighbour_limit);
            for (std::size_t k = i + 1; k < end; ++k) {
                const target& t = targets[k];
                if (row.thra1 >= t.amplitude &&
                    row.thra1 - (t.echo_range - range - row.del1) * row.dec1 >= t.amplitude) {
                    flags[k] = 1;
                }
            }
        }
    }
}

void dynamic_trigger::mark_by_grids(std::span<const target> targets, std::uint8_t* flags) noexcept {
    for (std::size_t i = 0; i < targets.size(); ++i) {
        const double amplitude = targets[i].amplitude;
        const double range = targets[i].echo_range;
        if (i > 0 && pre_.choose(amplitude)) {
            for (std::size_t k = i - std::min(i, neighbour_limit); k < i; ++k) {
                if (flags[k] == 0 &&
                    pre_.hides(range - targets[k].echo_range, targets[k].amplitude)) {
                    flags[k] = 1;
                }
            }
        }
        const std::size_t end = std::min(targets.size(), i + 1 + neighbour_limit);
        if (i + 1 < end && post_.choose(amplitude)) {
            for (std::size_t k = i + 1; k < end; ++k) {
                if (flags[k] == 0 &&
                    post_.hides(targets[k].echo_range - range, targets[k].amplitude)) {
                    flags[k] = 1;
                }
            }
        }
    }
}

} // namespace scanlib
