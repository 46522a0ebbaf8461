#include "stream_log.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <stdexcept>
#include <system_error>

namespace scanlib {

namespace {

constexpr std::ptrdiff_t extension_digits = 3;

std::string extension_text(std::uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof text, "_%03u", number);
    return text;
}

/// Whether `name` is that of a log, "_" and three digits.
bool is_extension(const std::string& name, const std::string& log) {
    const auto is_digit = [](unsigned char c) { return std::isdigit(c) != 0; };
    return name.size() == log.size() + 1 + std::size_t{extension_digits} && name.starts_with(log) &&
           name[log.size()] == '_' &&
           std::all_of(name.end() - extension_digits, name.end(), is_digit);
}

} // namespace

bool stream_log::begin_file(const std::filesystem::path& path) {
    present_ = path;
    written_ = 0;
    return file_.open(path);
}

void stream_log::open(const std::string& path, std::int64_t limit) {
    file_.close();
    path_ = std::filesystem::absolute(path);
    limit_ = limit;
    extension_ = 1;
    if (!begin_file(path_)) {
        throw std::runtime_error("cannot create logfile");
    }
    remove_extensions();
}

/// Those that cannot be removed stay.
void stream_log::remove_extensions() const {
    std::error_code ignored;
    const std::string log = path_.filename().string();
    std::filesystem::directory_iterator entries(path_.parent_path(), ignored);
    for (const std::filesystem::directory_iterator end; !ignored && entries != end;
         entries.increment(ignored)) {
        if (is_extension(entries->path().filename().string(), log)) {
            std::error_code busy;
            std::filesystem::remove(entries->path(), busy);
        }
    }
}

void stream_log::write(const char* data, std::uint64_t n, file_place from) {
    const auto room = static_cast<std::uint64_t>(std::max<std::int64_t>(limit_ - written_, 0));
    const std::uint64_t k = std::min(n, room);
    if (!file_.write(data, static_cast<std::size_t>(k), from)) {
        fail();
    }
    written_ += static_cast<std::int64_t>(k);
    if (k < n) {
        roll_over();
    }
}

void stream_log::roll_over() {
    if (!file_.close()) {
        fail();
    }
    if (!begin_file(path_.string() + extension_text(extension_++))) {
        throw std::runtime_error("cannot create logfile extension");
    }
}

void stream_log::flush() {
    if (!file_.flush()) {
        fail();
    }
}

void stream_log::close() {
    limit_ = unlimited;
    if (!file_.close()) {
        fail();
    }
}

void stream_log::fail() {
    file_.close();
    throw std::runtime_error("cannot write logfile \"" + present_.string() + "\"");
}

} // namespace scanlib
