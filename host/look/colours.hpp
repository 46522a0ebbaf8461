#pragma once

#include <array>
#include <cstdint>

namespace host {

/// Colour as shares of red, green and blue, 0 to 1, as screens take them.
struct rgb {
    double red;
    double green;
    double blue;
};

/// Colour of a share from 0 to 1, from dark violet over green to light yellow. Lightness and hue
/// rise evenly in a perceptual colour space (Oklab), so equal steps look equal, in grey, too.
rgb rising_colour(double share);
/// Grey whose lightness rises evenly, within what can be told from black and from white.
rgb rising_grey(double share);

} // namespace host
