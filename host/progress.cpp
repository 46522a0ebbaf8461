#include "progress.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <unistd.h>

namespace host {

namespace {

constexpr auto bar_interval = std::chrono::milliseconds(100);
constexpr auto line_interval = std::chrono::milliseconds(100);     ///< short works stay silent
constexpr auto unknown_interval = std::chrono::milliseconds(2000); ///< where no share is known
constexpr unsigned bar_width = 30;

/// A total is an estimate: the end is not told before it is reached.
double share(std::uint64_t done, std::uint64_t total) {
    return std::min(static_cast<double>(done) / static_cast<double>(total), 0.99);
}

/// 12345678 as "12.3 M".
std::string short_number(std::uint64_t n) {
    std::array<char, 32> text{};
    if (n < 1'000'000) {
        std::snprintf(text.data(), text.size(), "%llu", static_cast<unsigned long long>(n));
    } else {
        std::snprintf(text.data(), text.size(), "%.1f M", static_cast<double>(n) / 1e6);
    }
    return text.data();
}

} // namespace

progress_line::progress_line(std::string name, std::string unit, std::uint64_t total)
    : name_(std::move(name))
    , unit_(std::move(unit))
    , total_(total)
    , on_terminal_(isatty(STDERR_FILENO) == 1)
    , next_(clock::now() + (on_terminal_ ? bar_interval : line_interval)) {}

void progress_line::show(std::uint64_t done) {
    const auto now = clock::now();
    if (now < next_) {
        return;
    }
    if (on_terminal_) {
        next_ = now + bar_interval;
        draw_bar(done);
    } else {
        next_ = now + (total_ == 0 ? unknown_interval : line_interval);
        write_line(done);
    }
}

void progress_line::draw_bar(std::uint64_t done) {
    drawn_ = true;
    if (total_ == 0) {
        std::fprintf(stderr, "\r%s  %s %s\x1b[K", name_.c_str(), short_number(done).c_str(),
                     unit_.c_str());
        return;
    }
    const double part = share(done, total_);
    const auto filled = static_cast<unsigned>(part * bar_width);
    std::fprintf(stderr, "\r%s  [%s%s] %2.0f %%  %s %s\x1b[K", name_.c_str(),
                 std::string(filled, '#').c_str(), std::string(bar_width - filled, '.').c_str(),
                 part * 100, short_number(done).c_str(), unit_.c_str());
}

void progress_line::write_line(std::uint64_t done) {
    if (total_ == 0) {
        std::fprintf(stderr, "%s: %s %s\n", name_.c_str(), short_number(done).c_str(),
                     unit_.c_str());
        return;
    }
    const auto tenths = static_cast<unsigned>(share(done, total_) * 10);
    if (tenths > tenths_) {
        tenths_ = tenths;
        std::fprintf(stderr, "%s: %u %%, %s %s\n", name_.c_str(), tenths * 10,
                     short_number(done).c_str(), unit_.c_str());
    }
}

void progress_line::clear() {
    if (drawn_) {
        std::fputs("\r\x1b[K", stderr);
        drawn_ = false;
    }
}

} // namespace host
