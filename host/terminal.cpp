#include "terminal.hpp"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

namespace host {

namespace {

bool is_set(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr && *value != '\0';
}

bool has_colours() {
    const char* const terminal = std::getenv("TERM");
    return terminal != nullptr && std::strcmp(terminal, "dumb") != 0 && !is_set("NO_COLOR");
}

const char* sequence_of(colour wanted) {
    return wanted == colour::red ? "\x1b[1;31m" : "\x1b[32m";
}

} // namespace

bool is_terminal(std::FILE* file) {
    return isatty(fileno(file)) == 1;
}

std::size_t columns_of(std::FILE* terminal) {
    constexpr std::size_t usual = 80;
    winsize size{};
    return ioctl(fileno(terminal), TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col
                                                                               : usual;
}

std::string coloured(std::FILE* file, colour wanted, const std::string& text) {
    if (text.empty() || !is_terminal(file) || !has_colours()) {
        return text;
    }
    return sequence_of(wanted) + text + "\x1b[0m";
}

void complain(const char* format, ...) {
    // The line in one piece: other processes may write to the same place.
    std::va_list values;
    va_start(values, format);
    std::va_list again;
    va_copy(again, values);
    const int size = std::vsnprintf(nullptr, 0, format, values);
    va_end(values);
    std::string text(static_cast<std::size_t>(size < 0 ? 0 : size) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, again);
    va_end(again);
    text.back() = '\n';
    std::fputs((coloured(stderr, colour::red, "rxp2k7:") + " " + text).c_str(), stderr);
}

} // namespace host
