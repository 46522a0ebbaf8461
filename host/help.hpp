#pragma once

#include <initializer_list>
#include <string>

namespace host {

/// A command line that shows what a command is for.
struct example {
    const char* purpose;
    const char* line;
};

/// The examples as they stand at the end of a command's help.
inline std::string examples_text(std::initializer_list<example> examples) {
    std::string text = "Examples:";
    for (const example& e : examples) {
        text.append("\n  ").append(e.purpose).append(":\n    ").append(e.line);
    }
    return text;
}

} // namespace host
