#include "csv_writer.hpp"

#include <charconv>
#include <cmath>

namespace host {

namespace {

constexpr std::size_t longest_number = 32;
constexpr std::size_t numbers = 9;
constexpr std::size_t longest_line = numbers * longest_number;
static_assert(longest_line <= byte_output::most_at_once);

template<class Number>
char* put(char* to, Number value, char behind = ',') {
    if constexpr (std::is_floating_point_v<Number>) {
        value = std::isnan(value) ? std::abs(value) : value; // the sign of a NaN says nothing
    }
    to = std::to_chars(to, to + longest_number, value).ptr;
    *to = behind;
    return to + 1;
}

} // namespace

csv_writer::csv_writer(byte_output& to) : to_(to) {
    to_.append("x,y,z,gps_time,amplitude,reflectance,channel,return_number,number_of_returns\n");
}

void csv_writer::write(std::span<const exported_point> points) {
    for (const exported_point& p : points) {
        char* const begin = to_.room(longest_line);
        char* at = put(begin, p.x);
        at = put(at, p.y);
        at = put(at, p.z);
        at = put(at, p.time);
        at = put(at, p.amplitude);
        at = put(at, p.reflectance);
        at = put(at, unsigned{p.channel});
        at = put(at, unsigned{p.return_number});
        at = put(at, unsigned{p.returns}, '\n');
        to_.take(static_cast<std::size_t>(at - begin));
    }
    written_ += points.size();
}

} // namespace host
