#include "scanlib/rdtp_line.hpp"

#include <algorithm>

namespace scanlib {

namespace {

constexpr std::string_view blanks = "\t\n\r ";
constexpr std::string_view between_parameters = ";\t\n\r ";
constexpr std::string_view key_ends = "\n\r=;";
constexpr std::string_view value_ends = "\n\r;";
constexpr std::string_view trimmed = "\t ";

char to_capital(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}
char to_small(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Takes what stands before the first of `ends` off the text.
std::string_view take(std::string_view& text, std::string_view ends) {
    const std::string_view part = text.substr(0, text.find_first_of(ends));
    text.remove_prefix(part.size());
    return part;
}

void skip(std::string_view& text, std::string_view characters) {
    text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
}

std::string trim(std::string_view text) {
    skip(text, trimmed);
    return std::string(text.substr(0, text.find_last_not_of(trimmed) + 1));
}

} // namespace

std::string rdtp_line::value(const std::string& key) const {
    const auto found = parameters.find(key);
    return found == parameters.end() ? std::string() : found->second;
}

rdtp_line parse_rdtp_line(std::string_view text) {
    rdtp_line line;
    line.token = take(text, blanks);
    std::transform(line.token.begin(), line.token.end(), line.token.begin(), to_capital);
    skip(text, blanks);
    while (!text.empty()) {
        std::string key = trim(take(text, key_ends));
        std::transform(key.begin(), key.end(), key.begin(), to_small);
        std::string value;
        if (text.starts_with('=')) {
            text.remove_prefix(1);
            value = trim(take(text, value_ends));
        }
        line.parameters[std::move(key)] = std::move(value);
        skip(text, between_parameters);
    }
    return line;
}

std::string write_rdtp_line(const rdtp_line& line) {
    std::string text = line.token + ' ';
    const char* separator = "";
    for (const auto& [key, value] : line.parameters) {
        text += separator + key + (value.empty() ? "" : "=" + value);
        separator = "; ";
    }
    return text + '\n';
}

} // namespace scanlib
