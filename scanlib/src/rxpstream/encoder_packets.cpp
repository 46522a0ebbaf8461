#include "scanlib/encoder_packets.hpp"

#include <utility>

namespace scanlib {

template<class View>
void encoder_packets::visit(const View& packet) {
    encode({View::id, View::version}, {packet.words(), packet.end_of_words()});
}

encoder_packets::encoder_packets(std::shared_ptr<encoder_rxpmarker> encoder)
    : emitter_(encoder ? std::make_unique<packet_emitter>(std::move(encoder)) : nullptr) {}
encoder_packets::~encoder_packets() = default;

void encoder_packets::encode(packet_id id, std::span<const std::uint32_t> payload) {
    // The older versions of the kind would be the same packet once more.
    continue_chain = false;
    if (emitter_) {
        emitter_->put(id, payload);
    }
}

} // namespace scanlib
