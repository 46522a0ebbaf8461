#include "resume_note.hpp"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <system_error>

namespace host {

namespace {

constexpr const char* first_line = "rxp2k7 record 1";

std::string token_of(const std::string& continuation) {
    return continuation.substr(0, continuation.rfind(':'));
}

std::uint64_t offset_of(const std::string& continuation) {
    std::uint64_t offset = 0;
    const std::size_t colon = continuation.rfind(':');
    if (colon != std::string::npos) {
        std::from_chars(continuation.data() + colon + 1, continuation.data() + continuation.size(),
                        offset);
    }
    return offset;
}

} // namespace

std::string note_path(const std::string& recording) {
    return recording + ".resume";
}

void write_note(const std::string& path, const resume_note& note) {
    const std::string fresh = path + ".new";
    std::ofstream out(fresh, std::ios::binary | std::ios::trunc);
    out << first_line << '\n' << note.bytes << '\n' << note.continuation << '\n';
    out.close();
    if (!out || std::rename(fresh.c_str(), path.c_str()) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot write \"" + path + "\"");
    }
}

std::optional<resume_note> read_note(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string first;
    std::string bytes;
    resume_note note;
    if (!std::getline(in, first) || first != first_line || !std::getline(in, bytes) ||
        !std::getline(in, note.continuation)) {
        return std::nullopt;
    }
    const char* const end = bytes.data() + bytes.size();
    const auto [stop, error] = std::from_chars(bytes.data(), end, note.bytes);
    return error == std::errc() && stop == end ? std::optional(note) : std::nullopt;
}

continuation_tracker::continuation_tracker(const std::string& continuation)
    : token_(token_of(continuation)), offset_(offset_of(continuation)), told_(offset_) {}

void continuation_tracker::delivered(const std::string& continuation, std::uint64_t n) {
    std::string token = token_of(continuation);
    const std::uint64_t told = offset_of(continuation);
    // A token may be issued again as it is.
    const bool issued_again = told == n && told != told_ + n;
    offset_ = token == token_ && !issued_again ? offset_ + n : n;
    token_ = std::move(token);
    told_ = told;
}

} // namespace host
