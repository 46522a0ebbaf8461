#include "printable.hpp"

#include <algorithm>

namespace host {

namespace {

constexpr std::size_t longest_text = 2000;

bool is_control(char c) {
    return (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t') || c == 0x7F;
}

} // namespace

std::string printable(std::string text) {
    if (text.size() > longest_text) {
        text.resize(longest_text);
        text += " ...";
    }
    std::replace_if(text.begin(), text.end(), is_control, '?');
    return text;
}

} // namespace host
