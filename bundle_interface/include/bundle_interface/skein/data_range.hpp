#pragma once

#include <string>

#include "bundle_interface/export.hpp"
#include "bundle_interface/holdfast/reference.hpp"

namespace Skein {

/// Base of the ranges of all types.
class RXP2K7_EXPORT DataRangeBase : public Holdfast::ReferenceBase<DataRangeBase> {
  public:
    DataRangeBase();
    ~DataRangeBase() override;
};

template<class T>
class DataRange;

/// A pair of bounds, both of which belong to the range.
template<>
class RXP2K7_EXPORT DataRange<double> : public DataRangeBase {
  public:
    /// From 0 to 0.
    DataRange();
    /// From `least` to `greatest`, which are taken as they are.
    DataRange(double least, double greatest);
    ~DataRange() override;

    double min = 0; ///< the lower bound
    double max = 0; ///< the upper bound
};

} // namespace Skein

namespace std {

/// "[min, max]", both in the shortest decimal form that reads back exactly.
RXP2K7_EXPORT string to_string(const Skein::DataRange<double>& range);

/// The text itself, so that generic code can ask any value for its text.
inline string to_string(const string& text) {
    return text;
}

} // namespace std
