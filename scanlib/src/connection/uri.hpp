#pragma once

#include <string>
#include <string_view>

namespace scanlib {

inline constexpr std::string_view file_scheme = "file";
inline constexpr std::string_view file_prefix = "file:";

/// A URI in its five parts, each of which may be empty.
struct uri_parts {
    std::string scheme;
    std::string authority;
    std::string path;
    std::string query;
    std::string fragment;
};

/// The scheme: what stands before the first of ":/?#" where that is a colon.
std::string_view scheme_of(std::string_view uri);

uri_parts parse_uri(std::string_view uri);

/// What follows "file:" in a file URI. Throws std::runtime_error for another scheme.
std::string path_of_file_uri(const std::string& uri);

} // namespace scanlib
