#include "page.hpp"

#include "loompdf/canvas.hpp"
#include "plot.hpp"

#include <cstdio>
#include <numeric>

namespace host {

namespace {

constexpr rgb bar_colour{0.23, 0.42, 0.60};
constexpr std::array<rgb, 4> curve_colours{
    {{0.13, 0.36, 0.62}, {0.80, 0.38, 0.10}, {0.10, 0.52, 0.42}, {0.55, 0.25, 0.55}}};
constexpr const char* degree_sign = "\xC2\xB0";
constexpr const char* thin_space = "\xE2\x80\xAF";
constexpr const char* dot_between = "   \xC2\xB7   ";
constexpr double margin = 48;
constexpr std::size_t longest_name = 90;

// Where things stand on the page.
constexpr Box range_frame{112, 152, 1052, 412};
constexpr Box intensity_frame{112, 506, 1052, 766};
constexpr Box top_frame{1232, 152, 1492, 412};
constexpr Box waveform_frame{1232, 506, 1592, 766};
constexpr Box ranges_frame{112, 864, 572, 1104};
constexpr Box amplitudes_frame{672, 864, 1132, 1104};
constexpr Box echoes_frame{1232, 864, 1592, 1104};

/// A number with its digits in groups of three.
std::string grouped(std::uint64_t number) {
    const std::string digits = std::to_string(number);
    std::string text;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        text += i != 0 && (digits.size() - i) % 3 == 0 ? thin_space : "";
        text += digits[i];
    }
    return text;
}

std::string decimal(double value, int places) {
    std::array<char, 400> text{};
    const int n = std::snprintf(text.data(), text.size(), "%.*f", places, value);
    return {text.data(), static_cast<std::size_t>(n)};
}

std::string summary_of(const scan_view& view) {
    std::string text = LoomPDF::presentable(view.instrument, longest_name);
    const auto add = [&text](const std::string& piece) {
        text += (text.empty() ? "" : dot_between) + piece;
    };
    add(grouped(view.shots) + " shots in " + grouped(view.lines) + " lines");
    add(grouped(view.echoes) + " echoes");
    add(grouped(view.waveforms) + " waveforms");
    if (!view.time.empty()) {
        add(decimal(view.time.min, 3) + " s to " + decimal(view.time.max, 3) + " s");
    }
    return text;
}

class scan_page {
  public:
    explicit scan_page(const scan_view& view) : view_(view), to_(page_width, page_height) {}

    std::string draw() {
        head();
        images();
        top_view();
        waveform();
        histograms();
        echoes();
        return to_.png();
    }

  private:
    void head() {
        to_.colour(ink);
        to_.font(26, true);
        const std::string name = LoomPDF::presentable(view_.name, longest_name);
        to_.text(name, {margin, 56});
        if (!view_.complete || !view_.failure.empty()) {
            const double end = margin + to_.width_of(name);
            to_.colour({0.75, 0.25, 0.10});
            to_.font(15, true);
            to_.text(view_.failure.empty() ? "not complete" : "damaged: not all could be read",
                     {end + 18, 56});
        }
        to_.colour(soft_ink);
        to_.font(15);
        to_.text(summary_of(view_), {margin, 86});
        to_.colour(faint);
        to_.line({margin, 104.5}, {page_width - margin, 104.5}, 1);
    }

    void image(const Box& frame, const raster& picture, const std::string& title,
               const colour_scale& scale, const std::string& label) {
        plot p(to_, frame,
               {title, "scan line", std::string("beam along the line [") + degree_sign + "]"},
               picture.x, picture.y, true, view_.turned);
        if (picture.filled() == 0) {
            p.nothing("no echoes");
            return;
        }
        cells(p, picture, scale, view_.turned);
        p.finish();
        p.colour_bar(scale, label);
    }

    void cells(const plot& p, const raster& picture, const colour_scale& scale, bool turned) {
        to_.cells(picture, p.frame(), turned, [&](const raster::cell& c) {
            if (c.count == 0) {
                return c.touched ? no_echo : white;
            }
            return scale.at(scale.share(static_cast<double>(c.value)));
        });
    }

    void images() {
        image(range_frame, view_.range_image, "Range of the first echo",
              {view_.range_colours, rising_colour, true}, "range [m]");
        image(intensity_frame, view_.intensity_image,
              view_.intensity_is_reflectance ? "Reflectance of the first echo"
                                             : "Amplitude of the first echo",
              {view_.intensity_colours, rising_grey},
              view_.intensity_is_reflectance ? "reflectance [dB]" : "amplitude [dB]");
    }

    void top_view() {
        plot p(to_, top_frame, {"Seen from above", "x [m]", "y [m]"}, view_.top_view.x,
               view_.top_view.y);
        if (view_.top_view.filled() == 0) {
            p.nothing("no echoes");
            return;
        }
        const colour_scale scale(view_.height_colours, rising_colour);
        cells(p, view_.top_view, scale, false);
        const Point origin{p.x_of(0), p.y_of(0)};
        if (origin.x > top_frame.left && origin.x < top_frame.right && origin.y > top_frame.top &&
            origin.y < top_frame.bottom) {
            to_.colour(white);
            to_.cross(origin, 8, 4);
            to_.colour({0.80, 0.15, 0.10});
            to_.cross(origin, 7, 2);
        }
        p.finish();
        p.colour_bar(scale, "greatest z [m]");
    }

    void waveform() {
        const bool timed = view_.sampling_time > 0 && std::isfinite(view_.sampling_time);
        const auto place = [&](const scan_waveform& w, std::size_t i) {
            const auto n = static_cast<double>(i);
            return timed ? (w.start + n * view_.sampling_time) * 1e9 : n;
        };
        value_bounds x;
        value_bounds y;
        for (const scan_waveform& w : view_.waveform) {
            for (std::size_t i = 0; i < w.samples.size(); ++i) {
                x.take(place(w, i));
                y.take(w.samples[i]);
            }
        }
        const double room = std::max(1.0, 0.06 * y.span());
        plot p(to_, waveform_frame,
               {view_.waveform.empty()
                    ? "Waveforms"
                    : "Waveforms of the shot at " + decimal(view_.waveform[0].time, 6) + " s",
                timed ? "time after the shot [ns]" : "sample", "counts"},
               x, y.empty() ? y : value_bounds{y.min - room, y.max + room});
        if (y.empty()) {
            p.nothing("no waveforms");
            return;
        }
        p.grid(true);
        for (std::size_t n = 0; n < view_.waveform.size(); ++n) {
            const scan_waveform& w = view_.waveform[n];
            std::vector<Point> points;
            for (std::size_t i = 0; i < w.samples.size(); ++i) {
                points.push_back({p.x_of(place(w, i)), p.y_of(w.samples[i])});
            }
            to_.colour(curve_colours[n % curve_colours.size()]);
            to_.curve(points, waveform_frame, 1.6);
            to_.font(12);
            to_.text(
                "channel " + std::to_string(w.channel),
                {waveform_frame.right - 8, waveform_frame.top + 18 + 16 * static_cast<double>(n)},
                align::right);
        }
        p.finish();
    }

    void bars(plot& p, const std::vector<std::uint64_t>& counts, const value_bounds& x,
              double share) {
        if (std::accumulate(counts.begin(), counts.end(), std::uint64_t{0}) == 0) {
            p.nothing("no echoes");
            return;
        }
        p.grid(false);
        to_.colour(bar_colour);
        const double width = x.span() / static_cast<double>(counts.size());
        for (std::size_t i = 0; i < counts.size(); ++i) {
            const double left = x.min + (static_cast<double>(i) + (1 - share) / 2) * width;
            if (counts[i] != 0) {
                const double top = p.y_of(static_cast<double>(counts[i]));
                to_.fill({p.x_of(left), std::min(top, p.frame().bottom - 1),
                          p.x_of(left + share * width), p.frame().bottom});
            }
        }
        p.finish();
    }

    static value_bounds above(const std::vector<std::uint64_t>& counts) {
        const auto most = counts.empty() ? 0 : *std::max_element(counts.begin(), counts.end());
        return {0, 1.06 * static_cast<double>(std::max<std::uint64_t>(most, 1))};
    }

    void histogram_of(const Box& frame, const histogram& h, const std::string& title,
                      const std::string& label) {
        // One value alone still gets a bar.
        const double room = h.bounds.span() > 0 ? 0 : 0.5;
        const value_bounds x =
            h.bounds.empty() ? h.bounds : value_bounds{h.bounds.min - room, h.bounds.max + room};
        plot p(to_, frame, {title, label, "echoes"}, x, above(h.counts));
        bars(p, h.counts, x, 1);
    }

    void histograms() {
        histogram_of(ranges_frame, view_.ranges, "Ranges, without the outermost percent",
                     "range [m]");
        histogram_of(amplitudes_frame, view_.amplitudes,
                     "Amplitudes, without the outermost percent", "amplitude [dB]");
    }

    void echoes() {
        std::size_t shown = 5;
        for (std::size_t i = shown; i < view_.echoes_per_shot.size(); ++i) {
            shown = view_.echoes_per_shot[i] != 0 ? i + 1 : shown;
        }
        const std::vector<std::uint64_t> counts(view_.echoes_per_shot.begin(),
                                                view_.echoes_per_shot.begin() +
                                                    static_cast<std::ptrdiff_t>(shown));
        const value_bounds x{-0.5, static_cast<double>(shown) - 0.5};
        const bool more = shown == view_.echoes_per_shot.size();
        plot p(to_, echoes_frame,
               {"Echoes per shot",
                more ? "echoes (" + std::to_string(scan_view::most_told) + ": or more)" : "echoes",
                "shots"},
               x, above(counts), true);
        bars(p, counts, x, 0.76);
    }

    const scan_view& view_;
    brush to_;
};

} // namespace

std::string draw_scan_page(const scan_view& view) {
    return scan_page(view).draw();
}

} // namespace host
