#pragma once

namespace Tern {

/// Chart of three Cartesian coordinates.
struct Cartesian3D {};

namespace PhysicalSpace {

/// Position in metres.
struct point {
    double x, y, z;
};

/// Direction or displacement; its unit is that of its use.
struct vector {
    double x, y, z;
};

static_assert(sizeof(point) == 24 && sizeof(vector) == 24);

} // namespace PhysicalSpace
} // namespace Tern
