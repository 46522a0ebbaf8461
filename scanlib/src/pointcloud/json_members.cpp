#include "scanlib/json_members.hpp"

#include "scanlib/saturate.hpp"

#include <charconv>
#include <stdexcept>

namespace scanlib::members {

namespace {

template<class Int>
void read_integer(const ptree& tree, const char* key, Int& out) {
    if (const ptree* value = find(tree, key)) {
        out = saturate<Int>(number_of(*value, key));
    }
}

} // namespace

double number_of(const ptree& value, const char* key) {
    const std::string& text = value.data();
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (!value.empty() || error != std::errc() || end != text.data() + text.size()) {
        malformed(key, "to be a number");
    }
    return number;
}

void malformed(const char* key, const char* expected) {
    throw std::runtime_error(std::string("metadata: \"") + key + "\" ought " + expected);
}

const ptree* find(const ptree& tree, const char* key) {
    const auto found = tree.find(key);
    return found == tree.not_found() ? nullptr : &found->second;
}

const ptree& elements(const ptree& list, const char* key) {
    if (!list.data().empty()) {
        malformed(key, "to be an array");
    }
    if (list.size() > list_limit) {
        malformed(key, "to have at most 65536 elements");
    }
    for (const auto& element : list) {
        if (!element.first.empty()) {
            malformed(key, "to be an array");
        }
    }
    return list;
}

void read(const ptree& tree, const char* key, double& out) {
    if (const ptree* value = find(tree, key)) {
        out = number_of(*value, key);
    }
}

void read(const ptree& tree, const char* key, std::uint32_t& out) {
    read_integer(tree, key, out);
}

void read(const ptree& tree, const char* key, std::int32_t& out) {
    read_integer(tree, key, out);
}

void read(const ptree& tree, const char* key, vector3& out) {
    const ptree* value = find(tree, key);
    if (value == nullptr) {
        return;
    }
    if (elements(*value, key).size() != 3) {
        malformed(key, "to be an array of three");
    }
    vector3 read{};
    std::size_t i = 0;
    for (const auto& element : *value) {
        read[i++] = number_of(element.second, key);
    }
    out = read;
}

} // namespace scanlib::members
