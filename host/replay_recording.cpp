#include "replay_recording.hpp"

#include "scanlib/file_set.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <filesystem>
#include <system_error>

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

replay_recording::replay_recording(const std::string& path) {
    const scanlib::file_set files = scanlib::find_file_set(path);
    for (const auto& list : {files.prefixes, files.data}) {
        for (const scanlib::file_part& file : list) {
            file_handle opened(::open(file.name.c_str(), O_RDONLY | O_CLOEXEC));
            if (!opened) {
                throw std::system_error(errno, std::generic_category(),
                                        "cannot read \"" + file.name + "\"");
            }
            parts_.push_back({std::move(opened), file.size});
            size_ += file.size;
        }
    }
    id_ = fit_for_a_line(std::filesystem::path(path).stem().string());
    key_ = digest(id_ + '/' + std::to_string(size_));
}

replay_recording::piece replay_recording::at(std::uint64_t offset) const noexcept {
    for (const part& p : parts_) {
        if (offset < p.bytes) {
            return {p.file.get(), offset, p.bytes - offset};
        }
        offset -= p.bytes;
    }
    return {-1, 0, 0};
}

std::size_t replay_recording::read(std::uint64_t offset, char* dst, std::size_t n) const {
    std::size_t done = 0;
    while (done < n) {
        const piece p = at(offset + done);
        const std::size_t wanted = std::min<std::uint64_t>(n - done, p.bytes);
        const ssize_t k =
            wanted == 0 ? 0
                        : ::pread(p.descriptor, dst + done, wanted, static_cast<off_t>(p.offset));
        if (k <= 0) {
            break;
        }
        done += static_cast<std::size_t>(k);
    }
    return done;
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
