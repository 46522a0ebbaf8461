#pragma once

#include "scanlib/packed_records.hpp"
#include "scanlib/packet_emitter.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace scanlib {

/// The packed forms that shots and echoes may be written in. What each can hold:
///
///     form              time     line     frame    radiation  echoes of a shot  echo
///     packed            32 bits  24 bits  32 bits  none       255               all of it
///     packed_rad        32 bits  24 bits  32 bits  16 bits    255               all of it
///     packed_hr         64 bits  24 bits  32 bits  none       255               all of it
///     shot_echo         49 bits  22 bits  22 bits  none       any number        26-bit range,
///     shot_echo_blocks  49 bits  22 bits  22 bits  none       any number        no flags
///
/// All values within are kept exactly. Sample blocks stand in `shot_echo_blocks` only.
enum class packed_form : std::uint8_t {
    packed,           ///< packed_key/frame_laser_shot_2angles, packed_key/frame_echo
    packed_rad,       ///< packed_key/frame_laser_shot_2angles_rad, packed_key/frame_echo
    packed_hr,        ///< packed_key/frame_laser_shot_2angles_hr, packed_key/frame_echo_hr or _hr_1
    shot_echo,        ///< packed_shot_echos_hr
    shot_echo_blocks, ///< packed_shot_echos_sbl_hr
};

/// A shot in counters of the instrument, units as of `laser_shot_2angles`.
struct packed_shot {
    std::uint64_t time = 0;
    std::uint32_t line = 0;
    std::uint32_t frame = 0;
    std::uint16_t radiation = 0;
};

/// One channel of a head of sample blocks: 4, 18 and 10 bits.
struct packed_block_entry {
    std::uint32_t channel = 0;
    std::uint32_t value = 0;
    std::uint32_t second_value = 0;
};

/// Head of the sample blocks of a shot; at most 7 entries.
struct packed_block_head {
    std::uint16_t value = 0;
    std::span<const packed_block_entry> entries;
};

/// A compressed sample block, fields and samples as of `sbl_dg_channel_data_compressed`; at most
/// 1023 words.
struct packed_block {
    std::int16_t time = 0;
    std::uint8_t channel = 0;        ///< 4 bits
    std::uint8_t last_word_bits = 0; ///< 5 bits
    std::uint8_t bit_width = 0;      ///< 7 bits
    std::span<const std::uint32_t> samples;
};

/// How packed packets are cut.
struct packing_options {
    /// In `packed_hr`: the reflectance of echoes relative to their amplitude (the `_hr_1` kinds).
    bool echo_offsets = false;
    /// In the key and frame forms: shots from one key to the next, at most. A key is where a reader
    /// can begin, and where damage ends. 0 counts as 1.
    std::size_t shots_per_key = 1024;
    /// In the key and frame forms: shots that are collected before their packets, and then those of
    /// their echoes, are written. 0 counts as 1.
    std::size_t shots_per_packet = 256;
};

/// Packs shots and echoes, the inverse of compressed_packets. It writes differences where they fit
/// and keys where they do not, and cuts packets at the sizes that their kinds allow.
///
///     writer.shot(s);      // then what belongs to it, in this order on the stream
///     writer.echo(e);
///     writer.shot(t);
///     writer.flush();      // ends the shot
///
/// An operation that throws std::range_error, for a value that the form cannot hold, or
/// std::logic_error, for an echo or a block without a shot, changes nothing; beside these, each
/// throws what the emitter throws. What was not flushed when the writer is destroyed is not
/// written. Not copyable; belongs to one thread.
class packed_writer {
  public:
    /// `out` outlives the writer. Packets of other kinds may be written to it between flushes.
    packed_writer(packet_emitter& out, packed_form form, const packing_options& options = {});
    packed_writer(const packed_writer&) = delete;
    packed_writer& operator=(const packed_writer&) = delete;
    ~packed_writer();

    void shot(const packed_shot& s);
    void echo(const packed_echo& e);
    void block_head(const packed_block_head& head);
    void block(const packed_block& b);

    /// Writes what is held back, so that packets written to the emitter now stand behind it.
    void flush();

    /// Interface of a form; what the operations above ask for, with a shot known to be open.
    class form_writer;

  private:
    void need_shot() const;

    std::unique_ptr<form_writer> form_;
    bool shot_open_ = false;
};

} // namespace scanlib
