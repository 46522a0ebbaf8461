#include "colours.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace host {

namespace {

double cube(double x) {
    return x * x * x;
}

/// What a screen takes for a share of light.
double encoded(double light) {
    const double l = std::clamp(light, 0.0, 1.0);
    return l <= 0.0031308 ? 12.92 * l : 1.055 * std::pow(l, 1 / 2.4) - 0.055;
}

rgb from_oklab(double lightness, double chroma, double hue) {
    const double a = chroma * std::cos(hue);
    const double b = chroma * std::sin(hue);
    const double l = cube(lightness + 0.3963377774 * a + 0.2158037573 * b);
    const double m = cube(lightness - 0.1055613458 * a - 0.0638541728 * b);
    const double s = cube(lightness - 0.0894841775 * a - 1.2914855480 * b);
    return {encoded(4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s),
            encoded(-1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s),
            encoded(-0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s)};
}

double share_of(double share) {
    return std::isnan(share) ? 0 : std::clamp(share, 0.0, 1.0);
}

} // namespace

rgb rising_colour(double share) {
    const double t = share_of(share);
    const double lightness = 0.30 + 0.62 * t;
    const double hue = (300 - 195 * t) * std::numbers::pi / 180;
    // As colourful as screens can show along this way: 0.12, 0.10 in the middle, 0.17.
    const double chroma = 0.12 - 0.13 * t + 0.18 * t * t;
    return from_oklab(lightness, chroma, hue);
}

rgb rising_grey(double share) {
    return from_oklab(0.20 + 0.76 * share_of(share), 0, 0);
}

} // namespace host
