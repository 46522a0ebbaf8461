#pragma once

#include "progress.hpp"

#include <optional>
#include <string>

namespace host {

/// How the packets of an input are shown. It looks into the input for that.
progress_scale packets_of(const std::string& input);

/// Shows how many packets of an input are done. Looks at the input when there is something to show,
/// and not before.
class packets_line : public progress_view {
  public:
    /// The name outlives it.
    explicit packets_line(const std::string& input) : input_(input) {}

    void show(std::uint64_t packets) override;
    void clear() override;

  private:
    const std::string& input_;
    std::optional<progress_line> line_;
};

} // namespace host
