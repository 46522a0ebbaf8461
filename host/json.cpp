#include "json.hpp"

#include "scanlib/json_writer.hpp"

#include <array>
#include <charconv>
#include <cmath>

namespace host {

std::string json_text(std::string_view text) {
    scanlib::json_writer out;
    out.value(text);
    return out.text();
}

std::string json_number(double value) {
    if (!std::isfinite(value)) {
        return "null";
    }
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    return {digits.data(), end};
}

json_object& json_object::raw(std::string_view name, std::string_view json) {
    members_ += members_.empty() ? "{" : ", ";
    members_ += json_text(name);
    members_ += ": ";
    members_ += json;
    return *this;
}

json_object& json_object::join(const json_object& more) {
    if (!more.members_.empty()) {
        members_ += members_.empty() ? "{" : ", ";
        members_.append(more.members_, 1);
    }
    return *this;
}

} // namespace host
