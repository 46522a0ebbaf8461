#pragma once

#include <concepts>
#include <string>
#include <string_view>

namespace host {

/// `text` as a JSON string, quotes included. Bytes that are not UTF-8 are taken as Latin-1.
std::string json_text(std::string_view text);

/// Shortest number that reads back exactly; null for NaN and the infinities.
std::string json_number(double value);

/// Builds one JSON object on one line, member by member.
class json_object {
  public:
    json_object& text(std::string_view name, std::string_view value) {
        return raw(name, json_text(value));
    }
    json_object& number(std::string_view name, std::integral auto value) {
        return raw(name, std::to_string(value));
    }
    json_object& number(std::string_view name, double value) {
        return raw(name, json_number(value));
    }
    json_object& truth(std::string_view name, bool value) {
        return raw(name, value ? "true" : "false");
    }
    /// A member whose value is JSON already.
    json_object& raw(std::string_view name, std::string_view json);
    /// The members of another object behind those that are there.
    json_object& join(const json_object& more);

    /// The object. Nothing is added afterwards.
    std::string str() const { return members_.empty() ? "{}" : members_ + "}"; }

  private:
    std::string members_;
};

/// Joins JSON values to an array.
class json_array {
  public:
    void add(std::string_view json) {
        elements_ += elements_.empty() ? "[" : ", ";
        elements_ += json;
    }
    std::string str() const { return elements_.empty() ? "[]" : elements_ + "]"; }

  private:
    std::string elements_;
};

} // namespace host
