#pragma once

#include <memory>
#include <string>
#include <vector>

#include "polyline.hpp"

struct _cairo;
struct _cairo_surface;

namespace LoomPDF {

struct Colour {
    double red;
    double green;
    double blue;
};

struct Segment {
    Point from;
    Point to;
};

/// `text` as well-formed UTF-8 of at most `longest` characters: bytes that are none become
/// replacement characters, control characters become spaces.
std::string presentable(const std::string& text, std::size_t longest);

/// One page of a PDF in memory. Lengths are points (1/72 inch) from the upper left corner.
class Canvas {
  public:
    /// Throws std::runtime_error when there is no memory.
    Canvas(double width, double height, const std::string& title);
    ~Canvas() = default;
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    void pen(const Colour& colour, double line_width);
    /// Lines that are drawn as one, which is far cheaper than each for itself.
    void lines(const std::vector<Segment>& segments);
    void box(const Box& box);
    /// A line with round ends and corners.
    void polyline(const std::vector<Polyline::Move>& moves);

    void dot(Point middle, double diameter);

    void font_size(double points);
    /// Width of a text in the current font.
    double width(const std::string& text);
    /// Writes a text with the middle of its base line at a place, upwards if `turned`.
    void centred(const std::string& text, Point middle, bool turned = false);
    /// Writes a text that begins, or ends, at a place.
    void from(const std::string& text, Point start);
    void up_to(const std::string& text, Point end);

    /// Ends the page; the bytes of the file. Throws std::runtime_error that says what failed.
    const std::string& finish();

  private:
    void write(const std::string& text, Point at, double shift, bool turned);

    std::string bytes_; // first, for the surface writes to it until it is gone
    struct Release {
        void operator()(_cairo_surface* s) const noexcept;
        void operator()(_cairo* c) const noexcept;
    };
    std::unique_ptr<_cairo_surface, Release> surface_;
    std::unique_ptr<_cairo, Release> context_;
};

} // namespace LoomPDF
