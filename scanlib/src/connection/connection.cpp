#include "scanlib/connection.hpp"

#include <algorithm>
#include <ctime>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "header_scan.hpp"
#include "scanlib/file_connection.hpp"
#include "scanlib/mem_wconnection.hpp"
#include "scanlib/rddp_connection.hpp"
#include "scanlib/rdtp_connection.hpp"
#include "scanlib/rewriter.hpp"
#include "source_file.hpp"
#include "stream_log.hpp"
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

/// Takes a rewritten header region, up to a limit: a stream without measurement has no end of it.
class region_sink : public mem_wconnection {
  public:
    region_sink(std::vector<char>& bytes, std::uint64_t limit)
        : mem_wconnection(bytes), limit_(limit) {}

    std::int64_t write(const char* data, std::int64_t n) override {
        taken_ += static_cast<std::uint64_t>(std::max<std::int64_t>(n, 0));
        if (taken_ > limit_) {
            throw std::runtime_error("header replacement: no measurement within " +
                                     std::to_string(limit_) + " bytes of the header");
        }
        return mem_wconnection::write(data, n);
    }

  private:
    std::uint64_t limit_;
    std::uint64_t taken_ = 0;
};

/// While it lives reads are not scanned; behind it the stream begins with a word.
class header_replacement {
  public:
    header_replacement(bool& replacing, header_scan& scan) : replacing_(replacing), scan_(scan) {
        replacing_ = true;
    }
    header_replacement(const header_replacement&) = delete;
    header_replacement& operator=(const header_replacement&) = delete;
    ~header_replacement() {
        replacing_ = false;
        scan_.realign();
    }

  private:
    bool& replacing_;
    header_scan& scan_;
};

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
    std::deque<char> pushed_back;   ///< its front is delivered first
    std::uint64_t scanned_back = 0; ///< bytes at its front that are scanned already
    std::uint64_t region_back = 0;  ///< bytes of it that belong to a replaced header region
    std::uint32_t headers_back = 0; ///< headers replaced since the region began

    header_scan scan;
    bool replacing = false;
    std::optional<override_text> overrides; ///< the pxp text, once a header needs it
    override_listener* listener = nullptr;

    stream_log log;
    file_place from;         ///< where the bytes of the present read can be read again
    bool logging = false;    ///< the log is open, or its failure not yet told
    std::string log_failure; ///< not yet told
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

void basic_rconnection::pxp(const std::string& text) {
    pxp_ = text;
    state_->overrides.reset();
}
void basic_rconnection::listen_to_overrides(override_listener* listener) noexcept {
    state_->listener = listener;
}

void basic_rconnection::log(const std::string& path, std::int64_t limit) {
    state_->log_failure.clear();
    state_->log.open(path, limit);
    state_->logging = true;
}
void basic_rconnection::flush_log() {
    state_->log.flush();
}
void basic_rconnection::close_log() {
    state_->logging = false;
    state_->log.close();
}

void basic_rconnection::delivered_from(file_place place) noexcept {
    state_->from = place;
}

void basic_rconnection::push_back(const char* data, std::uint64_t n) {
    state_->pushed_back.insert(state_->pushed_back.begin(), data, data + n);
}

/// Bytes from the push-back's front: scanned ones and others not in one piece.
std::uint64_t basic_rconnection::take_pushed_back(char* dst, std::uint64_t n) {
    state& s = *state_;
    std::uint64_t k = std::min<std::uint64_t>(n, s.pushed_back.size());
    k = s.scanned_back != 0 ? std::min(k, s.scanned_back) : k;
    const auto end = s.pushed_back.begin() + static_cast<std::ptrdiff_t>(k);
    std::copy(s.pushed_back.begin(), end, dst);
    s.pushed_back.erase(s.pushed_back.begin(), end);
    return k;
}

std::uint64_t basic_rconnection::read(char* dst, std::uint64_t n) {
    state& s = *state_;
    std::uint64_t k = 0;
    bool scanned = s.replacing;
    std::uint64_t in_region = 0; // bytes of this read that lie in a replaced header region
    s.from = {};
    if (!s.pushed_back.empty()) [[unlikely]] {
        k = take_pushed_back(dst, n);
        scanned = scanned || s.scanned_back != 0;
        s.scanned_back -= std::min(k, s.scanned_back);
        in_region = std::min(k, s.region_back);
        s.region_back -= in_region;
    } else if (!end_of_input_) {
        k = more_input(dst, n);
    }
    if (!pxp_.empty() && !scanned) {
        k = replace_headers(dst, k, in_region);
    }
    if (s.logging) [[unlikely]] {
        copy_to_log(dst, k);
    }
    gcount_ = k;
    position_ += k;
    return k;
}
/// Searches what a read brought for a header packet. One that begins in it is replaced by what the
/// following reads bring; this one then ends with the packet's first eight bytes. Returns the bytes
/// that the read delivers.
std::uint64_t basic_rconnection::replace_headers(const char* data, std::uint64_t n,
                                                 std::uint64_t in_region) {
    state& s = *state_;
    const std::uint64_t m = s.scan.find(data, n);
    if (m == 0) {
        return n;
    }
    s.headers_back = m <= in_region ? s.headers_back + 1 : 0;
    if (s.headers_back > most_headers_in_region) {
        throw std::runtime_error("header replacement: more than " +
                                 std::to_string(most_headers_in_region) +
                                 " further headers before the measurement");
    }
    push_back(data + m, n - m);
    push_back(reinterpret_cast<const char*>(header_packet_start.data()),
              header_packet_start.size());
    replace_header();
    s.from = {}; // it is that of the reads in between
    return m;
}

/// Puts the rewritten header region in the place of the one that is pushed back, less the eight
/// bytes that the reader has already.
void basic_rconnection::replace_header() {
    state& s = *state_;
    const header_replacement in_progress(s.replacing, s.scan);
    std::vector<char> output;
    const auto sink = std::make_shared<region_sink>(output, longest_header_region);
    const std::shared_ptr<basic_rconnection> self = shared_from_this();
    if (!s.overrides) {
        s.overrides = parse_override_text(pxp_);
    }
    const std::uint64_t beyond = rewrite(self, sink, *s.overrides, s.listener);
    if (output.size() < header_packet_start.size()) {
        throw std::runtime_error("internal error: parameter replacement 1");
    }
    if (!std::equal(header_packet_start.begin(), header_packet_start.end(), output.begin(),
                    [](unsigned char a, char b) { return a == static_cast<unsigned char>(b); })) {
        throw std::runtime_error("internal error: parameter replacement 2");
    }
    const std::uint64_t rest = output.size() - header_packet_start.size();
    push_back(output.data() + header_packet_start.size(), rest);
    s.region_back = rest - std::min(rest, beyond);
}

/// A log that fails is told once the read is complete, and by then nothing of it is lost.
void basic_rconnection::copy_to_log(const char* data, std::uint64_t n) {
    state& s = *state_;
    if (s.log.is_open()) {
        try {
            s.log.write(data, n, s.from);
        } catch (const std::runtime_error& failure) {
            s.log_failure = failure.what();
        }
    }
    if (s.log_failure.empty() || s.replacing) {
        return;
    }
    push_back(data, n);
    s.scanned_back += n;
    s.region_back += s.region_back != 0 ? n : 0;
    s.logging = false;
    throw std::runtime_error(std::exchange(s.log_failure, {}));
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
