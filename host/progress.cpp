#include "progress.hpp"

#include "terminal.hpp"

#include <algorithm>
#include <array>
#include <cstdio>

namespace host {

namespace {

constexpr auto bar_interval = std::chrono::milliseconds(100);
constexpr auto line_interval = std::chrono::milliseconds(100);     ///< short works stay silent
constexpr auto unknown_interval = std::chrono::milliseconds(2000); ///< where no share is known
constexpr std::size_t bar_width = 30;
constexpr std::size_t least_bar_width = 5;
constexpr std::size_t gap = 2;              ///< between a name and what follows
constexpr double longest_told = 100 * 3600; ///< seconds; beyond it nobody counts on the figure

/// A total is an estimate: the end is not told before it is reached.
double share(std::uint64_t done, std::uint64_t total) {
    return std::min(static_cast<double>(done) / static_cast<double>(total), 0.99);
}

template<class... Values>
std::string formatted(const char* format, Values... values) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

/// 12345678 packets as "12.3 M packets".
std::string amount(double n, const std::string& unit) {
    if (unit == "bytes") {
        return formatted("%.1f MB", n / 1e6);
    }
    return (n < 1e6 ? formatted("%.0f ", n) : formatted("%.1f M ", n / 1e6)) + unit;
}

/// 75 s as "1:15", 3675 s as "1:01:15".
std::string duration(double seconds) {
    const auto whole = static_cast<unsigned long>(seconds + 0.5);
    const unsigned long minutes = whole / 60 % 60;
    return whole < 3600 ? formatted("%lu:%02lu", minutes, whole % 60)
                        : formatted("%lu:%02lu:%02lu", whole / 3600, minutes, whole % 60);
}

/// The end of a name tells most of it.
std::string shortened(const std::string& name, std::size_t most) {
    constexpr std::size_t dots = 3;
    if (name.size() <= most) {
        return name;
    }
    if (most <= dots) {
        return {};
    }
    std::size_t first = name.size() - (most - dots);
    // Not within a character of UTF-8.
    while (first < name.size() && (static_cast<unsigned char>(name[first]) & 0xC0U) == 0x80U) {
        ++first;
    }
    return "..." + name.substr(first);
}

} // namespace

progress_line::progress_line(std::string name, progress_scale scale)
    : name_(std::move(name))
    , scale_(std::move(scale))
    , on_terminal_(is_terminal(stderr))
    , start_(clock::now())
    , next_(start_ + (on_terminal_ ? bar_interval : line_interval)) {}

void progress_line::change(std::string name, std::uint64_t total) {
    name_ = std::move(name);
    scale_.total = total;
}

void progress_line::show(std::uint64_t done) {
    const auto now = clock::now();
    if (now < next_) {
        return;
    }
    if (on_terminal_) {
        next_ = now + bar_interval;
        draw_bar(done);
    } else {
        next_ = now + (scale_.total == 0 ? unknown_interval : line_interval);
        write_line(done);
    }
}

std::string progress_line::amounts(std::uint64_t done) const {
    const auto n = static_cast<double>(done);
    const double seconds = std::chrono::duration<double>(clock::now() - start_).count();
    std::string text = amount(n, scale_.unit);
    if (seconds <= 0 || done == 0) {
        return text;
    }
    const double part = scale_.total == 0 ? 0 : share(done, scale_.total);
    const bool in_bytes = scale_.bytes != 0 && part > 0;
    text.append(", ")
        .append(in_bytes ? amount(part * static_cast<double>(scale_.bytes) / seconds, "bytes")
                         : amount(n / seconds, scale_.unit))
        .append("/s");
    const double left = part > 0 ? seconds * (1 - part) / part : longest_told;
    if (left < longest_told) {
        text.append(", ").append(duration(left)).append(" left");
    }
    return text;
}

void progress_line::draw_bar(std::uint64_t done) {
    drawn_ = true;
    const double part = scale_.total == 0 ? 0 : share(done, scale_.total);
    const std::string percent = scale_.total == 0 ? "" : formatted("%2.0f %%  ", part * 100);
    const std::string behind = percent + amounts(done);
    // A line that is broken in two could not be drawn over. The last place stays free.
    const std::size_t columns = columns_of(stderr) - 1;
    const std::string name = shortened(name_, columns - std::min(columns, behind.size() + gap));
    const std::size_t taken = name.size() + gap + behind.size() + gap + 1; // with the brackets
    const std::size_t width = std::min(bar_width, columns - std::min(columns, taken));
    std::string bar;
    if (scale_.total != 0 && width >= least_bar_width) {
        const auto filled = static_cast<std::size_t>(part * static_cast<double>(width));
        bar.append("[")
            .append(coloured(stderr, colour::green, std::string(filled, '#')))
            .append(width - filled, '.')
            .append("] ");
    }
    std::fprintf(stderr, "\r%s  %s%s\x1b[K", name.c_str(), bar.c_str(), behind.c_str());
}

void progress_line::write_line(std::uint64_t done) {
    if (scale_.total == 0) {
        std::fprintf(stderr, "%s: %s\n", name_.c_str(), amounts(done).c_str());
        return;
    }
    const auto tenths = static_cast<unsigned>(share(done, scale_.total) * 10);
    if (tenths > tenths_) {
        tenths_ = tenths;
        std::fprintf(stderr, "%s: %u %%, %s\n", name_.c_str(), tenths * 10, amounts(done).c_str());
    }
}

void progress_line::clear() {
    if (drawn_) {
        std::fputs("\r\x1b[K", stderr);
        drawn_ = false;
    }
}

} // namespace host
