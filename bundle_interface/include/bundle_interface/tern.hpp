#pragma once

/// Charts, and what has a place in them.
namespace Tern {

/// Chart of three Cartesian coordinates.
struct Cartesian3D {};

/// Elements of fields with three components.
namespace PhysicalSpace {

/// Position in metres.
struct point {
    double x; ///< m
    double y; ///< m
    double z; ///< m
};

/// Direction or displacement; its unit is that of its use.
struct vector {
    double x; ///< along the axis of point::x, the others likewise
    double y; ///< second component
    double z; ///< third component
};

static_assert(sizeof(point) == 24 && sizeof(vector) == 24);

} // namespace PhysicalSpace
} // namespace Tern
