#pragma once

#include "colours.hpp"
#include "loompdf/axis.hpp"
#include "loompdf/polyline.hpp"
#include "raster.hpp"

#include <functional>
#include <memory>
#include <string>
#include <vector>

struct _cairo;
struct _cairo_surface;

namespace host {

using LoomPDF::Box;
using LoomPDF::Point;

/// How a text stands at its place.
enum class align { left, centre, right };

/// A picture to draw on. Lengths are pixels from the upper left corner.
class brush {
  public:
    /// White. Throws std::runtime_error without memory.
    brush(int width, int height);

    void colour(const rgb& colour);
    void font(double size, bool bold = false);
    double width_of(const std::string& text);
    void text(const std::string& text, Point at, align how = align::left, bool upwards = false);
    void line(Point from, Point to, double width);
    void frame(const Box& box, double width);
    void fill(const Box& box);
    /// A line through the points, cut off at the box.
    void curve(const std::vector<Point>& points, const Box& box, double width);
    void cross(Point middle, double size, double width);
    /// Cells as blocks without seams; `turned` has the first row at the top.
    void cells(const raster& picture, const Box& box, bool turned,
               const std::function<rgb(const raster::cell&)>& colour_of);

    /// The picture as PNG. Throws std::runtime_error that says what failed.
    std::string png();

  private:
    struct release {
        void operator()(_cairo_surface* s) const noexcept;
        void operator()(_cairo* c) const noexcept;
    };
    std::unique_ptr<_cairo_surface, release> surface_;
    std::unique_ptr<_cairo, release> context_;
};

} // namespace host
