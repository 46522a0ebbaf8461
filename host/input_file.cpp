#include "input_file.hpp"

#include "scanlib/file_set.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

namespace host {

namespace {

struct closer {
    void operator()(std::FILE* f) const noexcept { std::fclose(f); }
};
using file_handle = std::unique_ptr<std::FILE, closer>;

struct sample {
    std::uint64_t words = 0;
    std::uint64_t starts = 0; ///< words that begin a packet
};

/// Looks into the files of a recording here and there.
class stream_sampler {
  public:
    explicit stream_sampler(scanlib::file_set set) : parts_(std::move(set.prefixes)) {
        parts_.insert(parts_.end(), set.data.begin(), set.data.end());
        for (const scanlib::file_part& part : parts_) {
            size_ += part.size;
        }
    }

    std::uint64_t size() const noexcept { return size_; }

    /// A piece of one file at an offset of the stream, a multiple of 4. Words are whole in the
    /// stream, wherever a file begins.
    sample at(std::uint64_t offset) {
        std::uint64_t base = 0;
        for (const scanlib::file_part& part : parts_) {
            if (offset < base + part.size) {
                return in(part.name, offset - base);
            }
            base += part.size;
        }
        return {};
    }

  private:
    sample in(const std::string& name, std::uint64_t offset) {
        const file_handle file(std::fopen(name.c_str(), "rb"));
        if (!file || fseeko(file.get(), static_cast<off_t>(offset), SEEK_SET) != 0) {
            return {};
        }
        const std::size_t n = std::fread(words_.data(), 4, words_.size(), file.get());
        const auto end = words_.begin() + static_cast<std::ptrdiff_t>(n);
        const auto starts =
            std::count_if(words_.begin(), end, [](std::uint32_t w) { return w > 0xFFFFFF00; });
        return {n, static_cast<std::uint64_t>(starts)};
    }

    std::vector<scanlib::file_part> parts_;
    std::uint64_t size_ = 0;
    std::vector<std::uint32_t> words_ = std::vector<std::uint32_t>(8192);
};

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

std::vector<std::string> files_of_input(const std::string& name) {
    if (is_live_stream(name)) {
        return {};
    }
    std::vector<std::string> files{name};
    const scanlib::file_set set = scanlib::find_file_set(name);
    for (const auto* parts : {&set.prefixes, &set.data}) {
        for (const scanlib::file_part& part : *parts) {
            if (part.name != name) {
                files.push_back(part.name);
            }
        }
    }
    const scanlib::file_set_names names(name);
    for (const std::string& text : {names.first_override(), names.second_override()}) {
        if (scanlib::is_file(text)) {
            files.push_back(text);
        }
    }
    return files;
}

std::uint64_t bytes_of_input(const std::string& name) {
    return is_live_stream(name) ? 0 : scanlib::find_file_set(name).size();
}

std::uint64_t estimate_packets(const std::string& name) {
    constexpr std::uint64_t samples = 16;
    if (is_live_stream(name)) {
        return 0;
    }
    stream_sampler sampler(scanlib::find_file_set(name));
    sample total;
    for (std::uint64_t i = 0; i < samples; ++i) {
        const sample s = sampler.at(sampler.size() / samples * i / 4 * 4);
        total.words += s.words;
        total.starts += s.starts;
    }
    const double per_word =
        total.words == 0 ? 0 : static_cast<double>(total.starts) / static_cast<double>(total.words);
    const std::uint64_t words_of_stream = sampler.size() / 4;
    return static_cast<std::uint64_t>(per_word * static_cast<double>(words_of_stream));
}

} // namespace host
