#pragma once

#include "bundle_interface/k7_reader.hpp"

#include <cstdint>
#include <span>
#include <string_view>

namespace host {

/// What docs/k7-format.md says of a column.
struct k7_column {
    std::string_view name;
    Skein::K7Type type;
    std::uint64_t width; ///< values in a row; any_width where fragments differ
    std::string_view element;
    std::uint32_t components;
    std::string_view units;
    bool may_be_nan = false;
};

constexpr std::uint64_t any_width = 0;

struct k7_grid {
    std::string_view name;
    bool required;
    bool scan_attributes;
    std::span<const k7_column> columns;
};

/// A scan attribute. Either all required ones stand on a grid or none at all.
struct k7_scan_attribute {
    std::string_view name;
    Skein::K7Type type;
    bool scalar;
    bool required;
    bool may_be_nan;
};

std::span<const k7_grid> k7_grids();
std::span<const k7_scan_attribute> k7_scan_attributes();

} // namespace host
