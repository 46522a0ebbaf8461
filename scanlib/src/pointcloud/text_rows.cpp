#include <algorithm>
#include <array>
#include <charconv>
#include <ostream>
#include <string_view>

#include "scanlib/pointcloud.hpp"

// Targets as rows of text.
namespace scanlib {

namespace {

constexpr std::string_view header = "X, Y, Z"
                                    ", targetcount"
                                    ", time"
                                    ", echo_range"
                                    ", amplitude"
                                    ", reflectance"
                                    ", deviation"
                                    ", lineend"
                                    ", red, green, blue"
                                    ", temperature"
                                    "\n";

constexpr int coordinate_digits = 8;
constexpr std::ptrdiff_t coordinate_width = 10;
constexpr int fine_digits = 12;
constexpr int coarse_digits = 4;

/// One row, put together without the stream, whose locale must not show.
class text_row {
  public:
    /// A number with so many significant digits, filled with blanks from the left.
    void add(double number, int digits, std::ptrdiff_t width = 0) noexcept {
        char* const begin = next_field();
        char* end =
            std::to_chars(begin, begin + widest_field, number, std::chars_format::general, digits)
                .ptr;
        if (const std::ptrdiff_t missing = width - (end - begin); missing > 0) {
            std::copy_backward(begin, end, end + missing);
            std::fill_n(begin, missing, ' ');
            end += missing;
        }
        end_ = end;
    }
    void add(std::size_t number) noexcept {
        char* const begin = next_field();
        end_ = std::to_chars(begin, begin + widest_field, number).ptr;
    }
    std::string_view finished() noexcept {
        *end_++ = '\n';
        return {text_.data(), static_cast<std::size_t>(end_ - text_.data())};
    }

  private:
    static constexpr std::size_t fields = 10;
    static constexpr std::size_t widest_field = 24;

    char* next_field() noexcept {
        if (end_ != text_.data()) {
            *end_++ = ',';
        }
        return end_;
    }

    std::array<char, fields*(widest_field + 1) + 1> text_;
    char* end_ = text_.data();
};

} // namespace

void pointcloud::set_text_sink(std::ostream* sink) noexcept {
    text_sink_ = sink;
    text_header_written_ = false;
}

void pointcloud::on_echo_ready(echo_position /*position*/) {
    const bool header_due = !text_header_written_;
    text_header_written_ = true;
    if (text_sink_ == nullptr) {
        return;
    }
    if (header_due) {
        *text_sink_ << header;
    }
    const target& t = newest_target();
    text_row row;
    for (const float coordinate : t.vertex) {
        row.add(coordinate, coordinate_digits, coordinate_width);
    }
    row.add(target_count - 1);
    row.add(t.time, fine_digits);
    row.add(t.echo_range, fine_digits);
    row.add(t.amplitude, coarse_digits);
    row.add(t.reflectance, coarse_digits);
    row.add(t.deviation, coarse_digits);
    row.add(std::size_t{t.lineend});
    const std::string_view text = row.finished();
    text_sink_->write(text.data(), static_cast<std::streamsize>(text.size()));
}

} // namespace scanlib
