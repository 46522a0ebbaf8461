#include "verify_values.hpp"

#include "json.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

namespace host {

namespace {

constexpr std::uint64_t block_bytes = std::uint64_t{1} << 20;

/// Hands the rows of an array to `look(first row, rows, values)`, block by block.
template<class T, class Look>
void each_block(const Skein::K7Array& array, Look&& look) {
    const std::uint64_t at_once =
        std::max<std::uint64_t>(1, block_bytes / std::max<std::uint64_t>(1, array.rowBytes()));
    std::vector<T> values;
    for (std::uint64_t first = 0; first < array.rows(); first += at_once) {
        const std::uint64_t count = std::min(at_once, array.rows() - first);
        values.resize(static_cast<std::size_t>(count * array.width()));
        array.read(first, count, values.data());
        look(first, count, values);
    }
}

std::string plain(double value) {
    return std::isnan(value)   ? "NaN"
           : std::isinf(value) ? (value < 0 ? "-inf" : "inf")
                               : json_number(value);
}

/// The first row where something is wrong, and how many rows it is wrong in.
class tally {
  public:
    void add(std::uint64_t row, const std::string& text) {
        if (count_++ == 0) {
            row_ = row;
            text_ = text;
        }
    }
    bool empty() const noexcept { return count_ == 0; }
    void report(k7_findings& to, const std::string& path) const {
        if (count_ != 0) {
            to.add(path, text_ + (count_ == 1 ? "" : " (" + std::to_string(count_) + " such rows)"),
                   row_);
        }
    }

  private:
    std::uint64_t count_ = 0;
    std::uint64_t row_ = 0;
    std::string text_;
};

template<class T>
void look_for_odd(const value_check::part& p, k7_findings& findings) {
    const Skein::K7Array& array = *p.array;
    const bool nan_is_odd = !p.column->may_be_nan;
    tally odd;
    each_block<T>(array, [&](std::uint64_t first, std::uint64_t count, const std::vector<T>& v) {
        const std::uint64_t width = array.width();
        for (std::uint64_t row = 0; row < count; ++row) {
            const auto begin = v.begin() + static_cast<std::ptrdiff_t>(row * width);
            const auto end = begin + static_cast<std::ptrdiff_t>(width);
            const auto bad = std::find_if(
                begin, end, [&](T x) { return std::isinf(x) || (nan_is_odd && std::isnan(x)); });
            if (bad != end) {
                odd.add(first + row,
                        plain(static_cast<double>(*bad)) + " stands instead of a number");
            }
        }
    });
    odd.report(findings, p.path);
}

/// Reads all of it, for what cannot be read shows only then.
template<class T>
void read_through(const Skein::K7Array& array) {
    each_block<T>(array, [](std::uint64_t, std::uint64_t, const std::vector<T>&) {});
}

} // namespace

void value_check::look_at_floats(const part& p) {
    if (p.column->type == Skein::K7Type::f64) {
        look_for_odd<double>(p, findings_);
    } else {
        look_for_odd<float>(p, findings_);
    }
}

void value_check::look_at_times(const part& p) {
    tally back;
    each_block<double>(*p.array, [&](std::uint64_t first, std::uint64_t count, const auto& times) {
        for (std::uint64_t row = 0; row < count; ++row) {
            const double time = times[static_cast<std::size_t>(row)];
            if (has_time_ && time < latest_) {
                back.add(first + row,
                         "the time " + plain(time) + " s comes after " + plain(latest_) + " s");
            }
            if (std::isfinite(time) && (!has_time_ || time > latest_)) {
                latest_ = time;
                has_time_ = true;
            }
        }
    });
    back.report(findings_, p.path);
}

void value_check::look_at_waveforms(const part& lengths, const part& samples) {
    tally beyond;
    tally behind;
    const std::uint64_t width = samples.array->width();
    std::vector<std::uint16_t> length;
    each_block<std::uint16_t>(*samples.array, [&](std::uint64_t first, std::uint64_t count,
                                                  const std::vector<std::uint16_t>& values) {
        length.resize(static_cast<std::size_t>(count));
        lengths.array->read(first, count, length.data());
        for (std::uint64_t row = 0; row < count; ++row) {
            const std::uint64_t n = length[static_cast<std::size_t>(row)];
            if (n > width) {
                beyond.add(first + row, std::to_string(n) + " samples in a row that has room for " +
                                            std::to_string(width));
                continue;
            }
            const auto begin = values.begin() + static_cast<std::ptrdiff_t>(row * width);
            if (std::any_of(begin + static_cast<std::ptrdiff_t>(n),
                            begin + static_cast<std::ptrdiff_t>(width),
                            [](std::uint16_t sample) { return sample != 0; })) {
                behind.add(first + row,
                           "a sample behind the " + std::to_string(n) + " of the row is not 0");
            }
        }
    });
    beyond.report(findings_, lengths.path);
    behind.report(findings_, samples.path);
}

void value_check::look_at(const std::vector<part>& parts) {
    const part* lengths = nullptr;
    const part* samples = nullptr;
    for (const part& p : parts) {
        try {
            switch (p.column->type) {
            case Skein::K7Type::f64:
            case Skein::K7Type::f32:
                look_at_floats(p);
                break;
            case Skein::K7Type::u16:
                (p.column->width == any_width ? samples : lengths) = &p;
                read_through<std::uint16_t>(*p.array);
                break;
            default:
                read_through<std::uint8_t>(*p.array);
            }
            if (p.column->name == "GPSTime") {
                look_at_times(p);
            }
        } catch (const Skein::K7ReadError& e) {
            findings_.add(p.path, e.cause());
            return;
        }
    }
    if (lengths != nullptr && samples != nullptr &&
        lengths->array->rows() == samples->array->rows()) {
        look_at_waveforms(*lengths, *samples);
    }
}

} // namespace host
