#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "scanlib/override_listener.hpp"
#include "scanlib/override_text.hpp"

namespace scanlib::detail {

/// One pass of an override text over a header region.
class override_pass {
  public:
    enum class fate { keep, drop, replace };

    /// `text` must outlive the pass; `listener` may be null.
    override_pass(const override_text& text, override_listener* listener);

    /// Successes of "file_verification" that are lacking.
    std::size_t outstanding() const noexcept { return outstanding_; }

    /// Compares a packet with "file_verification".
    void verify(const packet_words& packet);

    /// What becomes of a packet; `replacement` then tells the new one.
    fate apply(const packet_words& packet);
    packet_words replacement() const noexcept { return {replacement_id_, replacement_}; }

    /// Hands out the new packet of each entry that has served no packet.
    void append(const std::function<void(const packet_words&)>& write);

  private:
    using mismatch = void (override_listener::*)(std::size_t, std::size_t, const std::string&);

    bool agrees(const packet_condition& condition, const packet_words& packet, std::size_t entry,
                mismatch tell);
    std::optional<std::size_t> entry_for(const packet_words& packet);
    fate edit(std::size_t entry, const packet_words& packet);
    void make_replacement(const packet_override& entry);
    bool tolerated(std::size_t entry, const std::exception& failure);

    const override_text& text_;
    override_listener* listener_;
    std::size_t outstanding_;
    std::vector<bool> served_;
    std::optional<std::vector<std::string>> fields_; ///< of the packet at hand, once asked for
    packet_id replacement_id_;
    std::vector<std::uint32_t> replacement_;
};

} // namespace scanlib::detail
