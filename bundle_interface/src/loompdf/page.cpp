#include "page.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <stdexcept>

#include "axis.hpp"
#include "canvas.hpp"

namespace LoomPDF {

namespace {

constexpr double title_size = 11;
constexpr double label_size = 10;
constexpr double number_size = 9;
constexpr double smallest_size = 5; // of a text that would not fit else
constexpr std::size_t longest_text = 400;

constexpr double border = 12; // free on every side
constexpr double gap = 5;     // between texts
constexpr double tick_length = 4;
constexpr double minor_length = 2;
constexpr double digit_height = 0.72; // of the font's size
constexpr double descent = 0.25;
constexpr double least_frame = 20;
constexpr double least_spacing_x = 36;
constexpr double least_spacing_y = 19;

constexpr Colour black{0, 0, 0};
constexpr Colour grid_grey{0.87, 0.87, 0.87};
constexpr Colour frame_grey{0.25, 0.25, 0.25};
constexpr Colour text_grey{0.5, 0.5, 0.5};
constexpr double grid_width = 0.4;
constexpr double frame_width = 0.6;
constexpr double series_width = 0.8;
constexpr double dot_size = 2.5;
constexpr double margin_share = 0.05; // left free above and below the series

/// Told apart by readers who see colours differently, too.
constexpr std::array<Colour, 6> series_colours{{{0.00, 0.27, 0.55},
                                                {0.80, 0.33, 0.00},
                                                {0.00, 0.50, 0.38},
                                                {0.65, 0.25, 0.55},
                                                {0.35, 0.35, 0.35},
                                                {0.60, 0.50, 0.00}}};

std::size_t size_of(const VectorToPDF::Series& s) {
    return std::min(s.x.size(), s.y.size());
}

/// Bounds asked for.
std::optional<Bounds> bounds_of(const VectorToPDF::Range& range) {
    return range.available() ? std::optional<Bounds>({range->min, range->max}) : std::nullopt;
}

Bounds bounds_of_x(const PageContent& content) {
    if (const auto asked = bounds_of(content.ranges.first)) {
        return drawable(*asked);
    }
    BoundsFinder finder;
    for (const VectorToPDF::Series& s : content.series) {
        for (std::size_t i = 0; i < size_of(s); ++i) {
            finder.take(s.x[i]);
        }
    }
    return drawable(finder.found().value_or(Bounds{}));
}

Bounds bounds_of_y(const PageContent& content) {
    if (const auto asked = bounds_of(content.ranges.second)) {
        return drawable(*asked);
    }
    BoundsFinder finder;
    for (const VectorToPDF::Series& s : content.series) {
        if (const auto told = bounds_of(s.range)) {
            finder.take(told->min);
            finder.take(told->max);
            continue;
        }
        for (std::size_t i = 0; i < size_of(s); ++i) {
            finder.take(s.y[i]);
        }
    }
    const Bounds taken = drawable(finder.found().value_or(Bounds{}));
    const double margin = margin_share * (taken.max - taken.min);
    return drawable({taken.min - margin, taken.max + margin});
}

/// Whether the places are counts, so that there is nothing between them.
bool whole_places(const PageContent& content) {
    return !content.series.empty() &&
           std::all_of(content.series.begin(), content.series.end(), [](const auto& s) {
               return std::all_of(s.x.begin(), s.x.end(),
                                  [](double x) { return x == std::floor(x); });
           });
}

/// "x10" and the power, with the multiplication sign and raised digits; empty for a power of 0.
std::string factor_text(int exponent) {
    if (exponent == 0) {
        return {};
    }
    constexpr std::array<const char*, 10> raised{
        "\xE2\x81\xB0", "\xC2\xB9",     "\xC2\xB2",     "\xC2\xB3",     "\xE2\x81\xB4",
        "\xE2\x81\xB5", "\xE2\x81\xB6", "\xE2\x81\xB7", "\xE2\x81\xB8", "\xE2\x81\xB9"};
    std::string text = "\xC3\x97"
                       "10";
    if (exponent < 0) {
        text += "\xE2\x81\xBB";
    }
    for (const char digit : std::to_string(std::abs(exponent))) {
        text += raised[static_cast<std::size_t>(digit - '0')];
    }
    return text;
}

std::string label_text(const std::string& label, int exponent) {
    const std::string factor = factor_text(exponent);
    return factor.empty() ? label : label + (label.empty() ? "" : "  ") + factor;
}

class Page {
  public:
    Page(double width, double height, const PageContent& content)
        : width_(width)
        , height_(height)
        , content_(content)
        , canvas_(width, height, presentable(content.title, longest_text)) {}

    std::string draw() {
        lay_out();
        draw_grid();
        draw_frame();
        draw_series(); // on top: an amplitude of zero runs along the frame
        draw_texts();
        return canvas_.finish();
    }

  private:
    /// Places the frame: what the texts leave over.
    void lay_out() {
        frame_.top = border + title_size + 2 * gap;
        frame_.bottom =
            height_ - border - label_size * (1 + descent) - gap - number_size - tick_length - gap;
        if (frame_.height() < least_frame) {
            throw std::runtime_error("the page is too low for a plot");
        }
        canvas_.font_size(number_size);
        y_axis_ = make_axis(bounds_of_y(content_),
                            {frame_.height(), least_spacing_y,
                             [](const std::string&) { return number_size * digit_height; }, false});
        double widest = 0;
        for (const Tick& tick : y_axis_.ticks) {
            widest = std::max(widest, canvas_.width(tick.label));
        }
        frame_.left = border + label_size + 2 * gap + widest + tick_length + gap;
        const Bounds x_bounds = bounds_of_x(content_);
        // The last label is centred at the frame's edge at worst; its width shows with the ticks.
        frame_.right = width_ - border;
        for (int i = 0; i < 2; ++i) {
            if (frame_.width() < least_frame) {
                throw std::runtime_error("the page is too narrow for a plot");
            }
            x_axis_ = make_axis(x_bounds, {frame_.width(), least_spacing_x,
                                           [&](const std::string& t) { return canvas_.width(t); },
                                           whole_places(content_)});
            if (!x_axis_.ticks.empty() && i == 0) {
                frame_.right -= canvas_.width(x_axis_.ticks.back().label) / 2;
            }
        }
    }

    double x_of(double value) const {
        const Bounds& b = x_axis_.bounds;
        return frame_.left + (value - b.min) / (b.max - b.min) * frame_.width();
    }
    double y_of(double value) const {
        const Bounds& b = y_axis_.bounds;
        return frame_.bottom - (value - b.min) / (b.max - b.min) * frame_.height();
    }

    void draw_grid() {
        std::vector<Segment> grid;
        for (const Tick& tick : x_axis_.ticks) {
            const double x = x_of(tick.value);
            grid.push_back({{x, frame_.top}, {x, frame_.bottom}});
        }
        for (const Tick& tick : y_axis_.ticks) {
            const double y = y_of(tick.value);
            grid.push_back({{frame_.left, y}, {frame_.right, y}});
        }
        canvas_.pen(grid_grey, grid_width);
        canvas_.lines(grid);
    }

    void draw_series() {
        bool drawn = false;
        for (std::size_t i = 0; i < content_.series.size(); ++i) {
            const VectorToPDF::Series& s = content_.series[i];
            Polyline line(frame_);
            for (std::size_t j = 0; j < size_of(s); ++j) {
                line.to({x_of(s.x[j]), y_of(s.y[j])});
            }
            line.end();
            canvas_.pen(series_colours[i % series_colours.size()], series_width);
            canvas_.polyline(line.moves());
            for (const Point& point : line.lonely()) {
                canvas_.dot(point, dot_size);
            }
            drawn = drawn || size_of(s) != 0;
        }
        if (!drawn) {
            canvas_.pen(text_grey, 1);
            canvas_.font_size(label_size);
            canvas_.centred("no samples",
                            {(frame_.left + frame_.right) / 2, (frame_.top + frame_.bottom) / 2});
        } else if (content_.series.size() > 1) {
            draw_names();
        }
    }

    /// Names of the series in the upper right corner, as many as find room.
    void draw_names() {
        canvas_.font_size(number_size);
        double y = frame_.top + gap + number_size;
        for (std::size_t i = 0; i < content_.series.size() && y < frame_.bottom - gap; ++i) {
            canvas_.pen(series_colours[i % series_colours.size()], series_width);
            canvas_.up_to(presentable(content_.series[i].name, 40), {frame_.right - gap, y});
            y += number_size + gap;
        }
    }

    void draw_frame() {
        std::vector<Segment> ticks;
        const auto at_x = [&](double value, double length) {
            const double x = x_of(value);
            ticks.push_back({{x, frame_.bottom}, {x, frame_.bottom + length}});
        };
        const auto at_y = [&](double value, double length) {
            const double y = y_of(value);
            ticks.push_back({{frame_.left - length, y}, {frame_.left, y}});
        };
        const auto each_tick = [](const Axis& axis, const auto& add) {
            for (const Tick& tick : axis.ticks) {
                add(tick.value, tick_length);
            }
            for (const double value : axis.minor) {
                add(value, minor_length);
            }
        };
        each_tick(x_axis_, at_x);
        each_tick(y_axis_, at_y);
        canvas_.pen(frame_grey, frame_width);
        canvas_.lines(ticks);
        canvas_.box(frame_);
    }

    void draw_texts() {
        canvas_.pen(black, 1);
        canvas_.font_size(number_size);
        for (const Tick& tick : x_axis_.ticks) {
            canvas_.centred(tick.label, {x_of(tick.value), frame_.bottom + tick_length + gap / 2 +
                                                               number_size * digit_height});
        }
        for (const Tick& tick : y_axis_.ticks) {
            canvas_.up_to(tick.label, {frame_.left - tick_length - gap / 2,
                                       y_of(tick.value) + number_size * digit_height / 2});
        }
        const double middle_x = (frame_.left + frame_.right) / 2;
        const double middle_y = (frame_.top + frame_.bottom) / 2;
        fitted(label_text(content_.axis_labels.first, x_axis_.exponent), label_size,
               {middle_x, height_ - border - label_size * descent}, frame_.width(), false);
        fitted(label_text(content_.axis_labels.second, y_axis_.exponent), label_size,
               {border + label_size * digit_height, middle_y}, height_ - 2 * border, true);
        fitted(content_.title, title_size, {middle_x, border + title_size * digit_height},
               frame_.width(), false);
    }

    /// Writes a centred text, smaller or cut where it is too long.
    void fitted(const std::string& text, double size, Point middle, double room, bool turned) {
        std::string shown = presentable(text, longest_text);
        canvas_.font_size(size);
        const double wanted = canvas_.width(shown);
        if (wanted > room) {
            size = std::max(smallest_size, size * room / wanted);
            canvas_.font_size(size);
        }
        for (std::size_t n = longest_text; n > 1 && canvas_.width(shown) > room; n -= n / 8 + 1) {
            shown = presentable(text, n) + "\xE2\x80\xA6";
        }
        canvas_.centred(shown, middle, turned);
    }

    double width_;
    double height_;
    const PageContent& content_;
    Canvas canvas_;
    Box frame_;
    Axis x_axis_;
    Axis y_axis_;
};

} // namespace

std::string draw_page(double width, double height, const PageContent& content) {
    return Page(width, height, content).draw();
}

} // namespace LoomPDF
