#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace host {

/// Whether somebody sees the file at once: a terminal is behind it.
bool is_terminal(std::FILE* file);

/// How many characters a line of the terminal has; 80 where it does not tell.
std::size_t columns_of(std::FILE* terminal);

enum class colour { red, green };

/// The text as the file should show it: coloured on a terminal that has colours, unless the
/// environment has a NO_COLOR that is not empty; elsewhere as it is.
std::string coloured(std::FILE* file, colour wanted, const std::string& text);

/// Tells on standard error what went wrong: a line that begins with the program's name. `format`
/// and what follows are those of printf; the line's end comes with it.
[[gnu::format(printf, 1, 2)]] void complain(const char* format, ...);

} // namespace host
