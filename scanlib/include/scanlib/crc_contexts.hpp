#pragma once

#include "scanlib/packet_catalogue.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace scanlib {

/// Continues a CRC-32 over the words from `first` to `last`: polynomial 0x04C11DB7, not reflected,
/// each word most significant byte first, no final inversion. Begin with `crc_start`.
std::uint32_t crc32_of_words(std::uint32_t crc, const std::uint32_t* first,
                             const std::uint32_t* last) noexcept;

/// The value a CRC-32 begins with.
inline constexpr std::uint32_t crc_start = 0xFFFFFFFF;

/// The checksums that a stream tells about itself: each context runs over the packets of chosen
/// kinds, from one check packet to the next.
class crc_contexts {
  public:
    /// A run whose packets do not have the sum that its check packet tells.
    struct mismatch {
        std::uint32_t sequence;     ///< of the check that began the run
        std::uint32_t new_sequence; ///< of the check that ended it
    };

    /// Begins a context anew, with no kind chosen. There are `context` + 1 contexts then; those
    /// above are gone.
    void begin(std::uint8_t context);

    /// Adds a kind to a context. Unknown contexts are left alone.
    void select(std::uint8_t context, packet_index kind) noexcept;

    /// Runs a packet, its head included, through the contexts that hold its kind.
    void update(packet_index kind, const std::uint32_t* first, const std::uint32_t* last) noexcept {
        if (!contexts_.empty() && chosen_.test(kind)) [[unlikely]] {
            run(kind, first, last);
        }
    }

    /// Ends a run and begins the next. Returns what differs if `crc` is not that of the run; the
    /// first check of a context only begins a run. Unknown contexts are left alone.
    std::optional<mismatch> check(std::uint8_t context, std::uint32_t new_sequence,
                                  std::uint32_t crc) noexcept;

    /// Whether any context holds a kind.
    bool selects(packet_index kind) const noexcept { return chosen_.test(kind); }

    std::size_t size() const noexcept { return contexts_.size(); }
    void clear() noexcept;

  private:
    struct context_state {
        packet_mask kinds;
        std::uint32_t crc = crc_start;
        std::uint32_t sequence = 0;
        bool seen = false;
    };

    void run(packet_index kind, const std::uint32_t* first, const std::uint32_t* last) noexcept;
    void gather_chosen() noexcept;

    std::vector<context_state> contexts_;
    packet_mask chosen_; ///< kinds of any context
};

} // namespace scanlib
