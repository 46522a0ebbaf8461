#pragma once

#include "scanlib/vector3.hpp"

#include <boost/property_tree/ptree.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Members of JSON objects. Each `read` leaves the target as it is when the object lacks the
/// member, and throws std::runtime_error that names the member when it is malformed.
namespace scanlib::members {

using boost::property_tree::ptree;

/// Entries that a list may have; each table of an instrument is far smaller.
constexpr std::size_t list_limit = 65536;

/// Throws std::runtime_error that names the member and what it is expected to be.
[[noreturn]] void malformed(const char* key, const char* expected);

/// The member, or null.
const ptree* find(const ptree& tree, const char* key);

/// The number that the value of the member `key` is.
double number_of(const ptree& value, const char* key);

/// A number, whole or not.
void read(const ptree& tree, const char* key, double& out);
/// A number outside the range of the integer gives the nearer bound, a NaN 0.
void read(const ptree& tree, const char* key, std::uint32_t& out);
/// As for the unsigned integer.
void read(const ptree& tree, const char* key, std::int32_t& out);
/// An array of three.
void read(const ptree& tree, const char* key, vector3& out);

/// The same, where the member must be there.
template<class Value>
void require(const ptree& tree, const char* key, Value& out) {
    if (find(tree, key) == nullptr) {
        malformed(key, "to be there");
    }
    read(tree, key, out);
}

/// The elements of an array; one that is empty stands as an empty text.
const ptree& elements(const ptree& list, const char* key);

/// An array, each element of which `read_element` turns into an `Element`.
template<class Element, class Read>
void read_list(const ptree& tree, const char* key, std::vector<Element>& out, Read read_element) {
    const ptree* list = find(tree, key);
    if (list == nullptr) {
        return;
    }
    std::vector<Element> read;
    read.reserve(elements(*list, key).size());
    for (const auto& [name, element] : *list) {
        read.push_back(read_element(element));
    }
    out = std::move(read);
}

} // namespace scanlib::members
