#include "canvas.hpp"

#include <cairo-pdf.h>
#include <cairo.h>
#include <new>
#include <stdexcept>

namespace LoomPDF {

namespace {

/// The day that stands in every file, since the clock must not.
constexpr const char* constant_date = "1970-01-01T00:00:00Z";

constexpr double pi = 3.141592653589793;

constexpr const char* replacement = "\xEF\xBF\xBD";

cairo_status_t append(void* bytes, const unsigned char* data, unsigned int length) {
    try {
        static_cast<std::string*>(bytes)->append(reinterpret_cast<const char*>(data), length);
        return CAIRO_STATUS_SUCCESS;
    } catch (const std::bad_alloc&) {
        return CAIRO_STATUS_NO_MEMORY;
    }
}

void check(cairo_status_t status) {
    if (status != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error(cairo_status_to_string(status));
    }
}

/// Length of the well-formed UTF-8 character at `at`, 0 where there is none.
std::size_t character_length(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t i) -> unsigned {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned first = byte(at);
    if (first < 0x80) {
        return 1;
    }
    if (first < 0xC2 || first > 0xF4) {
        return 0;
    }
    const std::size_t n = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    unsigned code = first & (0x7FU >> n);
    for (std::size_t i = 1; i < n; ++i) {
        if ((byte(at + i) & 0xC0U) != 0x80) {
            return 0;
        }
        code = code << 6U | (byte(at + i) & 0x3FU);
    }
    const bool overlong = (n == 3 && code < 0x800) || (n == 4 && code < 0x10000);
    const bool no_character = (code >= 0xD800 && code < 0xE000) || code > 0x10FFFF;
    return overlong || no_character ? 0 : n;
}

} // namespace

std::string presentable(const std::string& text, std::size_t longest) {
    std::string result;
    std::size_t at = 0;
    for (std::size_t i = 0; at < text.size() && i < longest; ++i) {
        const std::size_t n = character_length(text, at);
        const auto byte = static_cast<unsigned char>(text[at]);
        if (n == 0) {
            result += replacement;
        } else if (byte < 0x20 || byte == 0x7F) {
            result += ' ';
        } else {
            result.append(text, at, n);
        }
        at += n == 0 ? 1 : n;
    }
    return result;
}

void Canvas::Release::operator()(_cairo_surface* s) const noexcept {
    cairo_surface_destroy(s);
}

void Canvas::Release::operator()(_cairo* c) const noexcept {
    cairo_destroy(c);
}

Canvas::Canvas(double width, double height, const std::string& title)
    : surface_(cairo_pdf_surface_create_for_stream(append, &bytes_, width, height)) {
    check(cairo_surface_status(surface_.get()));
    cairo_pdf_surface_set_metadata(surface_.get(), CAIRO_PDF_METADATA_TITLE, title.c_str());
    cairo_pdf_surface_set_metadata(surface_.get(), CAIRO_PDF_METADATA_CREATE_DATE, constant_date);
    context_.reset(cairo_create(surface_.get()));
    cairo_select_font_face(context_.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_line_cap(context_.get(), CAIRO_LINE_CAP_BUTT);
    check(cairo_status(context_.get()));
}

void Canvas::pen(const Colour& colour, double line_width) {
    cairo_set_source_rgb(context_.get(), colour.red, colour.green, colour.blue);
    cairo_set_line_width(context_.get(), line_width);
}

void Canvas::lines(const std::vector<Segment>& segments) {
    for (const Segment& segment : segments) {
        cairo_move_to(context_.get(), segment.from.x, segment.from.y);
        cairo_line_to(context_.get(), segment.to.x, segment.to.y);
    }
    cairo_stroke(context_.get());
}

void Canvas::box(const Box& box) {
    cairo_rectangle(context_.get(), box.left, box.top, box.width(), box.height());
    cairo_stroke(context_.get());
}

void Canvas::polyline(const std::vector<Polyline::Move>& moves) {
    cairo_save(context_.get());
    cairo_set_line_cap(context_.get(), CAIRO_LINE_CAP_ROUND);
    cairo_set_line_join(context_.get(), CAIRO_LINE_JOIN_ROUND);
    for (const Polyline::Move& move : moves) {
        if (move.draws) {
            cairo_line_to(context_.get(), move.to.x, move.to.y);
        } else {
            cairo_move_to(context_.get(), move.to.x, move.to.y);
        }
    }
    cairo_stroke(context_.get());
    cairo_restore(context_.get());
}

void Canvas::dot(Point middle, double diameter) {
    cairo_arc(context_.get(), middle.x, middle.y, diameter / 2, 0, 2 * pi);
    cairo_fill(context_.get());
}

void Canvas::font_size(double points) {
    cairo_set_font_size(context_.get(), points);
}

double Canvas::width(const std::string& text) {
    cairo_text_extents_t extents{};
    cairo_text_extents(context_.get(), text.c_str(), &extents);
    return extents.x_advance;
}

void Canvas::write(const std::string& text, Point at, double shift, bool turned) {
    cairo_save(context_.get());
    cairo_translate(context_.get(), at.x, at.y);
    if (turned) {
        cairo_rotate(context_.get(), -pi / 2);
    }
    cairo_move_to(context_.get(), shift, 0);
    cairo_show_text(context_.get(), text.c_str());
    cairo_restore(context_.get());
    cairo_new_path(context_.get());
}

void Canvas::centred(const std::string& text, Point middle, bool turned) {
    write(text, middle, -width(text) / 2, turned);
}

void Canvas::from(const std::string& text, Point start) {
    write(text, start, 0, false);
}

void Canvas::up_to(const std::string& text, Point end) {
    write(text, end, -width(text), false);
}

const std::string& Canvas::finish() {
    cairo_show_page(context_.get());
    check(cairo_status(context_.get()));
    cairo_surface_finish(surface_.get());
    check(cairo_surface_status(surface_.get()));
    return bytes_;
}

} // namespace LoomPDF
