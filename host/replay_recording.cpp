#include "replay_recording.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <filesystem>
#include <system_error>

#include <sys/stat.h>

namespace host {

namespace {

constexpr char token_separator = '-';

/// A short text that differs where the content does, most likely.
std::string digest(const std::string& content) {
    std::uint64_t hash = 0xcbf29ce484222325u; // FNV-1a
    for (const char c : content) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
    }
    char text[16];
    const auto end = std::to_chars(text, text + sizeof text, hash, 16).ptr;
    return {text, end};
}

/// Without what ends a value in a line.
std::string fit_for_a_line(std::string text) {
    const auto unfit = [](char c) { return c == ';' || c == '\n' || c == '\r' || c == '\t'; };
    std::replace_if(text.begin(), text.end(), unfit, '_');
    return text;
}

} // namespace

std::chrono::nanoseconds replay_pace::due(std::uint64_t offset) const {
    double seconds = 0;
    if (bytes_per_second_ > 0) {
        seconds = static_cast<double>(offset) / bytes_per_second_;
    } else if (!marks_.empty()) {
        const auto above =
            std::upper_bound(marks_.begin(), marks_.end(), offset,
                             [](std::uint64_t at, const mark& m) { return at < m.offset; });
        const mark before = above == marks_.begin() ? mark{0, 0} : *(above - 1);
        seconds = before.seconds;
        if (above != marks_.end() && above->offset > before.offset) {
            seconds += (above->seconds - before.seconds) *
                       static_cast<double>(offset - before.offset) /
                       static_cast<double>(above->offset - before.offset);
        }
    }
    // A year is as good as for ever, and fits.
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::duration<double>(std::min(seconds, 3.2e7)));
}

replay_recording::replay_recording(const std::string& path)
    : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    struct stat status {};
    if (!file_ || ::fstat(file_.get(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot read \"" + path + "\"");
    }
    size_ = static_cast<std::uint64_t>(status.st_size);
    id_ = fit_for_a_line(std::filesystem::path(path).stem().string());
    key_ = digest(id_ + '/' + std::to_string(size_));
}

std::size_t replay_recording::read(std::uint64_t offset, char* dst, std::size_t n) const {
    const ssize_t k = ::pread(file_.get(), dst, n, static_cast<off_t>(offset));
    return k < 0 ? 0 : static_cast<std::size_t>(k);
}

std::string replay_recording::token_at(std::uint64_t offset) const {
    return key_ + token_separator + std::to_string(offset);
}

std::optional<std::uint64_t> replay_recording::place_of(const std::string& token) const {
    const std::string start = key_ + token_separator;
    if (!token.starts_with(start)) {
        return std::nullopt;
    }
    std::uint64_t place = 0;
    const char* const end = token.data() + token.size();
    const auto [stop, error] = std::from_chars(token.data() + start.size(), end, place);
    if (error != std::errc() || stop != end || place > size_) {
        return std::nullopt;
    }
    return place;
}

} // namespace host
