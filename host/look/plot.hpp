#pragma once

#include "brush.hpp"

#include <string>

namespace host {

constexpr rgb ink{0.13, 0.15, 0.18};
constexpr rgb soft_ink{0.42, 0.45, 0.49};
constexpr rgb faint{0.90, 0.91, 0.92};
constexpr rgb no_echo{0.925, 0.925, 0.935};
constexpr rgb white{1, 1, 1};

/// Which colour a value has: by even steps, or by even ratios where values are many times apart.
class colour_scale {
  public:
    colour_scale(const value_bounds& span, rgb (*colour_of)(double), bool may_be_ratios = false);

    /// Place of a value, from 0 to 1 within the span.
    double share(double value) const;
    rgb at(double share) const { return colour_of_(share); }
    bool ratios() const noexcept { return ratios_; }
    const value_bounds& span() const noexcept { return span_; }

  private:
    value_bounds span_;
    rgb (*colour_of_)(double);
    bool ratios_;
};

/// A frame with two axes and a title, and what stands in it.
class plot {
  public:
    struct texts {
        std::string title;
        std::string x;
        std::string y;
    };
    /// `whole_y` has no ticks between whole numbers. With `down`, y grows downwards.
    plot(brush& to, const Box& frame, texts words, const value_bounds& x, const value_bounds& y,
         bool whole_x = false, bool down = false);

    double x_of(double value) const;
    double y_of(double value) const;
    const Box& frame() const noexcept { return frame_; }

    /// Lines at the ticks; before the content.
    void grid(bool vertical);
    /// Frame, ticks and texts; after the content.
    void finish();
    /// A bar beside the frame that tells what the colours mean.
    void colour_bar(const colour_scale& scale, const std::string& label);
    /// Instead of finish(): the empty frame, and why.
    void nothing(const std::string& reason);

  private:
    void title();

    brush& to_;
    Box frame_;
    texts words_;
    bool down_;
    LoomPDF::Axis x_;
    LoomPDF::Axis y_;
};

} // namespace host
