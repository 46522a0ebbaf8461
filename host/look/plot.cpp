#include "plot.hpp"

#include <array>
#include <cmath>
#include <cstdio>

namespace host {

namespace {

constexpr double title_size = 15;
constexpr double label_size = 13;
constexpr double number_size = 12;
constexpr double digit_height = 0.36; // half of it, of the font's size
constexpr double tick = 5;
constexpr double gap = 5;
constexpr double bar_gap = 12;
constexpr double bar_width = 12;

LoomPDF::Bounds bounds_of(const value_bounds& bounds) {
    return LoomPDF::drawable(bounds.empty() ? LoomPDF::Bounds{}
                                            : LoomPDF::Bounds{bounds.min, bounds.max});
}

/// Digits in groups of three, where a number is long enough to need it.
std::string grouped(const std::string& label) {
    constexpr std::size_t longest_alone = 4;
    const std::size_t sign = label.starts_with("-") ? 1 : 0;
    if (label.size() - sign <= longest_alone ||
        label.find_first_not_of("0123456789", sign) != std::string::npos) {
        return label;
    }
    std::string text;
    for (std::size_t i = 0; i < label.size(); ++i) {
        text += i > sign && (label.size() - i) % 3 == 0 ? "\xE2\x80\xAF" : "";
        text += label[i];
    }
    return text;
}

LoomPDF::Axis axis_along(brush& to, const value_bounds& bounds, double length, bool upright,
                         bool whole) {
    to.font(number_size);
    const auto extent = [&to, upright](const std::string& label) {
        return upright ? number_size : to.width_of(label);
    };
    LoomPDF::Axis axis =
        LoomPDF::make_axis(bounds_of(bounds), {length, upright ? 30.0 : 64.0, extent, whole});
    for (LoomPDF::Tick& t : axis.ticks) {
        t.label = grouped(t.label);
    }
    return axis;
}

std::string with_exponent(const std::string& label, int exponent) {
    static const char* const raised[] = {
        "\xE2\x81\xB0", "\xC2\xB9",     "\xC2\xB2",     "\xC2\xB3",     "\xE2\x81\xB4",
        "\xE2\x81\xB5", "\xE2\x81\xB6", "\xE2\x81\xB7", "\xE2\x81\xB8", "\xE2\x81\xB9"};
    if (exponent == 0) {
        return label;
    }
    std::string text = label + "  \xC3\x97 10";
    for (const char digit : std::to_string(exponent)) {
        text += digit == '-' ? "\xE2\x81\xBB" : raised[digit - '0'];
    }
    return text;
}

double share_of(double value, const LoomPDF::Bounds& bounds) {
    return (value - bounds.min) / (bounds.max - bounds.min);
}

/// Ticks at 1, 2 and 5 times powers of ten, for a scale by ratios.
LoomPDF::Axis ratio_axis(const value_bounds& span) {
    LoomPDF::Axis axis{{span.min, span.max}, {}, {}, 0};
    for (double decade = std::pow(10, std::floor(std::log10(span.min))); decade <= span.max;
         decade *= 10) {
        for (const double step : {1, 2, 5}) {
            const double value = step * decade;
            if (value >= span.min && value <= span.max) {
                std::array<char, 32> label{};
                std::snprintf(label.data(), label.size(), "%g", value);
                axis.ticks.push_back({value, label.data()});
            }
        }
    }
    return axis;
}

} // namespace

colour_scale::colour_scale(const value_bounds& span, rgb (*colour_of)(double), bool may_be_ratios)
    : span_(span)
    , colour_of_(colour_of)
    , ratios_(may_be_ratios && span.min > 1e-3 && span.max < 1e6 && span.max > 8 * span.min) {}

double colour_scale::share(double value) const {
    if (span_.span() <= 0) {
        return 0.5;
    }
    return ratios_
               ? std::log(std::max(value, span_.min) / span_.min) / std::log(span_.max / span_.min)
               : (value - span_.min) / span_.span();
}

plot::plot(brush& to, const Box& frame, texts words, const value_bounds& x, const value_bounds& y,
           bool whole_x, bool down)
    : to_(to)
    , frame_(frame)
    , words_(std::move(words))
    , down_(down)
    , x_(axis_along(to, x, frame.width(), false, whole_x))
    , y_(axis_along(to, y, frame.height(), true, false)) {}

double plot::x_of(double value) const {
    return frame_.left + share_of(value, x_.bounds) * frame_.width();
}

double plot::y_of(double value) const {
    const double share = share_of(value, y_.bounds);
    return frame_.top + (down_ ? share : 1 - share) * frame_.height();
}

void plot::grid(bool vertical) {
    to_.colour(faint);
    for (const LoomPDF::Tick& t : y_.ticks) {
        to_.line({frame_.left, y_of(t.value)}, {frame_.right, y_of(t.value)}, 1);
    }
    if (vertical) {
        for (const LoomPDF::Tick& t : x_.ticks) {
            to_.line({x_of(t.value), frame_.top}, {x_of(t.value), frame_.bottom}, 1);
        }
    }
}

void plot::finish() {
    to_.colour(soft_ink);
    to_.frame(frame_, 1);
    to_.font(number_size);
    double widest = 0;
    for (const LoomPDF::Tick& t : x_.ticks) {
        const double x = x_of(t.value);
        to_.line({x, frame_.bottom}, {x, frame_.bottom + tick}, 1);
        to_.text(t.label, {x, frame_.bottom + tick + gap / 2 + number_size}, align::centre);
    }
    for (const LoomPDF::Tick& t : y_.ticks) {
        const double y = y_of(t.value);
        to_.line({frame_.left - tick, y}, {frame_.left, y}, 1);
        to_.text(t.label, {frame_.left - tick - gap / 2, y + number_size * digit_height},
                 align::right);
        widest = std::max(widest, to_.width_of(t.label));
    }
    to_.colour(ink);
    to_.font(label_size);
    to_.text(with_exponent(words_.x, x_.exponent),
             {(frame_.left + frame_.right) / 2,
              frame_.bottom + tick + number_size + 2 * gap + label_size},
             align::centre);
    to_.text(with_exponent(words_.y, y_.exponent),
             {frame_.left - tick - 2 * gap - widest - 2, (frame_.top + frame_.bottom) / 2},
             align::centre, true);
    title();
}

void plot::title() {
    to_.colour(ink);
    to_.font(title_size, true);
    to_.text(words_.title, {frame_.left, frame_.top - 10});
}

void plot::colour_bar(const colour_scale& scale, const std::string& label) {
    const Box bar{frame_.right + bar_gap, frame_.top, frame_.right + bar_gap + bar_width,
                  frame_.bottom};
    constexpr int steps = 128;
    for (int i = 0; i < steps; ++i) {
        const double top = bar.bottom - bar.height() * (i + 1) / steps;
        to_.colour(scale.at((i + 0.5) / steps));
        to_.fill({bar.left, top, bar.right, std::min(bar.bottom, top + bar.height() / steps + 1)});
    }
    to_.colour(soft_ink);
    to_.frame(bar, 1);
    const LoomPDF::Axis axis = scale.ratios()
                                   ? ratio_axis(scale.span())
                                   : axis_along(to_, scale.span(), bar.height(), true, false);
    to_.font(number_size);
    double widest = 0;
    for (const LoomPDF::Tick& t : axis.ticks) {
        const double share = scale.ratios() ? scale.share(t.value) : share_of(t.value, axis.bounds);
        const double y = bar.bottom - share * bar.height();
        to_.line({bar.right, y}, {bar.right + tick, y}, 1);
        to_.text(t.label, {bar.right + tick + gap / 2, y + number_size * digit_height});
        widest = std::max(widest, to_.width_of(t.label));
    }
    to_.colour(ink);
    to_.font(label_size);
    to_.text(with_exponent(label, axis.exponent),
             {bar.right + tick + 2 * gap + widest + label_size, (bar.top + bar.bottom) / 2},
             align::centre, true);
}

void plot::nothing(const std::string& reason) {
    to_.colour(white);
    to_.fill(frame_);
    to_.colour(soft_ink);
    to_.frame(frame_, 1);
    to_.font(label_size);
    to_.text(reason, {(frame_.left + frame_.right) / 2, (frame_.top + frame_.bottom) / 2},
             align::centre);
    title();
}

} // namespace host
