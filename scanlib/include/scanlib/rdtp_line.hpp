#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace scanlib {

/// A line of the live protocol: a first token and parameters.
///
///     TOKEN key=value; key=value; key
struct rdtp_line {
    std::string token;                             ///< in capitals
    std::map<std::string, std::string> parameters; ///< keys in small letters; values may be empty

    /// Value of a parameter, empty where there is none.
    std::string value(const std::string& key) const;
};

/// No line is longer than this, in bytes.
inline constexpr std::size_t longest_rdtp_line = 65536;

/// Reads a line; any text is one. Of a key that is there twice the last value counts.
rdtp_line parse_rdtp_line(std::string_view text);

/// The text of a line with its line feed: the parameters in the order of their keys, an empty one
/// as its key alone.
std::string write_rdtp_line(const rdtp_line& line);

} // namespace scanlib
