#include "scanlib/loss_log.hpp"

namespace scanlib {

namespace {

// In the order of the enumerators.
constexpr loss_info table[] = {
    {"unknown packets",
     "The packet catalogue does not know this kind of packet; its content was passed over."},
    {"short payloads", "A packet was shorter than its kind; the missing bits were read as 0."},
    {"short sequences",
     "A packet was shorter than the fixed part before its sequence; it ended the pass."},
    {"partial words",
     "The stream ended inside a 32-bit word; the bytes read with it were dropped."},
    {"last packet",
     "Nothing follows the last packet of a stream, so it may be cut; it was not used."},
    {"unread files",
     "A file of the recording could not be read, or follows one that could not; it was left out."},
    {"undeliverable packets", "A packet was refused by its handler and ended the pass."},
    {"held-back shots",
     "A shot came before the first valid time synchronisation; its echoes were not stored."},
    {"shots without time", "A shot had no synchronised time; it was not stored."},
    {"held-back targets",
     "A target came before the first valid time synchronisation; it was not stored."},
    {"echoes without shot", "An echo came while no shot was open; it was not used."},
    {"echoes in notch", "An echo lay within the notch window; it was not used."},
    {"echoes without position", "An echo had no valid range or position; it was not stored."},
    {"echoes without zone", "An echo lay in no zone between the range gates; it was not used."},
    {"checksum mismatches",
     "A checksum of the stream differs from that of its packets; some of them may be damaged."},
    {"blocks without shot", "No shot had the time of a block of waveforms; it was not used."},
    {"blocks beyond the limit",
     "More waveforms waited for their shot than are kept; the oldest were not used."},
    {"samples without block", "Samples came while no block of waveforms was open; not used."},
    {"records of masked channels", "The channel of a waveform is masked; it was not used."},
    {"packed shots without key",
     "A packet of packed shots came before the first key; it was not expanded."},
    {"unmatched packed records",
     "A packed shot or echo had no counterpart when the next key came; it was not used."},
    {"packed records beyond the queue",
     "More packed shots or echoes waited for their counterpart than are kept; it was not used."},
    {"short subpackages",
     "A subpackage reached beyond the end of its packet; the missing words were read as 0."},
    {"skipped fragments", "A fragment lay wholly inside the time range; it was not stored."},
    {"skipped rows", "Rows of fragments that lay wholly inside the time range were not stored."},
};

static_assert(sizeof table / sizeof *table == loss_log::kinds,
              "one sentence for each kind of loss");

} // namespace

const loss_info& info_of(loss kind) noexcept {
    return table[static_cast<std::size_t>(kind)];
}

} // namespace scanlib
