#include "plot.hpp"

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

LoomPDF::Axis axis_along(brush& to, const value_bounds& bounds, double length, bool upright,
                         bool whole) {
    to.font(number_size);
    const auto extent = [&to, upright](const std::string& label) {
        return upright ? number_size : to.width_of(label);
    };
    return LoomPDF::make_axis(bounds_of(bounds), {length, upright ? 30.0 : 64.0, extent, whole});
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

} // namespace

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
    to_.font(title_size, true);
    to_.text(words_.title, {frame_.left, frame_.top - 10});
}

void plot::colour_bar(const value_bounds& span, const std::string& label,
                      rgb (*colour_of)(double)) {
    const Box bar{frame_.right + bar_gap, frame_.top, frame_.right + bar_gap + bar_width,
                  frame_.bottom};
    const LoomPDF::Axis axis = axis_along(to_, span, bar.height(), true, false);
    constexpr int steps = 128;
    for (int i = 0; i < steps; ++i) {
        const double top = bar.bottom - bar.height() * (i + 1) / steps;
        to_.colour(colour_of((i + 0.5) / steps));
        to_.fill({bar.left, top, bar.right, std::min(bar.bottom, top + bar.height() / steps + 1)});
    }
    to_.colour(soft_ink);
    to_.frame(bar, 1);
    to_.font(number_size);
    double widest = 0;
    for (const LoomPDF::Tick& t : axis.ticks) {
        const double y = bar.bottom - share_of(t.value, axis.bounds) * bar.height();
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
    to_.colour(soft_ink);
    to_.font(label_size);
    to_.text(reason, {(frame_.left + frame_.right) / 2, (frame_.top + frame_.bottom) / 2},
             align::centre);
}

} // namespace host
