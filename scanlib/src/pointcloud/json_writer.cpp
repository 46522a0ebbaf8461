#include "scanlib/json_writer.hpp"

#include <charconv>
#include <cmath>

namespace scanlib {

namespace {

/// Length of the valid UTF-8 sequence at the start of `text`; 0 if there is none.
std::size_t utf8_length(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    std::size_t length = 0;
    std::uint32_t code = 0;
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first < 0xE0) {
        length = 2;
        code = first & 0x1F;
    } else if (first >= 0xE0 && first < 0xF0) {
        length = 3;
        code = first & 0x0F;
    } else if (first >= 0xF0 && first < 0xF5) {
        length = 4;
        code = first & 0x07;
    } else {
        return 0;
    }
    if (text.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
        code = code << 6 | (byte(i) & 0x3F);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool surrogate = code >= 0xD800 && code < 0xE000;
    return overlong || surrogate || code > 0x10FFFF ? 0 : length;
}

} // namespace

void json_writer::separate() {
    if (after_key_) {
        after_key_ = false;
        return;
    }
    if (!filled_.empty()) {
        if (filled_.back()) {
            text_ += ',';
        }
        filled_.back() = true;
    }
}

void json_writer::put_text(std::string_view text) {
    static constexpr char digits[] = "0123456789abcdef";
    text_ += '"';
    while (!text.empty()) {
        const auto c = static_cast<unsigned char>(text.front());
        const std::size_t length = utf8_length(text);
        if (c == '"' || c == '\\') {
            text_ += '\\';
            text_ += text.front();
        } else if (c < 0x20 || c == 0x7F || length == 0) {
            text_ += "\\u00";
            text_ += digits[c >> 4];
            text_ += digits[c & 15];
        } else {
            text_ += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    text_ += '"';
}

json_writer& json_writer::begin_object() {
    separate();
    text_ += '{';
    filled_.push_back(false);
    return *this;
}

json_writer& json_writer::end_object() {
    text_ += '}';
    filled_.pop_back();
    return *this;
}

json_writer& json_writer::begin_array() {
    separate();
    text_ += '[';
    filled_.push_back(false);
    return *this;
}

json_writer& json_writer::end_array() {
    if (filled_.back()) {
        text_ += ']';
    } else {
        text_.back() = '"';
        text_ += '"';
    }
    filled_.pop_back();
    return *this;
}

json_writer& json_writer::key(std::string_view name) {
    separate();
    put_text(name);
    text_ += ':';
    after_key_ = true;
    return *this;
}

template<class Float>
json_writer& json_writer::put_float(Float number, int digits) {
    if (std::isnan(number)) {
        return value(std::string_view("nan"));
    }
    if (std::isinf(number)) {
        return value(std::string_view(number < 0 ? "-inf" : "inf"));
    }
    separate();
    char buffer[40];
    const auto end =
        std::to_chars(buffer, buffer + sizeof buffer, number, std::chars_format::general, digits)
            .ptr;
    text_.append(buffer, end);
    return *this;
}

template<class Int>
json_writer& json_writer::put_int(Int number) {
    separate();
    char buffer[24];
    text_.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, number).ptr);
    return *this;
}

json_writer& json_writer::value(double number) {
    return put_float(number, 17);
}
json_writer& json_writer::value(float number) {
    return put_float(number, 9);
}
json_writer& json_writer::value(std::int32_t number) {
    return put_int(number);
}
json_writer& json_writer::value(std::uint32_t number) {
    return put_int(number);
}
json_writer& json_writer::value(std::uint64_t number) {
    return put_int(number);
}

json_writer& json_writer::value(std::string_view text) {
    separate();
    put_text(text);
    return *this;
}

} // namespace scanlib
