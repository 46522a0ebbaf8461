#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace scanlib {

/// Every way in which data of a stream is lost or doubted. Beside whatever result is asked for,
/// each case is counted under its name, with the stream offset of its first occurrence. The
/// sentences stand in loss_log.cpp.
enum class loss : std::uint8_t {
    unknown_packet,
    short_payload,
    short_sequence,
    partial_word,
    last_packet,
    unread_file,
    undeliverable_packet,
    shot_held_back,
    shot_without_time,
    target_held_back,
    echo_without_shot,
    echo_in_notch,
    echo_without_position,
    echo_without_zone,
    checksum_mismatch,
    block_without_shot,
    block_beyond_limit,
    samples_without_block,
    masked_record,
    packed_shot_without_key,
    packed_leftover,
    packed_queue_full,
    short_subpackage,
    skipped_fragment,
    skipped_row,
    count_ ///< number of kinds of loss, none itself
};

/// Name and one sentence for the user about one kind of loss.
struct loss_info {
    const char* name;
    const char* sentence;
};

/// Name and sentence of `kind`. The texts are static.
const loss_info& info_of(loss kind) noexcept;

/// Counters of all kinds of loss of one pass over a stream. Not synchronised: it belongs to the
/// thread that reads the stream. Whoever owns the log outlives the objects that were given its
/// address.
class loss_log {
  public:
    static constexpr std::size_t kinds = static_cast<std::size_t>(loss::count_);
    static constexpr std::uint64_t no_offset = ~std::uint64_t{0};

    /// Tells the offset in bytes, from the start of the stream, of the packet that is worked on
    /// from now on.
    void at(std::uint64_t offset) noexcept { offset_ = offset; }

    /// The offset told last.
    std::uint64_t offset() const noexcept { return offset_; }

    /// Adds `n` cases of `kind` at the present offset.
    void note(loss kind, std::uint64_t n = 1) noexcept {
        entry& e = entries_[static_cast<std::size_t>(kind)];
        if (e.count == 0) {
            e.first_offset = offset_;
        }
        e.count += n;
    }

    /// Adds the cases of another log of the same stream.
    void add(const loss_log& other) noexcept {
        for (std::size_t i = 0; i < kinds; ++i) {
            entries_[i].count += other.entries_[i].count;
            entries_[i].first_offset =
                std::min(entries_[i].first_offset, other.entries_[i].first_offset);
        }
    }

    /// Number of cases of `kind` so far.
    std::uint64_t count(loss kind) const noexcept {
        return entries_[static_cast<std::size_t>(kind)].count;
    }

    /// Stream offset of the first case of `kind`; no_offset while there is none.
    std::uint64_t first_offset(loss kind) const noexcept {
        return entries_[static_cast<std::size_t>(kind)].first_offset;
    }

  private:
    struct entry {
        std::uint64_t count = 0;
        std::uint64_t first_offset = no_offset;
    };
    std::array<entry, kinds> entries_{};
    std::uint64_t offset_ = 0;
};

} // namespace scanlib
