#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "scanlib/handler_visitor.hpp"
#include "scanlib/packet_emitter.hpp"

namespace scanlib {

/// Encodes again what is dispatched to it: each packet once, as the newest version of its kind that
/// the catalogue has, with the words of its payload, under the shortest head that the headers
/// encoded so far allow. Kinds that the catalogue does not have are left out. Without an encoder
/// nothing happens. Belongs to one thread.
class encoder_packets : public handler_visitor<encoder_packets> {
  public:
    /// Shares `encoder`, which must have had no packet yet; null for none.
    explicit encoder_packets(std::shared_ptr<encoder_rxpmarker> encoder = nullptr);
    ~encoder_packets() override;

    /// What every handler does with its packet.
    template<class View>
    void visit(const View& packet);

  private:
    void encode(packet_id id, std::span<const std::uint32_t> payload);

    std::unique_ptr<packet_emitter> emitter_;
};

} // namespace scanlib
