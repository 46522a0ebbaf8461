#pragma once

#include <cstdint>
#include <string>

#include "scanlib/loss_log.hpp"
#include "scanlib/packet_catalogue.hpp"
#include "scanlib/packet_head.hpp"
#include "scanlib/packets.hpp"
#include "scanlib/scanlib_exception.hpp"

namespace scanlib {

/// A defect of one packet. The text names the packet's kind.
class packet_error : public scanlib_exception {
  public:
    packet_error(packet_id id, const std::string& message, const std::string& source, int line);
};

/// Whether a listener wants the further calls for the versions of a packet that the catalogue does
/// not know.
enum class unknown_walk : std::uint8_t {
    enough, ///< nobody here listens to unknown versions
    more,   ///< call again for the next lower unknown version
};

/// Turns one packet into calls of typed handlers.
///
/// A packet of version v is offered to the handler of v, then, with the same payload, to that of v
/// - 1 and so on down to 0, since a newer version extends the older one at its end:
///
///     10.2 packet   | head | time_counter | line_counter | frame_counter |
///     calls           on_laser_shot_2angles   reads frame_counter, which its version added
///                     on_laser_shot_1angle    reads line_counter
///                     on_laser_shot           reads time_counter; sees a complete shot
///
/// A handler that treats its packet as finished clears `continue_chain`. Handlers of kinds that
/// `selection` leaves out are not called, but the chain goes on below them. The views that handlers
/// get are valid during the call only.
///
/// A payload that is shorter than a kind without sequence reads as if followed by zero bits. One
/// that is shorter than the fixed part before a sequence ends the dispatch with std::range_error.
/// Belongs to one thread.
class basic_packets {
  public:
    basic_packets();
    basic_packets(const basic_packets&) = default;
    basic_packets& operator=(const basic_packets&) = default;
    virtual ~basic_packets();

    /// Dispatches the packet whose words are begin to end, its start word first. Returns
    /// `stop_request`. Throws std::range_error ("Missing data for sequence.", "Buffer too small for
    /// utf8seq."); with `check_sizes` packet_error ("missing packet data", "sequence too long " and
    /// the count); and what the handlers throw.
    virtual bool dispatch(const std::uint32_t* begin, const std::uint32_t* end);

    /// Called before each handler, with the pair of the attempt. The result matters for unknown
    /// versions only: these are walked down one by one, up to 65535 of them, as long as this or
    /// on_unknown asks for more.
    virtual unknown_walk on_packet(packet_id current, const packet_head& head);

#include "scanlib/handler_slots.hpp"

    /// Called for each unknown version of a packet, with the pair as read from the head and the
    /// payload's limits.
    virtual unknown_walk on_unknown(std::uint32_t id, std::uint32_t version,
                                    const std::uint32_t* begin, const std::uint32_t* end);

    packet_mask selection;          ///< kinds that are delivered; all at first
    std::uint32_t packet_count = 0; ///< packets dispatched so far
    bool check_sizes =
        false; ///< refuse packets that are shorter than their kind, or too long sequences

    /// Where losses are counted; null, as at first, for nowhere. The log outlives this object or is
    /// taken back.
    void set_loss_log(loss_log* log) noexcept {
        losses_ = log;
    }

    /// The codes learned from the stream's `header` packets.
    const short_code_table& short_codes() const noexcept {
        return short_codes_;
    }

  protected:
    void note_loss(loss kind, std::uint64_t n = 1) noexcept {
        if (losses_ != nullptr) {
            losses_->note(kind, n);
        }
    }

    packet_id current;           ///< pair of the attempt in progress
    bool continue_chain = false; ///< cleared by a handler that treats its packet as finished
    bool stop_request = false;   ///< result of the dispatch

  private:
    void deliver(packet_index n, const std::uint32_t* payload, const std::uint32_t* end);
    void deliver_short(packet_index n, const std::uint32_t* payload, const std::uint32_t* end);
    void check_sequence(std::uint32_t fixed_bits, bool is_text, const std::uint32_t* payload,
                        const std::uint32_t* end);
    void check_sequence_size(std::uint32_t fixed_bits, std::uint32_t element_bits,
                             std::uint32_t limit, std::size_t count, const std::uint32_t* payload,
                             const std::uint32_t* end) const;
    bool unknown_attempt(const packet_head& head);
    bool unknown_attempts(const packet_head& head, std::uint32_t version, std::uint32_t lowest,
                          bool& walk);
    void known_attempt(packet_index n, const packet_head& head, std::uint32_t version);

    short_code_table short_codes_;
    loss_log* losses_ = nullptr;
};

} // namespace scanlib
