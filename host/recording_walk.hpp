#pragma once

#include "frontend/recording_files.hpp"
#include "scanlib/loss_log.hpp"

#include <cstdint>
#include <functional>
#include <string>

namespace host {

/// How the reading of a recording ended.
struct recording_walk {
    bool opened = false;
    std::string error; ///< empty at the stream's own end
    std::uint64_t offset = 0;
    std::uint64_t bytes = 0;
    scanlib::loss_log losses;
    Riegl::RecordingFiles files;
};

/// Takes the words of a packet. Returns whether to go on; may throw, which ends the reading.
using packet_taker = std::function<bool(const std::uint32_t* begin, const std::uint32_t* end)>;

/// Hands each packet of a recording to `take`, and the last one, where the end of the file may have
/// cut it, to `take_cut`. `walk.losses` has the offset of the packet at hand. A damaged stream and
/// what `take` throws end as `walk.error`. Throws where the recording cannot be opened.
void walk_recording(const std::string& input, recording_walk& walk, const packet_taker& take,
                    const packet_taker& take_cut);

/// Tells on standard error what was lost, and which files were not read.
void tell_losses(const std::string& input, const recording_walk& walk);

/// The damage that ended the reading, and where; empty at the stream's own end.
std::string damage_of(const std::string& input, const recording_walk& walk);

/// Whether the recording is damaged or not whole.
bool is_damaged(const recording_walk& walk);

/// Tells all of it on standard error. Returns whether the recording is damaged or not whole.
bool tell_damage(const std::string& input, const recording_walk& walk);

} // namespace host
