#include "waveform_choice.hpp"

#include "grid_rows.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace host {

namespace {

constexpr std::uint16_t beyond_samples = 1U << 12U;
constexpr std::uint64_t most_looked_at = 4000;
constexpr std::uint64_t most_bytes = std::uint64_t{1} << 24;
constexpr std::size_t most_channels = 4;

/// The first rows of a fragment of "Waveforms".
struct waveform_rows {
    std::uint64_t count = 0;
    std::uint64_t width = 0;
    std::vector<std::uint16_t> samples;
    std::vector<std::uint16_t> length;
    std::vector<double> time;
    std::vector<double> start;
    std::vector<std::uint8_t> channel;

    std::vector<std::uint16_t> row(std::uint64_t at) const {
        const auto begin = samples.begin() + static_cast<std::ptrdiff_t>(at * width);
        const std::uint64_t n = std::min<std::uint64_t>(width, length[at]);
        return {begin, begin + static_cast<std::ptrdiff_t>(n)};
    }
};

template<class T>
std::vector<T> first_rows(const Skein::K7Reader& file, const std::string& chart, const char* name,
                          std::uint32_t fragment, std::uint64_t count) {
    const std::string path = Skein::K7Reader::fragmentPath(chart + "/" + name, fragment);
    const Skein::K7Array array = file.open(path);
    if (array.width() != 1) {
        throw Skein::K7ReadError(file.path(), path, "its shape does not fit the grid");
    }
    std::vector<T> values(static_cast<std::size_t>(count));
    array.read(0, count, values.data());
    return values;
}

waveform_rows read_rows(const Skein::K7Reader& file, const std::string& chart,
                        std::uint32_t fragment) {
    const std::string path = Skein::K7Reader::fragmentPath(chart + "/Waveforms", fragment);
    const Skein::K7Array array = file.open(path);
    waveform_rows rows;
    rows.width = array.width();
    const std::uint64_t row_bytes = std::max<std::uint64_t>(1, array.rowBytes());
    if (row_bytes > most_bytes) {
        throw Skein::K7ReadError(file.path(), path, "its rows are too long");
    }
    rows.count = std::min({array.rows(), most_looked_at, most_bytes / row_bytes});
    rows.samples.resize(static_cast<std::size_t>(rows.count * rows.width));
    array.read(0, rows.count, rows.samples.data());
    rows.length = first_rows<std::uint16_t>(file, chart, "FWFLength", fragment, rows.count);
    rows.time = first_rows<double>(file, chart, "GPSTime", fragment, rows.count);
    rows.start = first_rows<double>(file, chart, "SBL_Time", fragment, rows.count);
    rows.channel = first_rows<std::uint8_t>(file, chart, "Channel", fragment, rows.count);
    return rows;
}

std::vector<double> samples_of(const waveform_rows& rows, std::uint64_t row, bool compressed) {
    const std::vector<std::uint16_t> words = rows.row(row);
    return compressed ? expand_waveform(words) : std::vector<double>(words.begin(), words.end());
}

/// How much a waveform moves: the sum of its steps. Negative, so worse than any other, where it
/// stays at the greatest sample of all: there the converter had its limit.
double liveliness(const std::vector<double>& samples, double limit) {
    double steps = 0;
    double at_limit = 0;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        steps += std::abs(samples[i] - samples[i - 1]);
        at_limit += samples[i] >= limit && samples[i - 1] >= limit ? 1 : 0;
    }
    return at_limit > 0 ? -at_limit : steps;
}

std::uint64_t liveliest(const waveform_rows& rows, bool compressed) {
    value_bounds all;
    for (std::uint64_t i = 0; i < rows.count; ++i) {
        for (const double sample : samples_of(rows, i, compressed)) {
            all.take(sample);
        }
    }
    std::uint64_t best = 0;
    double most = -std::numeric_limits<double>::infinity();
    for (std::uint64_t i = 0; i < rows.count; ++i) {
        const double lively = liveliness(samples_of(rows, i, compressed), all.max);
        if (lively > most) {
            most = lively;
            best = i;
        }
    }
    return best;
}

void show_shot(const waveform_rows& rows, scan_view& view) {
    const bool compressed = std::any_of(rows.samples.begin(), rows.samples.end(),
                                        [](std::uint16_t s) { return s >= beyond_samples; });
    const std::uint64_t best = liveliest(rows, compressed);
    for (std::uint64_t i = 0; i < rows.count && view.waveform.size() < most_channels; ++i) {
        if (rows.time[i] == rows.time[best]) {
            view.waveform.push_back({rows.channel[i], rows.time[i], rows.start[i], compressed,
                                     samples_of(rows, i, compressed)});
        }
    }
}

} // namespace

std::vector<double> expand_waveform(const std::vector<std::uint16_t>& words) {
    constexpr std::size_t width_bits = 4;
    constexpr std::size_t group = 8;
    std::vector<double> samples;
    std::size_t at = 0;
    const std::size_t bits = words.size() * 16;
    const auto take = [&](std::size_t count) {
        unsigned value = 0;
        for (std::size_t i = 0; i < count; ++i, ++at) {
            value |= ((words[at / 16] >> (at % 16)) & 1U) << i;
        }
        return value;
    };
    unsigned sum = 0;
    while (at + width_bits <= bits) {
        const std::size_t width = take(width_bits);
        if (width == 0 || group * width > bits - at) {
            break;
        }
        for (std::size_t i = 0; i < group; ++i) {
            sum += take(width);
            samples.push_back(sum % beyond_samples);
        }
    }
    return samples;
}

void choose_waveform(const Skein::K7Reader& file, const std::string& slice, scan_view& view) {
    const std::string grid = slice + "/Waveforms";
    view.waveforms = grid_rows(file, grid, {{"GPSTime", 1}}).size();
    if (view.waveforms == 0) {
        return;
    }
    const std::string chart = Skein::K7Reader::chartOf(grid);
    const std::vector<std::uint32_t> fragments = file.fragments(chart + "/Waveforms").numbers;
    if (fragments.empty()) {
        throw Skein::K7ReadError(file.path(), chart + "/Waveforms", "it has no fragments");
    }
    const waveform_rows rows = read_rows(file, chart, fragments.front());
    if (rows.count != 0) {
        show_shot(rows, view);
    }
}

} // namespace host
