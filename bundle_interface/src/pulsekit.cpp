#include "bundle_interface/pulsekit.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string_view>

namespace PulseKit {

namespace {

constexpr std::size_t stamp_length = 13; // yymmdd_hhmmss

bool isStamp(std::string_view text) {
    if (text.size() < stamp_length) {
        return false;
    }
    for (std::size_t i = 0; i < stamp_length; ++i) {
        const bool fits = i == 6 ? text[i] == '_' : text[i] >= '0' && text[i] <= '9';
        if (!fits) {
            return false;
        }
    }
    return true;
}

std::int32_t twoDigits(std::string_view text, std::size_t at) {
    return (text[at] - '0') * 10 + (text[at + 1] - '0');
}

} // namespace

Chronometry::Chronometry(const std::string& name) {
    if (!isStamp(name)) {
        return;
    }
    const std::int32_t y = 2000 + twoDigits(name, 0);
    const std::int32_t mon = twoDigits(name, 2);
    const std::int32_t d = twoDigits(name, 4);
    const std::int32_t h = twoDigits(name, 7);
    const std::int32_t min = twoDigits(name, 9);
    const std::int32_t s = twoDigits(name, 11);
    const std::chrono::year_month_day real(std::chrono::year{y},
                                           std::chrono::month{static_cast<unsigned>(mon)},
                                           std::chrono::day{static_cast<unsigned>(d)});
    if (!real.ok() || h > 23 || min > 59 || s > 59) {
        return;
    }
    date = (y * 100 + mon) * 100 + d;
    time = (h * 100 + min) * 100 + s;
    year = y;
    month = mon;
    day = d;
    seconds_of_day = (h * 60 + min) * 60 + s;
    date_code = static_cast<std::int32_t>(std::chrono::sys_days(real).time_since_epoch().count());
}

std::string Chronometry::ddmmyyyy(char separator) const {
    char text[40];
    const int n = std::snprintf(text, sizeof text, "%02d%c%02d%c%04d", day, separator, month,
                                separator, year);
    return std::string(text, static_cast<std::size_t>(std::max(n, 0)));
}

} // namespace PulseKit
