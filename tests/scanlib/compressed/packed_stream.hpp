#pragma once

#include "scanlib/compressed_packets.hpp"
#include "scanlib/packed_writer.hpp"
#include "scanlib/rxpmarker.hpp"
#include "support/memory_connections.hpp"

#include <cstdint>
#include <memory>
#include <ostream>
#include <vector>

namespace scanlib::testing {

using words = std::vector<std::uint32_t>;

/// A shot and all that came with it.
struct shot_record {
    packed_shot shot;
    std::vector<packed_echo> echoes;
    std::vector<words> heads;  ///< payloads of sbl_dg_channel_header_1
    std::vector<words> blocks; ///< payloads of sbl_dg_channel_data_compressed

    friend bool operator==(const shot_record& a, const shot_record& b) {
        return a.shot.time == b.shot.time && a.shot.line == b.shot.line &&
               a.shot.frame == b.shot.frame && a.shot.radiation == b.shot.radiation &&
               a.echoes == b.echoes && a.heads == b.heads && a.blocks == b.blocks;
    }
    friend std::ostream& operator<<(std::ostream& out, const shot_record& r) {
        out << "shot " << r.shot.time << ' ' << r.shot.line << ' ' << r.shot.frame << ' '
            << r.shot.radiation;
        for (const packed_echo& e : r.echoes) {
            out << ", echo " << e.range << ' ' << e.amplitude << ' ' << e.reflectance << ' '
                << e.flags << ' ' << e.deviation;
        }
        return out << ", " << r.heads.size() << " heads, " << r.blocks.size() << " blocks\n";
    }
};

/// Collects what an expansion delivers.
class record_reader : public compressed_packets {
  public:
    record_reader() : compressed_packets(false) { set_loss_log(&losses); }

    std::vector<shot_record> records;
    loss_log losses;

    void on_laser_shot_2angles(packets::laser_shot_2angles& p) override {
        records.emplace_back().shot.frame = p.frame_counter();
    }
    void on_laser_shot_1angle(packets::laser_shot_1angle& p) override {
        records.back().shot.line = p.line_counter();
    }
    void on_laser_shot(packets::laser_shot& p) override {
        records.back().shot.time = p.time_counter();
    }
    void on_laser_shot_2angles_rad(packets::laser_shot_2angles_rad& p) override {
        records.emplace_back().shot = {p.time_counter(), p.line_counter(), p.frame_counter(),
                                       p.background_radiation()};
    }
    void on_laser_shot_2angles_hr(packets::laser_shot_2angles_hr& p) override {
        records.emplace_back().shot = {p.time_counter_hr(), p.line_counter(), p.frame_counter(), 0};
    }
    void on_echo(packets::echo& p) override {
        records.back().echoes.push_back({static_cast<std::uint32_t>(p.range_counter()),
                                         p.amplitude(), static_cast<std::uint16_t>(p.reflectance()),
                                         p.flags(), static_cast<std::uint16_t>(p.deviation())});
    }
    void on_sbl_dg_channel_header_1(packets::sbl_dg_channel_header_1& p,
                                    const std::uint32_t* end) override {
        records.back().heads.emplace_back(p.words(), end);
    }
    void on_sbl_dg_channel_data_compressed(packets::sbl_dg_channel_data_compressed& p,
                                           const std::uint32_t* end) override {
        records.back().blocks.emplace_back(p.words(), end);
    }
};

/// The packets that `write` puts to an emitter, through framing and back; each with its head.
template<class Write>
std::vector<words> packets_of(Write&& write) {
    auto out = std::make_shared<test_support::memory_wconnection>();
    {
        packet_emitter emitter(
            std::make_shared<encoder_rxpmarker>(out, encoder_capacity, encoder_headroom, true));
        write(emitter);
    }
    decoder_rxpmarker decoder(std::make_shared<test_support::memory_rconnection>(out->bytes()),
                              decoder_capacity, decoder_headroom, true);
    std::vector<words> all;
    basic_buffer packet;
    for (decoder.get(packet); !packet.empty(); decoder.get(packet)) {
        all.emplace_back(packet.begin(), packet.end());
    }
    return all;
}

/// Shots and their echoes, in one form.
inline std::vector<words> packed(const std::vector<shot_record>& records, packed_form form,
                                 const packing_options& options = {}) {
    return packets_of([&](packet_emitter& emitter) {
        packed_writer writer(emitter, form, options);
        for (const shot_record& r : records) {
            writer.shot(r.shot);
            for (const packed_echo& e : r.echoes) {
                writer.echo(e);
            }
        }
        writer.flush();
    });
}

inline void feed(basic_packets& consumer, const std::vector<words>& packets) {
    for (const words& w : packets) {
        consumer.dispatch(w.data(), w.data() + w.size());
    }
}

/// The second word of a long head.
constexpr std::uint32_t head_of(std::uint32_t id) {
    return id << 16;
}

/// Number of packets of a kind, under long heads.
inline std::size_t count_of(const std::vector<words>& packets, std::uint32_t id) {
    std::size_t n = 0;
    for (const words& w : packets) {
        n += w.at(1) == head_of(id) ? 1u : 0u;
    }
    return n;
}

} // namespace scanlib::testing
