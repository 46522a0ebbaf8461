#include "bundle_interface/k7_names.hpp"

#include <charconv>
#include <string_view>
#include <system_error>
#include <utility>

#include "bundle_interface/k7_reader.hpp"

namespace Skein {

namespace {

constexpr std::string_view fragment_prefix = "Fragment_";
constexpr std::string_view slice_prefix = "Slice_";

/// The number of a name "<prefix>_<number>", as it is written and in no other way.
std::optional<std::uint32_t> numberOf(std::string_view name, std::string_view prefix) {
    if (!name.starts_with(prefix)) {
        return std::nullopt;
    }
    name.remove_prefix(prefix.size());
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    const bool whole = error == std::errc() && end == name.data() + name.size();
    return whole && (name.size() == 1 || name.front() != '0') ? std::optional(number)
                                                              : std::nullopt;
}

std::string placeText(const std::string& file, const std::string& object,
                      const std::string& cause) {
    return "K7: cannot read " + file + (object.empty() ? "" : ": " + object) + ": " + cause;
}

} // namespace

namespace k7 {

bool isPath(const std::string& object) {
    return object == "/" || (object.starts_with('/') && !object.ends_with('/') &&
                             object.find("//") == std::string::npos);
}

std::optional<std::uint32_t> fragmentNumber(const std::string& name) {
    return numberOf(name, fragment_prefix);
}

std::optional<std::uint32_t> sliceNumber(const std::string& name) {
    return numberOf(name, slice_prefix);
}

std::string fragmentName(std::uint32_t number) {
    return std::string(fragment_prefix).append(std::to_string(number));
}

std::string slicePath(std::uint32_t number) {
    return std::string("/").append(slice_prefix).append(std::to_string(number));
}

} // namespace k7

K7ReadError::K7ReadError(const std::string& file, std::string object, std::string cause)
    : std::runtime_error(placeText(file, object, cause))
    , object_(std::move(object))
    , cause_(std::move(cause)) {}

const char* nameOf(K7Type type) noexcept {
    switch (type) {
    case K7Type::f64:
        return "f64";
    case K7Type::f32:
        return "f32";
    case K7Type::i32:
        return "i32";
    case K7Type::u32:
        return "u32";
    case K7Type::u16:
        return "u16";
    case K7Type::u8:
        return "u8";
    case K7Type::text:
        return "text";
    case K7Type::other:
        break;
    }
    return "another type";
}

std::string K7Reader::chartOf(const std::string& grid) {
    return grid + "/" + k7::chart_name;
}

std::string K7Reader::fragmentPath(const std::string& field, std::uint32_t number) {
    return field + "/" + k7::fragmentName(number);
}

} // namespace Skein
