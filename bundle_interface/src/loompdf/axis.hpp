#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace LoomPDF {

struct Bounds {
    double min = 0;
    double max = 1;
};

/// Collects the bounds of values; NaN and the infinities do not count.
class BoundsFinder {
  public:
    void take(double value);
    /// Nothing where there were no values.
    const std::optional<Bounds>& found() const noexcept { return found_; }

  private:
    std::optional<Bounds> found_;
};

/// Bounds that can be drawn, the nearest to those given: in order, finite, and far enough apart to
/// be told apart. 0 to 1 for what is no number.
Bounds drawable(Bounds bounds);

struct Tick {
    double value;
    std::string label;
};

/// Where an axis has its ticks: at multiples of 1, 2 or 5 times a power of ten.
struct Axis {
    Bounds bounds;
    std::vector<Tick> ticks;   ///< labelled
    std::vector<double> minor; ///< between them
    int exponent = 0;          ///< labels are to be multiplied by this power of ten
};

/// What limits the number of ticks.
struct AxisRoom {
    double length;                                    ///< of the axis, in points
    double least_spacing;                             ///< between ticks, in points
    std::function<double(const std::string&)> extent; ///< of a label along the axis, in points
    bool whole_numbers = false;                       ///< no ticks between whole numbers
};

/// An axis with as many ticks as find room without labels that touch. `bounds` are drawable.
Axis make_axis(Bounds bounds, const AxisRoom& room);

} // namespace LoomPDF
