#include "polyline.hpp"

#include <algorithm>
#include <cmath>

namespace LoomPDF {

namespace {

constexpr double columns_per_point = 16;

/// Far outside of any page, and yet small enough to calculate with.
constexpr double farthest = 1e7;

/// The part of the way from `a` to `b`, as shares of it, that lies inside the box; false if none
/// does.
bool clip(const Box& box, Point a, Point b, double& from, double& to) {
    from = 0;
    to = 1;
    const auto side = [&](double step, double room) {
        // Moves by `step` towards a side that is `room` away.
        if (step == 0) {
            return room >= 0;
        }
        const double share = room / step;
        if (step > 0) {
            to = std::min(to, share);
        } else {
            from = std::max(from, share);
        }
        return from <= to;
    };
    return side(b.x - a.x, box.right - a.x) && side(a.x - b.x, a.x - box.left) &&
           side(b.y - a.y, box.bottom - a.y) && side(a.y - b.y, a.y - box.top);
}

Point between(Point a, Point b, double share) {
    // The ends are met exactly.
    return share == 0   ? a
           : share == 1 ? b
                        : Point{a.x + share * (b.x - a.x), a.y + share * (b.y - a.y)};
}

} // namespace

void Polyline::to(Point point) {
    if (!std::isfinite(point.x) || !std::isfinite(point.y)) {
        end();
        return;
    }
    point.x = std::clamp(point.x, -farthest, farthest);
    point.y = std::clamp(point.y, -farthest, farthest);
    const double column = std::floor(point.x * columns_per_point);
    if (in_column_ != 0 && column != column_) {
        flush_column();
    }
    column_ = column;
    const Numbered now{point, in_column_};
    if (in_column_ == 0) {
        first_ = lowest_ = highest_ = now;
    }
    if (point.y < lowest_.point.y) {
        lowest_ = now;
    }
    if (point.y > highest_.point.y) {
        highest_ = now;
    }
    last_ = now;
    ++in_column_;
}

void Polyline::flush_column() {
    std::array<Numbered, 4> kept{first_, lowest_, highest_, last_};
    std::sort(kept.begin(), kept.end(),
              [](const Numbered& a, const Numbered& b) { return a.number < b.number; });
    for (std::size_t i = 0; i < kept.size(); ++i) {
        if (i == 0 || kept[i].number != kept[i - 1].number) {
            segment_to(kept[i].point);
        }
    }
    in_column_ = 0;
}

void Polyline::end() {
    if (in_column_ != 0) {
        flush_column();
    }
    if (begun_ && alone_) {
        double from = 0;
        double to = 1;
        if (clip(box_, pen_, pen_, from, to)) {
            lonely_.push_back(pen_);
        }
    }
    begun_ = false;
}

void Polyline::segment_to(Point point) {
    if (begun_) {
        draw(pen_, point);
    }
    alone_ = !begun_;
    begun_ = true;
    pen_ = point;
}

void Polyline::draw(Point from, Point to) {
    double first = 0;
    double last = 1;
    if (!clip(box_, from, to, first, last)) {
        return;
    }
    const Point start = between(from, to, first);
    if (moves_.empty() || moves_.back().to != start) {
        moves_.push_back({start, false});
    }
    moves_.push_back({between(from, to, last), true});
}

} // namespace LoomPDF
