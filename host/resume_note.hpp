#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace host {

/// What is needed to go on with a recording of a live stream: how much of the stream the file
/// holds, and the server's text for the place behind it.
struct resume_note {
    std::uint64_t bytes = 0;  ///< of the file that count; what follows is to be cut off
    std::string continuation; ///< token, ":", offset
};

/// Where the note about a recording is kept.
std::string note_path(const std::string& recording);

/// Replaces the note as a whole. Throws std::system_error, naming the file, when that fails.
void write_note(const std::string& path, const resume_note& note);

/// The note, if there is one that can be understood.
std::optional<resume_note> read_note(const std::string& path);

/// Follows the continuation of a transfer by what was delivered. The connection's own text counts
/// bytes that a stop has cut off.
class continuation_tracker {
  public:
    explicit continuation_tracker(const std::string& continuation);

    /// After a read that delivered `n` bytes: the connection's text then.
    void delivered(const std::string& continuation, std::uint64_t n);

    /// Whether there is a token, without which nothing can be resumed.
    bool usable() const noexcept { return !token_.empty(); }
    std::string text() const { return token_ + ':' + std::to_string(offset_); }

  private:
    std::string token_;
    std::uint64_t offset_ = 0; ///< of what was delivered
    std::uint64_t told_ = 0;   ///< by the connection
};

} // namespace host
