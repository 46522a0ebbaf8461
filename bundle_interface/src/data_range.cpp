#include "bundle_interface/skein/data_range.hpp"

#include <charconv>
#include <iterator>

#include "bundle_interface/skein/storage_transformations.hpp"

namespace Skein {

DataRangeBase::DataRangeBase() = default;
DataRangeBase::~DataRangeBase() = default;

DataRange<double>::DataRange() = default;
DataRange<double>::DataRange(double least, double greatest) : min(least), max(greatest) {}
DataRange<double>::~DataRange() = default;

StorageTransformations::StorageTransformations() = default;
StorageTransformations::~StorageTransformations() = default;

} // namespace Skein

namespace {

std::string shortest(double value) {
    char text[32];
    const auto end = std::to_chars(std::begin(text), std::end(text), value).ptr;
    return std::string(std::begin(text), end);
}

} // namespace

std::string std::to_string(const Skein::DataRange<double>& range) {
    std::string text = "[";
    text.append(shortest(range.min)).append(", ").append(shortest(range.max)).append("]");
    return text;
}
