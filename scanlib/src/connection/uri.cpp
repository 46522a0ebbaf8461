#include "uri.hpp"

#include <stdexcept>

namespace scanlib {

std::string_view scheme_of(std::string_view uri) {
    const std::size_t at = uri.find_first_of(":/?#");
    return at != std::string_view::npos && uri[at] == ':' ? uri.substr(0, at) : std::string_view();
}

uri_parts parse_uri(std::string_view uri) {
    uri_parts parts;
    const std::string_view scheme = scheme_of(uri);
    parts.scheme = scheme;
    if (scheme.data() != nullptr) {
        uri.remove_prefix(scheme.size() + 1);
    }
    const auto take = [&uri](std::size_t begin, std::string_view ends) {
        const std::size_t end = uri.find_first_of(ends, begin);
        std::string part(uri.substr(begin, end == std::string_view::npos ? end : end - begin));
        uri = end == std::string_view::npos ? std::string_view() : uri.substr(end);
        return part;
    };
    if (const std::size_t slashes = uri.find("//");
        slashes != std::string_view::npos && slashes < uri.find_first_of("?#")) {
        uri.remove_prefix(slashes);
        parts.authority = take(2, "/?#");
    }
    parts.path = take(0, "?#");
    if (uri.starts_with('?')) {
        parts.query = take(1, "#");
    }
    if (uri.starts_with('#')) {
        parts.fragment = take(1, "");
    }
    return parts;
}

std::string path_of_file_uri(const std::string& uri) {
    const std::string scheme = parse_uri(uri).scheme;
    if (scheme != file_scheme) {
        throw std::runtime_error("Expected \"file:\" scheme, got \"" + scheme + ":\".");
    }
    return uri.substr(file_prefix.size());
}

} // namespace scanlib
