#pragma once

#include "scanlib/packed_writer.hpp"
#include "scanlib/packet_emitter.hpp"
#include "simulator/settings.hpp"

#include <memory>

namespace simulator {

/// Writes shots, each with its echoes behind it, in one of the forms. The time of a shot is a
/// reading of the counter that the form tells.
class shot_writer {
  public:
    /// `out` outlives the writer.
    shot_writer(packet_form form, scanlib::packet_emitter& out);

    void shot(const scanlib::packed_shot& s);
    void echo(const scanlib::packed_echo& e);

    /// Sample blocks of the newest shot, in `shot_echo_blocks` only.
    void block_head(const scanlib::packed_block_head& head) { packed_->block_head(head); }
    void block(const scanlib::packed_block& b) { packed_->block(b); }

    /// Writes what is held back; due before a packet of another kind.
    void flush();

  private:
    packet_form form_;
    scanlib::packet_emitter& out_;
    std::unique_ptr<scanlib::packed_writer> packed_; ///< none for the forms that are not packed
};

} // namespace simulator
