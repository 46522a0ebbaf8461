#include "scanlib/quaternion.hpp"

#include "scanlib/scanmech.hpp"

namespace scanlib {

quaternion rotation_about(const vector3& axis, double angle) noexcept {
    double sine = 0;
    double cosine = 1;
    half_angle_sine_cosine(angle / 2, sine, cosine);
    return {cosine, sine * axis[0], sine * axis[1], sine * axis[2]};
}

} // namespace scanlib
