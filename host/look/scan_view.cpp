#include "scan_view.hpp"

#include "scan_attribute.hpp"
#include "scan_walk.hpp"
#include "waveform_choice.hpp"

#include <filesystem>
#include <numbers>

namespace host {

namespace {

constexpr std::size_t bins = 120;
constexpr std::size_t most_columns = 940;
constexpr std::size_t most_rows = 260;
constexpr std::size_t top_view_cells = 130;
constexpr std::size_t sample_size = 200000;
constexpr double outermost = 0.02; // of colours and places
constexpr double outermost_bins = 0.005;

double degrees(double angle) {
    return angle * 180 / std::numbers::pi;
}

vector3 point_of(const scan_shot& shot, double range) {
    vector3 point{};
    for (std::size_t i = 0; i < 3; ++i) {
        point[i] = shot.origin[i] + range * shot.direction[i];
    }
    return point;
}

/// Some of many values, evenly spread: every value at first, every second once it is full, and so
/// on.
class spread_sample {
  public:
    void take(double value) {
        if (seen_++ % stride_ != 0 || !std::isfinite(value)) {
            return;
        }
        if (values_.size() == sample_size) {
            for (std::size_t i = 0; i < sample_size / 2; ++i) {
                values_[i] = values_[2 * i];
            }
            values_.resize(sample_size / 2);
            stride_ *= 2;
        }
        values_.push_back(value);
    }
    /// All but that share at either end.
    value_bounds without(double share) {
        value_bounds bounds;
        if (!values_.empty()) {
            std::sort(values_.begin(), values_.end());
            const auto cut = static_cast<std::size_t>(share * static_cast<double>(values_.size()));
            bounds.take(values_[cut]);
            bounds.take(values_[values_.size() - 1 - cut]);
        }
        return bounds;
    }

  private:
    std::vector<double> values_;
    std::uint64_t seen_ = 0;
    std::uint64_t stride_ = 1;
};

/// The first pass: what the pictures span.
struct extents {
    value_bounds angle;
    std::uint64_t most_in_line = 0;
    spread_sample every_range;
    spread_sample every_amplitude;
    spread_sample range; // of first echoes, as the next two
    spread_sample amplitude;
    spread_sample reflectance;
    vector3 first{};
    double rises = 0; // of the beam along the lines, summed up
    spread_sample x;
    spread_sample y;
    spread_sample z;
    // State of the pass.
    std::uint64_t line = 0;
    std::uint64_t in_line = 0;
    double last_angle = 0;
    double last_z = 0;

    void take(scan_view& view, const scan_shot& shot, std::span<const scan_echo> echoes) {
        view.shots += 1;
        view.echoes += echoes.size();
        view.time.take(shot.time);
        view.lines = shot.line + 1;
        angle.take(degrees(shot.angle));
        follow_line(shot);
        for (const scan_echo& echo : echoes) {
            every_range.take(echo.range);
            every_amplitude.take(echo.amplitude);
            const vector3 point = point_of(shot, echo.range);
            x.take(point[0]);
            y.take(point[1]);
            z.take(point[2]);
        }
        if (!echoes.empty()) {
            range.take(echoes.front().range);
            amplitude.take(echoes.front().amplitude);
            reflectance.take(echoes.front().reflectance);
        }
    }
    void follow_line(const scan_shot& shot) {
        const bool same = in_line != 0 && line == shot.line;
        in_line = same ? in_line + 1 : 1;
        most_in_line = std::max(most_in_line, in_line);
        const double rise = shot.direction[2] - last_z;
        if (same && std::isfinite(rise)) {
            rises += shot.angle >= last_angle ? rise : -rise;
        }
        line = shot.line;
        last_angle = shot.angle;
        last_z = shot.direction[2];
    }
};

/// Both bounds widened to the longer one, so that a metre is as long in both directions.
void make_square(value_bounds& a, value_bounds& b) {
    const double half = std::max({a.span(), b.span(), 1e-3}) * 0.51;
    for (value_bounds* bounds : {&a, &b}) {
        const double middle = bounds->empty() ? 0 : (bounds->min + bounds->max) / 2;
        *bounds = {middle - half, middle + half};
    }
}

void shape_pictures(scan_view& view, extents& found) {
    raster& image = view.range_image;
    image.x = {0, static_cast<double>(std::max<std::uint64_t>(view.lines, 1))};
    image.y = found.angle;
    image.shape(std::min<std::size_t>(most_columns, std::max<std::uint64_t>(view.lines, 1)),
                std::min<std::size_t>(most_rows, std::max<std::uint64_t>(found.most_in_line, 1)));
    view.intensity_image = image;
    view.turned = found.rises < 0;
    view.range_colours = found.range.without(outermost);
    const value_bounds reflectance = found.reflectance.without(outermost);
    view.intensity_is_reflectance = reflectance.span() > 0;
    view.intensity_colours =
        view.intensity_is_reflectance ? reflectance : found.amplitude.without(outermost);
    view.height_colours = found.z.without(outermost);
    view.top_view.x = found.x.without(outermost);
    view.top_view.y = found.y.without(outermost);
    make_square(view.top_view.x, view.top_view.y);
    view.top_view.shape(top_view_cells, top_view_cells);
    view.ranges.bounds = found.every_range.without(outermost_bins);
    view.amplitudes.bounds = found.every_amplitude.without(outermost_bins);
    view.ranges.counts.assign(bins, 0);
    view.amplitudes.counts.assign(bins, 0);
}

/// The second pass: the pictures themselves.
void draw(scan_view& view, const scan_shot& shot, std::span<const scan_echo> echoes) {
    const double across = static_cast<double>(shot.line) + 0.5;
    const double up = degrees(shot.angle);
    view.range_image.touch(across, up);
    view.intensity_image.touch(across, up);
    ++view.echoes_per_shot[std::min(echoes.size(), scan_view::most_told)];
    if (!echoes.empty()) {
        const scan_echo& first = echoes.front();
        view.range_image.take_mean(across, up, first.range);
        view.intensity_image.take_mean(
            across, up, view.intensity_is_reflectance ? first.reflectance : first.amplitude);
    }
    for (const scan_echo& echo : echoes) {
        view.ranges.take(echo.range);
        view.amplitudes.take(echo.amplitude);
        const vector3 point = point_of(shot, echo.range);
        view.top_view.take_greatest(point[0], point[1], point[2]);
    }
}

void read_attributes(scan_view& view, const Skein::K7Reader& file, const std::string& slice) {
    view.instrument = instrument_name(file, slice);
    const auto sampling = scan_attribute(file, slice, "sampling_time");
    if (sampling && sampling->scalar && !sampling->numbers.empty()) {
        view.sampling_time = sampling->numbers.front();
    }
}

} // namespace

scan_view view_scan(const std::string& path) {
    const Skein::K7Reader file(path);
    scan_view view;
    view.name = std::filesystem::path(path).filename().string();
    view.complete = !path.ends_with(".part");
    const std::vector<std::string> slices = file.slices();
    if (slices.empty()) {
        throw Skein::K7ReadError(path, "/", "there is no slice");
    }
    const std::string& slice = slices.front();
    read_attributes(view, file, slice);
    extents found;
    const walk_result walk =
        walk_scan(file, slice, [&](const scan_shot& shot, std::span<const scan_echo> echoes) {
            found.take(view, shot, echoes);
        });
    view.unclaimed = walk.unclaimed;
    view.failure = walk.failure;
    shape_pictures(view, found);
    walk_scan(file, slice, [&](const scan_shot& shot, std::span<const scan_echo> echoes) {
        draw(view, shot, echoes);
    });
    try {
        choose_waveform(file, slice, view);
    } catch (const Skein::K7ReadError& e) {
        if (view.failure.empty()) {
            view.failure = e.what();
        }
    }
    return view;
}

} // namespace host
