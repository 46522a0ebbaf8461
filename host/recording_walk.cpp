#include "recording_walk.hpp"

#include "scanlib/connection.hpp"
#include "scanlib/rxpmarker.hpp"

#include <cstdio>
#include <exception>
#include <memory>

namespace host {

void walk_recording(const std::string& input, recording_walk& walk, const packet_taker& take,
                    const packet_taker& take_cut) {
    const std::shared_ptr<scanlib::basic_rconnection> connection(
        scanlib::basic_rconnection::create(input, "", ""));
    connection->open();
    walk.opened = true;
    scanlib::decoder_rxpmarker decoder(connection, scanlib::decoder_capacity,
                                       scanlib::decoder_headroom, true);
    decoder.set_loss_log(&walk.losses);
    scanlib::basic_buffer packet;
    try {
        bool more = true;
        do {
            walk.offset = decoder.tell();
            walk.losses.at(walk.offset);
            decoder.get(packet);
            if (decoder.packet_truncated() || packet.empty()) {
                break;
            }
            more = take(packet.begin(), packet.end());
        } while (more);
        if (more && !packet.empty()) {
            take_cut(packet.begin(), packet.end());
        }
    } catch (const std::exception& e) {
        walk.error = e.what();
    }
    walk.bytes = connection->position();
}

bool tell_damage(const std::string& input, const recording_walk& walk) {
    for (std::size_t i = 0; i < scanlib::loss_log::kinds; ++i) {
        const auto kind = static_cast<scanlib::loss>(i);
        if (walk.losses.count(kind) != 0) {
            std::fprintf(stderr, "rxp2k7: at byte %llu: %s\n",
                         static_cast<unsigned long long>(walk.losses.first_offset(kind)),
                         scanlib::info_of(kind).sentence);
        }
    }
    if (walk.error.empty()) {
        return false;
    }
    std::fprintf(stderr, "rxp2k7: \"%s\" is damaged at byte %llu: %s\n", input.c_str(),
                 static_cast<unsigned long long>(walk.offset), walk.error.c_str());
    return true;
}

} // namespace host
