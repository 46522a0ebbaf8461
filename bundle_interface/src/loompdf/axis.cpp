#include "axis.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace LoomPDF {

namespace {

constexpr double largest = 1e300;     // sums and differences of such bounds are finite
constexpr double least_span = 1e-290; // and a division by this one is, too
constexpr double least_relative_span = 1e-12;
constexpr double rounding = 1e-9;       // of a step that ought to be met
constexpr int longest_plain_label = 14; // digits
constexpr int longest_decimals = 15;
constexpr double label_gap = 8;    // points
constexpr int widest_steps = 2000; // from one step to the next it grows, so this is never reached

/// mantissa * 10^exponent, the mantissa being 1, 2 or 5.
struct Step {
    int mantissa = 1;
    int exponent = 0;

    double value() const { return mantissa * std::pow(10.0, exponent); }
    Step next() const {
        return mantissa == 1   ? Step{2, exponent}
               : mantissa == 2 ? Step{5, exponent}
                               : Step{1, exponent + 1};
    }
    /// Parts between two ticks that are such steps themselves.
    int parts() const { return mantissa == 2 ? 4 : 5; }
};

/// The least step that is not below `value`.
Step step_from(double value) {
    Step step{1, static_cast<int>(std::floor(std::log10(value)))};
    while (step.value() < value * (1 - rounding)) {
        step = step.next();
    }
    return step;
}

std::string fixed_text(double value, int decimals) {
    std::array<char, 400> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value,
                                   std::chars_format::fixed, decimals)
                         .ptr;
    return {text.data(), end};
}

/// Power of ten, a multiple of 3, that the labels leave out; 0 where they are short enough anyway.
int label_exponent(const Bounds& bounds, const Step& step) {
    const double far = std::max(std::abs(bounds.min), std::abs(bounds.max));
    const int leading = static_cast<int>(std::floor(std::log10(far)));
    const int digits = std::max(leading + 1, 1) + std::max(-step.exponent, 0);
    if (leading > -4 && step.exponent < 5 && digits <= longest_plain_label) {
        return 0;
    }
    return static_cast<int>(std::floor(leading / 3.0)) * 3;
}

/// Calls `at` with the number of each multiple of `step` within the bounds.
template<class Take>
void each_multiple(const Bounds& bounds, double step, Take&& at) {
    // A multiple that meets a bound but for rounding belongs to it.
    const double slack = 1e-6;
    const double first = std::ceil(bounds.min / step - slack);
    const double last = std::floor(bounds.max / step + slack);
    for (double i = first; i <= last; ++i) {
        at(i);
    }
}

Axis axis_of(const Bounds& bounds, const Step& step) {
    Axis axis;
    axis.bounds = bounds;
    axis.exponent = label_exponent(bounds, step);
    const int relative = step.exponent - axis.exponent;
    const int decimals = std::clamp(-relative, 0, longest_decimals);
    const double label_step = step.mantissa * std::pow(10.0, relative);
    each_multiple(bounds, step.value(), [&](double i) {
        const double value = std::clamp(i * step.value(), bounds.min, bounds.max);
        axis.ticks.push_back({value, fixed_text(i == 0 ? 0.0 : i * label_step, decimals)});
    });
    return axis;
}

void add_minor(Axis& axis, const Step& step) {
    const int parts = step.parts();
    const double part = step.value() / parts;
    each_multiple(axis.bounds, part, [&](double i) {
        if (std::fmod(i, parts) != 0) {
            axis.minor.push_back(std::clamp(i * part, axis.bounds.min, axis.bounds.max));
        }
    });
}

} // namespace

void BoundsFinder::take(double value) {
    if (!std::isfinite(value)) {
        return;
    }
    if (!found_) {
        found_ = {value, value};
    }
    found_->min = std::min(found_->min, value);
    found_->max = std::max(found_->max, value);
}

Bounds drawable(Bounds bounds) {
    if (std::isnan(bounds.min) || std::isnan(bounds.max)) {
        return {};
    }
    const double a = std::clamp(bounds.min, -largest, largest);
    const double b = std::clamp(bounds.max, -largest, largest);
    Bounds result{std::min(a, b), std::max(a, b)};
    const double far = std::max(std::abs(a), std::abs(b));
    if (result.max - result.min <= std::max(least_span, far * least_relative_span)) {
        const double middle = result.min / 2 + result.max / 2;
        const double half = std::max(0.5, far / 1000);
        result = {middle - half, middle + half};
    }
    return result;
}

Axis make_axis(Bounds bounds, const AxisRoom& room) {
    const double span = bounds.max - bounds.min;
    const double points = room.length / span; // per unit
    Step step = step_from(span * std::min(room.least_spacing / room.length, 1.0));
    if (room.whole_numbers && step.exponent < 0) {
        step = {};
    }
    const auto fits = [&](const Axis& axis) {
        double widest = 0;
        for (const Tick& tick : axis.ticks) {
            widest = std::max(widest, room.extent(tick.label));
        }
        return axis.ticks.size() < 2 || widest + label_gap <= step.value() * points;
    };
    Axis axis = axis_of(bounds, step);
    for (int i = 0; i < widest_steps && !fits(axis); ++i) {
        step = step.next();
        axis = axis_of(bounds, step);
    }
    if (!room.whole_numbers || step.value() / step.parts() >= 1) {
        add_minor(axis, step);
    }
    return axis;
}

} // namespace LoomPDF
