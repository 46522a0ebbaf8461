#include "scanlib/connection.hpp"

#include <algorithm>
#include <ctime>
#include <deque>

#include "scanlib/file_connection.hpp"
#include "scanlib/rddp_connection.hpp"
#include "scanlib/rdtp_connection.hpp"
#include "uri.hpp"

namespace scanlib {

namespace {

std::string default_id() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[22];
    return {text, std::strftime(text, sizeof text, "UNNAMED_%y%m%d_%H%M%S", &utc)};
}

} // namespace

basic_connection::basic_connection() : id_(default_id()) {}
basic_connection::~basic_connection() = default;
void basic_connection::open() {}
void basic_connection::close() {}
void basic_connection::cancel() {}

basic_connection* basic_connection::create(const std::string& uri) {
    throw std::runtime_error("Cannot create read-write connection from uri: " + uri);
}

/// Private part of a read connection.
struct basic_rconnection::state {
    std::deque<char> pushed_back; ///< its front is delivered first
};

basic_rconnection::basic_rconnection(std::string pxp)
    : pxp_(std::move(pxp)), state_(std::make_unique<state>()) {}
basic_rconnection::~basic_rconnection() = default;
std::uint64_t basic_rconnection::position() {
    return position_;
}
void basic_rconnection::seek(std::uint64_t) {
    throw std::runtime_error("basic_rconnection: stream is not seekable!");
}
std::string basic_rconnection::continuation() {
    return {};
}
void basic_rconnection::stop() {}

basic_rconnection* basic_rconnection::create(const std::string& uri,
                                             const std::string& continuation,
                                             const std::string& pxp) {
    const std::string_view scheme = scheme_of(uri);
    if (scheme == "rdtp") {
        return new rdtp_rconnection(uri, continuation, pxp);
    }
    if (scheme == "rddp") {
        return new rddp_rconnection(uri, continuation, pxp);
    }
    return new file_rconnection(scheme == file_scheme ? uri : std::string(file_prefix) + uri,
                                continuation, pxp);
}

void basic_rconnection::push_back(const char* data, std::uint64_t n) {
    state_->pushed_back.insert(state_->pushed_back.begin(), data, data + n);
}

std::uint64_t basic_rconnection::read(char* dst, std::uint64_t n) {
    std::deque<char>& pushed_back = state_->pushed_back;
    std::uint64_t k = 0;
    if (!pushed_back.empty()) [[unlikely]] {
        k = std::min<std::uint64_t>(n, pushed_back.size());
        const auto end = pushed_back.begin() + static_cast<std::ptrdiff_t>(k);
        std::copy(pushed_back.begin(), end, dst);
        pushed_back.erase(pushed_back.begin(), end);
    } else if (!end_of_input_) {
        k = more_input(dst, n);
    }
    gcount_ = k;
    position_ += k;
    return k;
}

basic_rconnection& basic_rconnection::read_all(char* dst, std::uint64_t n) {
    if (end_of_input_) {
        throw std::runtime_error("basic_rconnection: attempt to read beyond end of input!");
    }
    std::uint64_t total = 0;
    while (total < n) {
        const std::uint64_t k = read(dst + total, n - total);
        if (k == 0) {
            break;
        }
        total += k;
    }
    gcount_ = total;
    return *this;
}

basic_wconnection::basic_wconnection() = default;
basic_wconnection::~basic_wconnection() = default;
void basic_wconnection::flush() {}

basic_wconnection* basic_wconnection::create(const std::string& uri) {
    return new file_wconnection(scheme_of(uri) == file_scheme ? uri
                                                              : std::string(file_prefix) + uri);
}

} // namespace scanlib
