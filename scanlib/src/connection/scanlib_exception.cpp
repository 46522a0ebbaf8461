#include "scanlib/scanlib_exception.hpp"

namespace scanlib {

namespace {

constexpr const char* library_text = "ostrel-" SCANLIB_VERSION "." SCANLIB_BUILD_ID;
constexpr const char* platform_text = SCANLIB_PLATFORM;
constexpr const char* separator = " : ";

} // namespace

scanlib_exception::scanlib_exception(const std::string& message, const std::string& source,
                                     int line) {
    if (source.empty()) {
        text_ = message;
        return;
    }
    text_ = std::string(library_text) + separator + platform_text + separator + source + separator +
            std::to_string(line) + separator + message;
}

} // namespace scanlib
