#include "brush.hpp"

#include <cairo.h>
#include <cmath>
#include <cstdint>
#include <new>
#include <numbers>
#include <stdexcept>

namespace host {

namespace {

void check(cairo_status_t status) {
    if (status != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error(cairo_status_to_string(status));
    }
}

cairo_status_t append(void* bytes, const unsigned char* data, unsigned int length) {
    try {
        static_cast<std::string*>(bytes)->append(reinterpret_cast<const char*>(data), length);
        return CAIRO_STATUS_SUCCESS;
    } catch (const std::bad_alloc&) {
        return CAIRO_STATUS_NO_MEMORY;
    }
}

std::uint32_t pixel_of(const rgb& colour) {
    const auto byte = [](double share) {
        return static_cast<std::uint32_t>(std::lround(255 * share));
    };
    return 0xFF000000U | byte(colour.red) << 16U | byte(colour.green) << 8U | byte(colour.blue);
}

} // namespace

void brush::release::operator()(_cairo_surface* s) const noexcept {
    cairo_surface_destroy(s);
}

void brush::release::operator()(_cairo* c) const noexcept {
    cairo_destroy(c);
}

brush::brush(int width, int height)
    : surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)) {
    check(cairo_surface_status(surface_.get()));
    context_.reset(cairo_create(surface_.get()));
    cairo_set_source_rgb(context_.get(), 1, 1, 1);
    cairo_paint(context_.get());
    check(cairo_status(context_.get()));
}

void brush::colour(const rgb& colour) {
    cairo_set_source_rgb(context_.get(), colour.red, colour.green, colour.blue);
}

void brush::font(double size, bool bold) {
    cairo_select_font_face(context_.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(context_.get(), size);
}

double brush::width_of(const std::string& text) {
    cairo_text_extents_t extents{};
    cairo_text_extents(context_.get(), text.c_str(), &extents);
    return extents.x_advance;
}

void brush::text(const std::string& text, Point at, align how, bool upwards) {
    const double width = how == align::left ? 0 : width_of(text);
    cairo_save(context_.get());
    cairo_translate(context_.get(), at.x, at.y);
    if (upwards) {
        cairo_rotate(context_.get(), -std::numbers::pi / 2);
    }
    cairo_move_to(context_.get(), how == align::centre ? -width / 2 : -width, 0);
    cairo_show_text(context_.get(), text.c_str());
    cairo_restore(context_.get());
    cairo_new_path(context_.get());
}

void brush::line(Point from, Point to, double width) {
    cairo_set_line_width(context_.get(), width);
    cairo_move_to(context_.get(), from.x, from.y);
    cairo_line_to(context_.get(), to.x, to.y);
    cairo_stroke(context_.get());
}

void brush::frame(const Box& box, double width) {
    cairo_set_line_width(context_.get(), width);
    cairo_rectangle(context_.get(), box.left, box.top, box.width(), box.height());
    cairo_stroke(context_.get());
}

void brush::fill(const Box& box) {
    cairo_rectangle(context_.get(), box.left, box.top, box.width(), box.height());
    cairo_fill(context_.get());
}

void brush::curve(const std::vector<Point>& points, const Box& box, double width) {
    LoomPDF::Polyline line(box);
    for (const Point& point : points) {
        line.to(point);
    }
    line.end();
    cairo_save(context_.get());
    cairo_set_line_width(context_.get(), width);
    cairo_set_line_join(context_.get(), CAIRO_LINE_JOIN_ROUND);
    for (const LoomPDF::Polyline::Move& move : line.moves()) {
        (move.draws ? cairo_line_to : cairo_move_to)(context_.get(), move.to.x, move.to.y);
    }
    cairo_stroke(context_.get());
    cairo_restore(context_.get());
}

void brush::cross(Point middle, double size, double width) {
    line({middle.x - size, middle.y}, {middle.x + size, middle.y}, width);
    line({middle.x, middle.y - size}, {middle.x, middle.y + size}, width);
}

void brush::cells(const raster& picture, const Box& box, bool turned,
                  const std::function<rgb(const raster::cell&)>& colour_of) {
    const auto width = static_cast<int>(picture.columns);
    const auto height = static_cast<int>(picture.rows);
    if (width == 0 || height == 0) {
        return;
    }
    const std::unique_ptr<_cairo_surface, release> image(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
    check(cairo_surface_status(image.get()));
    cairo_surface_flush(image.get());
    unsigned char* const bytes = cairo_image_surface_get_data(image.get());
    const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(image.get()));
    for (std::size_t row = 0; row < picture.rows; ++row) {
        const std::size_t from = turned ? row : picture.rows - 1 - row;
        auto* const pixels = reinterpret_cast<std::uint32_t*>(bytes + row * stride);
        for (std::size_t column = 0; column < picture.columns; ++column) {
            pixels[column] = pixel_of(colour_of(picture.cells[from * picture.columns + column]));
        }
    }
    cairo_surface_mark_dirty(image.get());
    cairo_save(context_.get());
    cairo_rectangle(context_.get(), box.left, box.top, box.width(), box.height());
    cairo_clip(context_.get());
    cairo_translate(context_.get(), box.left, box.top);
    cairo_scale(context_.get(), box.width() / width, box.height() / height);
    cairo_set_source_surface(context_.get(), image.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(context_.get()), CAIRO_FILTER_NEAREST);
    cairo_paint(context_.get());
    cairo_restore(context_.get());
}

std::string brush::png() {
    check(cairo_status(context_.get()));
    cairo_surface_flush(surface_.get());
    std::string bytes;
    check(cairo_surface_write_to_png_stream(surface_.get(), append, &bytes));
    return bytes;
}

} // namespace host
