#pragma once

#include <array>
#include <cstddef>
#include <vector>

namespace LoomPDF {

struct Point {
    double x = 0;
    double y = 0;
    bool operator==(const Point&) const = default;
};

/// A rectangle on the page, in points.
struct Box {
    double left = 0;
    double top = 0;
    double right = 0;
    double bottom = 0;
    double width() const noexcept { return right - left; }
    double height() const noexcept { return bottom - top; }
};

/// Puts a line of any number of points together from what of it lies inside a box.
///
/// Points that follow each other within a sixteenth of a point of the page, far less than a line is
/// wide, are replaced by the first, the lowest, the highest and the last of them. So a line that
/// runs from left to right costs a bounded number of points, and looks the same.
class Polyline {
  public:
    /// One pen movement: to the place without drawing, or with.
    struct Move {
        Point to;
        bool draws;
    };

    explicit Polyline(const Box& box) : box_(box) {}

    /// Draws on to the point. One that is NaN or infinite makes a gap.
    void to(Point point);
    /// Ends the line; a next point begins another.
    void end();

    const std::vector<Move>& moves() const noexcept { return moves_; }
    /// Points that have no neighbour to draw to.
    const std::vector<Point>& lonely() const noexcept { return lonely_; }

  private:
    struct Numbered {
        Point point;
        std::size_t number; ///< within its column
    };
    void flush_column();
    void segment_to(Point point);
    void draw(Point from, Point to);

    Box box_;
    std::vector<Move> moves_;
    std::vector<Point> lonely_;
    // The points of one column, not yet drawn.
    double column_ = 0;
    std::size_t in_column_ = 0;
    Numbered first_{};
    Numbered lowest_{};
    Numbered highest_{};
    Numbered last_{};
    // The line up to the column.
    bool begun_ = false;
    bool alone_ = false; ///< a single point so far
    Point pen_;
};

} // namespace LoomPDF
