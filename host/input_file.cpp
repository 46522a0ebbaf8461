#include "input_file.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <system_error>
#include <vector>

namespace host {

namespace {

struct closer {
    void operator()(std::FILE* f) const noexcept { std::fclose(f); }
};
using file_handle = std::unique_ptr<std::FILE, closer>;

/// Start words in a piece of a stream.
std::uint64_t count_starts(const std::uint32_t* words, std::size_t n) {
    return static_cast<std::uint64_t>(
        std::count_if(words, words + n, [](std::uint32_t w) { return w > 0xFFFFFF00; }));
}

} // namespace

bool is_live_stream(const std::string& name) {
    return name.starts_with("rdtp:") || name.starts_with("rddp:");
}

std::string reason_unreadable(const std::string& name) {
    if (is_live_stream(name)) {
        return {};
    }
    std::error_code error;
    const auto status = std::filesystem::status(name, error);
    if (status.type() == std::filesystem::file_type::not_found) {
        return "cannot read \"" + name + "\": no such file";
    }
    if (error) {
        return "cannot read \"" + name + "\": " + error.message();
    }
    if (std::filesystem::is_directory(status)) {
        return "cannot read \"" + name + "\": it is a directory";
    }
    if (!std::filesystem::is_regular_file(status)) {
        return "cannot read \"" + name + "\": it is not a regular file";
    }
    const file_handle file(std::fopen(name.c_str(), "rb"));
    if (!file) {
        return "cannot read \"" + name + "\": " + std::generic_category().message(errno);
    }
    return {};
}

std::uint64_t estimate_packets(const std::string& name) {
    constexpr std::uint64_t samples = 16;
    constexpr std::size_t sample_words = 8192;
    std::error_code error;
    const std::uint64_t size = is_live_stream(name) ? 0 : std::filesystem::file_size(name, error);
    const file_handle file(std::fopen(name.c_str(), "rb"));
    if (error || size == 0 || !file) {
        return 0;
    }
    std::vector<std::uint32_t> words(sample_words);
    std::uint64_t seen = 0;
    std::uint64_t starts = 0;
    for (std::uint64_t i = 0; i < samples; ++i) {
        const auto at = static_cast<long>(size / samples * i / 4 * 4);
        if (std::fseek(file.get(), at, SEEK_SET) != 0) {
            return 0;
        }
        const std::size_t n = std::fread(words.data(), 4, sample_words, file.get());
        seen += n;
        starts += count_starts(words.data(), n);
    }
    const double per_word = seen == 0 ? 0 : static_cast<double>(starts) / static_cast<double>(seen);
    const std::uint64_t words_of_file = size / 4;
    return static_cast<std::uint64_t>(per_word * static_cast<double>(words_of_file));
}

} // namespace host
