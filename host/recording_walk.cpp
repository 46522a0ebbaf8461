#include "recording_walk.hpp"

#include "printable.hpp"
#include "recording_files.hpp"
#include "terminal.hpp"

#include "scanlib/connection.hpp"
#include "scanlib/counts_per_byte.hpp"
#include "scanlib/file_connection.hpp"
#include "scanlib/rxpmarker.hpp"

#include <exception>
#include <memory>

namespace host {

namespace {

void keep_files(scanlib::basic_rconnection& connection, recording_walk& walk) {
    scanlib::note_unread_files(connection, walk.losses);
    const scanlib::file_set_report* const report = scanlib::report_of(connection);
    if (report == nullptr) {
        return;
    }
    walk.files = {};
    for (const scanlib::file_part& part : report->files.prefixes) {
        walk.files.prefixes.emplace_back(part.name);
    }
    for (const scanlib::file_part& part : report->files.data) {
        walk.files.data.emplace_back(part.name);
    }
    walk.files.override_file = report->override_file;
    walk.files.unread.assign(report->unread.begin(), report->unread.end());
}

} // namespace

void walk_recording(const std::string& input, recording_walk& walk, const packet_taker& take,
                    const packet_taker& take_cut) {
    const std::shared_ptr<scanlib::basic_rconnection> connection(
        scanlib::basic_rconnection::create(input, "", ""));
    connection->open();
    walk.opened = true;
    keep_files(*connection, walk);
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
    walk.bytes = connection->position() / scanlib::counts_per_byte(*connection);
    keep_files(*connection, walk);
}

void tell_losses(const std::string& input, const recording_walk& walk) {
    for (std::size_t i = 0; i < scanlib::loss_log::kinds; ++i) {
        const auto kind = static_cast<scanlib::loss>(i);
        if (walk.losses.count(kind) != 0) {
            complain("%s: at byte %llu: %s", input.c_str(),
                     static_cast<unsigned long long>(walk.losses.first_offset(kind)),
                     scanlib::info_of(kind).sentence);
        }
    }
    tell_unread(input, walk.files);
}

std::string damage_of(const std::string& input, const recording_walk& walk) {
    return walk.error.empty() ? std::string()
                              : "\"" + input + "\" is damaged at byte " +
                                    std::to_string(walk.offset) + ": " + printable(walk.error);
}

bool is_damaged(const recording_walk& walk) {
    return !walk.error.empty() || !walk.files.unread.empty();
}

bool tell_damage(const std::string& input, const recording_walk& walk) {
    tell_losses(input, walk);
    if (!walk.error.empty()) {
        complain("%s", damage_of(input, walk).c_str());
    }
    return is_damaged(walk);
}

} // namespace host
