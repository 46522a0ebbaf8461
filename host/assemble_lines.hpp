#pragma once

#include "scanlib/packet_emitter.hpp"

#include <cstdint>
#include <cstdio>
#include <istream>
#include <memory>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// Lines of a text file. Its memory does not grow beyond the longest line that can be a packet.
class line_source {
  public:
    /// Reads `file`, which outlives this object.
    explicit line_source(std::FILE* file) : file_(file), piece_(piece_size) {}

    /// More than any packet of the framing makes.
    static constexpr std::size_t longest_line = std::size_t{1} << 25;

    enum class outcome : std::uint8_t { line, too_long, end, failed };

    /// Sets `line` to the next one, without its end. Valid until the next call.
    outcome next(std::string_view& line);

  private:
    static constexpr std::size_t piece_size = 65536;

    bool refill();

    std::FILE* file_;
    std::vector<char> piece_;
    std::size_t at_ = 0;
    std::size_t end_ = 0;
    std::string joined_; ///< a line that runs over the end of a piece
};

/// Why a line is no packet.
class bad_line : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Makes packets of the lines that `dump` prints, in any of its forms, line by line.
class line_assembler {
  public:
    /// `emitter` outlives this object.
    explicit line_assembler(scanlib::packet_emitter& emitter) : emitter_(emitter), in_(&buffer_) {}

    /// Writes the packet of a line; nothing for a blank one. Throws bad_line, and what the emitter
    /// throws.
    void take(std::string_view line);

  private:
    /// A stream buffer over a line that lies elsewhere.
    class line_buffer : public std::streambuf {
      public:
        void show(std::string_view line) {
            auto* const first = const_cast<char*>(line.data());
            setg(first, first, first + line.size());
        }
        std::size_t column() const noexcept { return static_cast<std::size_t>(gptr() - eback()); }
    };

    scanlib::packet_id read_pair(std::string_view line);
    void read_body(scanlib::packet_id id);
    void emit(scanlib::packet_id id);

    scanlib::packet_emitter& emitter_;
    line_buffer buffer_;
    std::istream in_;
    bool as_words_ = false;
    std::vector<std::uint32_t> body_;
};

} // namespace host
