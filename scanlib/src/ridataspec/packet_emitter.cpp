#include "scanlib/packet_emitter.hpp"

#include <algorithm>

#include "scanlib/packets.hpp"

namespace scanlib {

packet_emitter::packet_emitter(std::shared_ptr<encoder_rxpmarker> encoder)
    : encoder_(std::move(encoder)) {
    encoder_->put(area_);
}

std::uint32_t* packet_emitter::begin_packet(packet_id id, std::size_t payload_words) {
    std::uint32_t head[longest_head];
    const std::size_t head_words = write_head(head, id, codes_);
    area_.resize(head_words + payload_words);
    std::copy_n(head, head_words, area_.begin());
    return area_.begin() + head_words;
}

void packet_emitter::end_packet(packet_id id, const std::uint32_t* payload) {
    if (id == header_id && area_.end() - payload >= packets::header::fixed_bits / 32) {
        packets::header p(payload, area_.end());
        codes_.learn(p);
    }
    encoder_->put(area_);
    ++packets_;
}

void packet_emitter::put(packet_id id, std::span<const std::uint32_t> payload) {
    std::uint32_t* words = begin_packet(id, payload.size());
    std::copy(payload.begin(), payload.end(), words);
    end_packet(id, words);
}

void packet_emitter::flush() {
    encoder_->flush();
}

} // namespace scanlib
