#include "text_files.hpp"

#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace Riegl {

namespace {

bool is_continuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

/// Length of the well-formed UTF-8 sequence at `at`, 0 where there is none.
std::size_t sequence_length(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
    };
    const unsigned first = byte(at);
    if (first < 0x80) {
        return 1;
    }
    const std::size_t n = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4) {
        return 0;
    }
    for (std::size_t i = 1; i < n; ++i) {
        if (!is_continuation(static_cast<unsigned char>(byte(at + i)))) {
            return 0;
        }
    }
    const unsigned second = byte(at + 1);
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool no_character = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
    return overlong || no_character ? 0 : n;
}

} // namespace

std::string utf8_of(const std::filesystem::path& path) {
    // A path's bytes are its UTF-8 text on this platform; other bytes have no wide form to convert.
    const std::string& text = path.native();
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t n = sequence_length(text, at);
        if (n == 0) {
            throw std::range_error("path is no UTF-8 text at byte " + std::to_string(at));
        }
        at += n;
    }
    return text;
}

std::int64_t stream_size(const std::filesystem::path& path) {
    const auto close = [](std::FILE* f) { std::fclose(f); };
    const std::unique_ptr<std::FILE, decltype(close)> file(std::fopen(utf8_of(path).c_str(), "rb"),
                                                           close);
    if (!file) {
        return -1;
    }
    return std::fseek(file.get(), 0, SEEK_END) == 0
               ? static_cast<std::int64_t>(std::ftell(file.get()))
               : -1;
}

void append_log_line(const std::filesystem::path& path, const std::string& text) noexcept {
    try {
        if (path.empty()) {
            return;
        }
        std::ofstream out(path, std::ios::out | std::ios::app);
        if (out) {
            out << text << '\n';
        }
    } catch (...) {
        // A log that cannot be written must not end a conversion.
        return;
    }
}

} // namespace Riegl
