#include "point_join.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace host {

namespace {

constexpr std::uint8_t most_returns = std::numeric_limits<std::uint8_t>::max();

enum shot_column : std::size_t { shot_gps_time, shot_direction, shot_origin };
enum echo_column : std::size_t {
    echo_gps_time,
    echo_range,
    echo_amplitude,
    echo_channel,
    echo_reflectance
};

std::string shots_of(const Skein::K7Reader& file, const std::string& slice) {
    std::string grid = slice + "/Shots";
    if (file.kindOf(grid) == Skein::K7Reader::Kind::none) {
        throw Skein::K7ReadError(file.path(), grid, "it is missing");
    }
    return grid;
}

} // namespace

// Two spans of shots, so that what lies before the next shot stays while one looks ahead of it.
point_join::point_join(const Skein::K7Reader& file, const std::string& slice)
    : shots_(file, shots_of(file, slice),
             {{{"GPSTime", 1}, {"Waveforms.DirectionDelta", 3}, {"Positions", 3}}},
             2 * shots_around)
    , echoes_(
          file, slice + "/OPP",
          {{{"GPSTime", 1}, {"Range", 1}, {"Amplitude", 1}, {"Channel", 1}, {"Reflectance", 1}}},
          most_returns) {}

double point_join::echo_time(std::uint64_t row) const {
    return *echoes_.values<echo_gps_time>(row);
}

double point_join::shot_time(std::uint64_t row) const {
    return *shots_.values<shot_gps_time>(row);
}

std::size_t point_join::next(std::span<exported_point> to) {
    std::size_t filled = 0;
    if (failure_.empty()) {
        try {
            read_points(to, filled);
        } catch (const Skein::K7ReadError& e) {
            failure_ = e.what();
        }
    }
    return filled;
}

void point_join::read_points(std::span<exported_point> to, std::size_t& filled) {
    for (; filled < to.size() && echoes_.reach(echo_); ++echo_) {
        if (echo_ == last_echo_) {
            begin_shot();
        }
        ++counts_.echoes;
        if (!found_) {
            ++counts_.without_shot;
            continue;
        }
        return_number_ = static_cast<std::uint8_t>(std::min(return_number_ + 1, int{most_returns}));
        if (place(to[filled])) {
            ++filled;
        } else {
            ++counts_.not_finite;
        }
    }
}

/// Takes the echoes from here on that have one time. Of more than can be counted, each further one
/// is the last of them.
void point_join::begin_shot() {
    const double time = echo_time(echo_);
    if (returns_ == most_returns && time == time_) {
        last_echo_ = echo_ + 1;
        return;
    }
    returns_ = 1;
    while (returns_ < most_returns && echoes_.reach(echo_ + returns_) &&
           echo_time(echo_ + returns_) == time) {
        ++returns_;
    }
    last_echo_ = echo_ + returns_;
    return_number_ = 0;
    time_ = time;
    const bool next_known = returns_ < most_returns && echoes_.reach(last_echo_);
    found_ = find_shot(time, next_known ? echo_time(last_echo_) : time);
    if (found_) {
        std::copy_n(shots_.values<shot_direction>(*found_), 3, direction_.begin());
        std::copy_n(shots_.values<shot_origin>(*found_), 3, origin_.begin());
    }
}

/// Shots that lie ahead of the `next` echo's, too, are passed for good: a single time that is far
/// off must not take the shots of all others.
std::optional<std::uint64_t> point_join::find_shot(double time, double next) {
    if (!std::isfinite(time)) {
        return std::nullopt;
    }
    const double passed = std::fmin(time, next);
    // Goes past a time that is no number.
    while (shots_.reach(shot_) && !(shot_time(shot_) >= passed)) {
        ++shot_;
    }
    if (shots_.reach(shot_) && shot_time(shot_) == time) {
        return shot_;
    }
    return find_around(time);
}

std::optional<std::uint64_t> point_join::find_around(double time) {
    for (std::uint64_t row = shot_; row - shot_ < shots_around && shots_.reach(row); ++row) {
        if (shot_time(row) == time) {
            shot_ = row;
            return row;
        }
    }
    const std::uint64_t behind = shot_ - std::min(shot_, shots_around);
    for (std::uint64_t row = shot_; row > std::max(behind, shots_.begin()); --row) {
        if (shot_time(row - 1) == time) {
            return row - 1;
        }
    }
    return std::nullopt;
}

/// Makes the point of the present echo; false if it is nowhere.
bool point_join::place(exported_point& p) const {
    const double range = *echoes_.values<echo_range>(echo_);
    p.x = origin_[0] + range * direction_[0];
    p.y = origin_[1] + range * direction_[1];
    p.z = origin_[2] + range * direction_[2];
    p.time = time_;
    p.amplitude = *echoes_.values<echo_amplitude>(echo_);
    p.reflectance = *echoes_.values<echo_reflectance>(echo_);
    p.channel = *echoes_.values<echo_channel>(echo_);
    p.return_number = return_number_;
    p.returns = returns_;
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

} // namespace host
