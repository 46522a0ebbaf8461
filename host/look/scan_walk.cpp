#include "scan_walk.hpp"

#include "grid_rows.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace host {

namespace {

constexpr std::size_t most_echoes = 4096;
constexpr std::size_t steps_looked_at = 8192;
// A mirror's beam goes in even steps, and back over most of its field.
constexpr double jump = 12;
constexpr double least_jump = 0.002; // rad; below is noise of encoders

vector3 operator-(const vector3& a, const vector3& b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

double dot(const vector3& a, const vector3& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

/// Angle between two unit vectors, from the chord, which keeps small ones. NaN of what is none.
double angle_of(const vector3& step) {
    return 2 * std::asin(std::min(std::sqrt(dot(step, step)) / 2, 1.0));
}

vector3 three(const double* values) {
    return {values[0], values[1], values[2]};
}

/// Tells lines and the place of the beam in them.
class line_tracker {
  public:
    explicit line_tracker(double usual_step) : farthest_(std::max(least_jump, jump * usual_step)) {}

    void place(scan_shot& shot) {
        const vector3 step = shot.direction - before_;
        const double size = angle_of(step);
        if (begun_ && std::isfinite(size)) {
            follow(step, size);
        }
        if (std::isfinite(dot(shot.direction, shot.direction))) {
            before_ = shot.direction;
            begun_ = true;
        }
        shot.line = line_;
        shot.angle = angle_;
    }

  private:
    void follow(const vector3& step, double size) {
        if (size > farthest_) {
            begin_line(0);
        } else {
            if (dot(step, last_step_) < 0) {
                way_ = -way_;
                begin_line(angle_);
            }
            angle_ += way_ * size;
            last_step_ = step;
            if (std::abs(angle_) >= 2 * std::numbers::pi) {
                begin_line(0);
            }
        }
    }
    void begin_line(double angle) {
        ++line_;
        angle_ = angle;
        last_step_ = {};
        if (angle == 0) {
            way_ = 1;
        }
    }

    double farthest_;
    bool begun_ = false;
    vector3 before_{};
    vector3 last_step_{};
    double way_ = 1;
    double angle_ = 0;
    std::uint64_t line_ = 0;
};

enum shot_column { shot_time, shot_direction, shot_origin };
enum echo_column { echo_time, echo_range, echo_amplitude, echo_reflectance };

grid_rows shots_of(const Skein::K7Reader& file, const std::string& slice) {
    return {file,
            slice + "/Shots",
            {{"GPSTime", 1}, {"Waveforms.DirectionDelta", 3}, {"Positions", 3}}};
}

/// Median step of the beam at the beginning.
double usual_step(const Skein::K7Reader& file, const std::string& slice) {
    grid_rows shots = shots_of(file, slice);
    std::vector<double> steps;
    vector3 before{};
    for (bool first = true; steps.size() < steps_looked_at && shots.next(); first = false) {
        const vector3 direction = three(shots.values(shot_direction));
        const double step = angle_of(direction - before);
        if (!first && std::isfinite(step)) {
            steps.push_back(step);
        }
        before = direction;
    }
    if (steps.empty()) {
        return 0;
    }
    const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
    std::nth_element(steps.begin(), middle, steps.end());
    return *middle;
}

/// Echoes by time, to be claimed by shots.
class echo_queue {
  public:
    echo_queue(const Skein::K7Reader& file, const std::string& slice)
        : rows_(file, slice + "/OPP",
                {{"GPSTime", 1}, {"Range", 1}, {"Amplitude", 1}, {"Reflectance", 1}})
        , more_(rows_.next()) {}

    std::span<const scan_echo> claim(double time) {
        claimed_.clear();
        if (std::isnan(time)) {
            return claimed_;
        }
        for (; more_ && !(rows_.value(echo_time) >= time); more_ = rows_.next()) {
            ++unclaimed;
        }
        for (; more_ && rows_.value(echo_time) == time; more_ = rows_.next()) {
            if (claimed_.size() < most_echoes) {
                claimed_.push_back({rows_.value(echo_range), rows_.value(echo_amplitude),
                                    rows_.value(echo_reflectance)});
            } else {
                ++unclaimed;
            }
        }
        return claimed_;
    }
    void finish() {
        for (; more_; more_ = rows_.next()) {
            ++unclaimed;
        }
    }

    std::uint64_t unclaimed = 0;

  private:
    grid_rows rows_;
    bool more_;
    std::vector<scan_echo> claimed_;
};

} // namespace

walk_result
walk_scan(const Skein::K7Reader& file, const std::string& slice,
          const std::function<void(const scan_shot&, std::span<const scan_echo>)>& show) {
    walk_result result;
    try {
        line_tracker lines(usual_step(file, slice));
        grid_rows shots = shots_of(file, slice);
        echo_queue echoes(file, slice);
        while (shots.next()) {
            scan_shot shot;
            shot.time = shots.value(shot_time);
            shot.direction = three(shots.values(shot_direction));
            shot.origin = three(shots.values(shot_origin));
            lines.place(shot);
            show(shot, echoes.claim(shot.time));
            result.unclaimed = echoes.unclaimed;
        }
        echoes.finish();
        result.unclaimed = echoes.unclaimed;
    } catch (const Skein::K7ReadError& e) {
        result.failure = e.what();
    }
    return result;
}

} // namespace host
