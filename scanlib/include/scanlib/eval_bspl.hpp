#pragma once

#include <span>

namespace scanlib {

/// Evaluates a periodic cubic B-spline with the period 2 pi at each `x`, by the recurrence of
/// convex combinations. The values are the control points, each standing over its knot: the curve
/// follows them, and goes through them only where they lie on a line.
///
/// `knots` ascend from 0 to less than 2 pi; `values` has the same length. `x` ascends; where it
/// falls back, the search for its interval starts afresh. An `x` beyond 2 pi continues the curve of
/// the last interval. `out` has the length of `x`; an empty `x` returns at once.
///
/// Throws std::runtime_error "inconsistent data in eval_bspl" for an `x` before the first knot or
/// behind the last of the continued ones, for fewer than three knots, and for lengths that differ.
void eval_bspl(std::span<double> out, std::span<const double> x, std::span<const double> knots,
               std::span<const double> values);

} // namespace scanlib
