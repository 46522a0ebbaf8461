#include "scanlib/file_set.hpp"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

namespace scanlib {

file_set_names::file_set_names(std::string main_file)
    : main_(std::move(main_file)), stem_(main_.substr(0, main_.rfind('.'))) {}

std::string file_set_names::first_override() const {
    return stem_ + ".pxp";
}

std::string file_set_names::second_override() const {
    return stem_ + ".override.pxp";
}

std::string file_set_names::common_prefix() const {
    return stem_.substr(0, stem_.find_last_of("/\\") + 1) + "common.rxo";
}

std::string file_set_names::own_prefix() const {
    return stem_ + ".rxo";
}

std::string file_set_names::continuation(std::uint32_t number) const {
    if (number == 0) {
        return main_;
    }
    std::array<char, 16> ending{};
    std::snprintf(ending.data(), ending.size(), "_%03" PRIu32, number);
    return main_ + ending.data();
}

std::uint64_t file_set::size() const noexcept {
    std::uint64_t sum = 0;
    for (const auto* parts : {&prefixes, &data}) {
        for (const file_part& part : *parts) {
            sum += part.size;
        }
    }
    return sum;
}

bool is_file(const std::string& name) {
    std::error_code unknown;
    return std::filesystem::is_regular_file(name, unknown);
}

std::uint64_t file_size_of(const std::string& name) {
    std::error_code unknown;
    const std::uintmax_t size = std::filesystem::file_size(name, unknown);
    return unknown ? 0 : size;
}

std::vector<file_part> data_files(const file_set_names& names) {
    std::vector<file_part> parts{{names.main_file(), file_size_of(names.main_file())}};
    for (std::uint32_t n = 1; is_file(names.continuation(n)); ++n) {
        parts.push_back({names.continuation(n), file_size_of(names.continuation(n))});
    }
    return parts;
}

file_set find_file_set(const std::string& main_file) {
    const file_set_names names(main_file);
    file_set found;
    for (const std::string& name : {names.common_prefix(), names.own_prefix()}) {
        if (is_file(name)) {
            found.prefixes.push_back({name, file_size_of(name)});
        }
    }
    found.data = data_files(names);
    return found;
}

} // namespace scanlib
