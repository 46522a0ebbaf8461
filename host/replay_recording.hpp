#pragma once

#include "file_handle.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// When a byte of a recording is due in a replay.
class replay_pace {
  public:
    /// A byte and the second, from the start of the recording, at which it was there.
    struct mark {
        std::uint64_t offset;
        double seconds;
    };

    /// As fast as it goes.
    replay_pace() = default;
    /// So many bytes a second.
    explicit replay_pace(double bytes_per_second) : bytes_per_second_(bytes_per_second) {}
    /// As it was recorded. Offsets and seconds of `marks` increase; between two of them the bytes
    /// come evenly.
    explicit replay_pace(std::vector<mark> marks) : marks_(std::move(marks)) {}

    bool unlimited() const noexcept { return bytes_per_second_ <= 0 && marks_.empty(); }

    /// Time from the start of the recording to the byte at `offset`; 0 without a limit.
    std::chrono::nanoseconds due(std::uint64_t offset) const;

  private:
    double bytes_per_second_ = 0;
    std::vector<mark> marks_;
};

/// A recording that is replayed: read by offset, from several threads. Its files are one stream, as
/// for every reader; a text that corrects its header is not used.
class replay_recording {
  public:
    /// A part of the stream that lies in one file.
    struct piece {
        int descriptor;
        std::uint64_t offset; ///< within the file
        std::uint64_t bytes;  ///< from there to the file's end
    };

    /// Throws std::system_error, naming the file, when one cannot be opened.
    explicit replay_recording(const std::string& path);

    std::uint64_t size() const noexcept { return size_; }
    /// The file's name without folder and extension, fit for a protocol line.
    const std::string& id() const noexcept { return id_; }
    /// Where the stream goes on at `offset`; no bytes at its end.
    piece at(std::uint64_t offset) const noexcept;

    /// Up to `n` bytes at `offset`; 0 at the end or where the file cannot be read.
    std::size_t read(std::uint64_t offset, char* dst, std::size_t n) const;

    /// A text that stands for a place in this recording and in no other.
    std::string token_at(std::uint64_t offset) const;
    /// The place that a token stands for, if it is one of this recording.
    std::optional<std::uint64_t> place_of(const std::string& token) const;

  private:
    struct part {
        file_handle file;
        std::uint64_t bytes;
    };
    std::vector<part> parts_;
    std::uint64_t size_ = 0;
    std::string id_;
    std::string key_; ///< the same for the same name and size
};

} // namespace host
