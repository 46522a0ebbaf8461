#include "scanlib/quaternion.hpp"

#include "scanlib/half_angle.hpp"

namespace scanlib {

quaternion rotation_about(const vector3& axis, double angle) noexcept {
    const sine_cosine half = half_angle(angle / 2);
    return {half.cosine, half.sine * axis[0], half.sine * axis[1], half.sine * axis[2]};
}

} // namespace scanlib
