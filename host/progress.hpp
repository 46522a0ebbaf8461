#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace host {

/// Shows on standard error how far a work is: a bar on a terminal, elsewhere a line every tenth. It
/// may be told as often as one likes; it looks at the clock and writes a few times a second only.
/// One thread at a time.
class progress_line {
  public:
    /// `name` stands in front. With a total of 0 the share is not known, and numbers are shown.
    progress_line(std::string name, std::string unit, std::uint64_t total);
    progress_line(const progress_line&) = delete;
    progress_line& operator=(const progress_line&) = delete;
    ~progress_line() { clear(); }

    void show(std::uint64_t done);

    /// Takes the bar away, so that other text can be written.
    void clear();

  private:
    using clock = std::chrono::steady_clock;

    void draw_bar(std::uint64_t done);
    void write_line(std::uint64_t done);

    std::string name_;
    std::string unit_;
    std::uint64_t total_;
    bool on_terminal_;
    bool drawn_ = false;
    unsigned tenths_ = 0; ///< told so far, where there is no terminal
    clock::time_point next_;
};

} // namespace host
