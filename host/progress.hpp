#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace host {

/// Is told how far a work is, as often as one likes. One thread at a time.
class progress_view {
  public:
    progress_view() = default;
    progress_view(const progress_view&) = delete;
    progress_view& operator=(const progress_view&) = delete;
    virtual ~progress_view() = default;

    virtual void show(std::uint64_t done) = 0;

    /// Takes away what would be in the way of other text.
    virtual void clear() {}
};

/// What is counted, and how much of it there is.
struct progress_scale {
    std::string unit;        ///< plural; "bytes" are shown as MB
    std::uint64_t total = 0; ///< 0 where it is not known: then no share is shown
    std::uint64_t bytes = 0; ///< that the whole stands for, so that the rate is one of bytes
};

/// Shows progress on standard error, with rate and remaining time: a bar on a terminal, elsewhere a
/// line every tenth. It looks at the clock and writes a few times a second only.
class progress_line : public progress_view {
  public:
    /// `name` stands in front.
    progress_line(std::string name, progress_scale scale);
    ~progress_line() override { clear(); }

    void show(std::uint64_t done) override;
    void clear() override;

    /// Another name, and another total of the same unit.
    void change(std::string name, std::uint64_t total);

  private:
    using clock = std::chrono::steady_clock;

    void draw_bar(std::uint64_t done);
    void write_line(std::uint64_t done);
    /// How much, how fast and how long: "1.2 M packets, 190.0 MB/s, 0:12 left".
    std::string amounts(std::uint64_t done) const;

    std::string name_;
    progress_scale scale_;
    bool on_terminal_;
    bool drawn_ = false;
    unsigned tenths_ = 0; ///< told so far, where there is no terminal
    clock::time_point start_;
    clock::time_point next_;
};

} // namespace host
