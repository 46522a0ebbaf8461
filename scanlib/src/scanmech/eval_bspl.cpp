#include "scanlib/eval_bspl.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <numbers>
#include <stdexcept>
#include <vector>

namespace scanlib {

namespace {

constexpr std::size_t order = 4;

/// The knots and their values, continued by two before the first and three behind the last.
class periodic_knots {
  public:
    periodic_knots(std::span<const double> knots, std::span<const double> values) {
        constexpr double period = 2 * std::numbers::pi;
        const std::size_t n = knots.size();
        knots_.reserve(n + 5);
        values_.reserve(n + 5);
        const auto append = [&](std::size_t i, double shift) {
            knots_.push_back(knots[i] + shift);
            values_.push_back(values[i]);
        };
        append(n - 2, -period);
        append(n - 1, -period);
        for (std::size_t i = 0; i < n; ++i) {
            append(i, 0);
        }
        for (std::size_t i = 0; i < 3; ++i) {
            append(i, period);
        }
    }

    /// Index of the knot at which the interval with `x` begins, by a walk from the second knot.
    std::size_t interval_of(double x) const {
        std::size_t next = 1;
        while (next < knots_.size() && x >= knots_[next]) {
            ++next;
        }
        if (next == knots_.size() || next < first_interval + 1) {
            throw std::runtime_error("inconsistent data in eval_bspl");
        }
        return std::min(next - 1, last_interval());
    }

    /// The interval for an `x` not before the one with which `interval` was found.
    std::size_t advance(std::size_t interval, double x) const noexcept {
        while (interval < last_interval() && x > knots_[interval + 1]) {
            ++interval;
        }
        return interval;
    }

    /// The recurrence over the four values whose knots stand around the interval.
    double value_at(std::size_t interval, double x) const noexcept {
        std::array<double, order> d{};
        for (std::size_t j = 0; j < order; ++j) {
            d[j] = values_[interval - 1 + j];
        }
        for (std::size_t round = 1; round < order; ++round) {
            for (std::size_t j = order - 1; j >= round; --j) {
                const double low = knots_[interval + j - (order - 1)];
                const double high = knots_[interval + j + 1 - round];
                const double w = (x - low) / (high - low);
                d[j] = (1 - w) * d[j - 1] + w * d[j];
            }
        }
        return d[order - 1];
    }

  private:
    static constexpr std::size_t first_interval = 2;
    std::size_t last_interval() const noexcept { return knots_.size() - order; }

    std::vector<double> knots_;
    std::vector<double> values_;
};

} // namespace

void eval_bspl(std::span<double> out, std::span<const double> x, std::span<const double> knots,
               std::span<const double> values) {
    if (x.empty()) {
        return;
    }
    if (knots.size() < 3 || values.size() != knots.size() || out.size() != x.size()) {
        throw std::runtime_error("inconsistent data in eval_bspl");
    }
    const periodic_knots spline(knots, values);
    std::size_t interval = spline.interval_of(x[0]);
    for (std::size_t i = 0; i < x.size(); ++i) {
        interval =
            i > 0 && x[i] < x[i - 1] ? spline.interval_of(x[i]) : spline.advance(interval, x[i]);
        out[i] = spline.value_at(interval, x[i]);
    }
}

} // namespace scanlib
