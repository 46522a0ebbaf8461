#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace host {

/// One thing that is wrong in a K7 file.
struct k7_finding {
    std::string path;                 ///< within the file
    std::optional<std::uint64_t> row; ///< of the array, counted from 0
    std::string text;
};

/// What is wrong in a file, as much as anybody reads; the rest is counted.
class k7_findings {
  public:
    static constexpr std::size_t most_kept = 1000;

    void add(std::string path, std::string text, std::optional<std::uint64_t> row = std::nullopt) {
        if (kept_.size() < most_kept) {
            kept_.push_back({std::move(path), row, std::move(text)});
        }
        ++count_;
    }
    const std::vector<k7_finding>& kept() const noexcept { return kept_; }
    std::uint64_t count() const noexcept { return count_; }

  private:
    std::vector<k7_finding> kept_;
    std::uint64_t count_ = 0;
};

/// Rows of the documented grids.
struct k7_counts {
    std::uint64_t shots = 0;
    std::uint64_t echoes = 0;
    std::uint64_t waveforms = 0;
    std::uint64_t fragments = 0; ///< different numbers
};

} // namespace host
