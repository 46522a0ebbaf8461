#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// What the objects of a K7 file are called.
namespace Skein::k7 {

/// The chart of each grid.
inline constexpr const char* chart_name = "StandardCartesianChart3D";

/// True for paths from the root on, without empty names.
bool isPath(const std::string& object);

/// The number of a fragment's name, as it is written and in no other way.
std::optional<std::uint32_t> fragmentNumber(const std::string& name);
/// The same of a slice's.
std::optional<std::uint32_t> sliceNumber(const std::string& name);

/// As a field's fragment is called.
std::string fragmentName(std::uint32_t number);
/// The path of a slice from the root on.
std::string slicePath(std::uint32_t number);

} // namespace Skein::k7
