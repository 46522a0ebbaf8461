#include "byte_output.hpp"

namespace host {

namespace {

constexpr std::size_t piece = std::size_t{1} << 18;

} // namespace

byte_output::byte_output(scanlib::basic_wconnection& to) : to_(to), buffer_(piece) {}

void byte_output::append(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t n = std::min(bytes.size(), most_at_once);
        bytes.copy(room(n), n);
        take(n);
        bytes.remove_prefix(n);
    }
}

void byte_output::flush() {
    to_.write(buffer_.data(), static_cast<std::int64_t>(size_));
    written_ += size_;
    size_ = 0;
}

} // namespace host
