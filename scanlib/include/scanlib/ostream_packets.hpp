#pragma once

#include <iosfwd>

#include "scanlib/handler_visitor.hpp"

namespace scanlib {

/// Prints each packet that it dispatches as a line of text (packet_text.hpp).
///
/// A packet prints once, as its newest version that the catalogue has and `selection` lets through.
/// Ahead of that line each newer version, which the catalogue does not have, prints its pair and
/// the words of the payload, up to `unknown_lines` of them.
class ostream_packets : public handler_visitor<ostream_packets> {
  public:
    /// Does not own `out`, which outlives this object. With null, packets are dropped.
    explicit ostream_packets(std::ostream* out) noexcept;
    ~ostream_packets() override;

    /// Most lines that the unknown versions of one packet make: as many as there are short codes,
    /// of which an unknown one counts as a version. A packet can claim 65535 versions.
    static constexpr unsigned unknown_lines = 256;

    /// Ends the line of a packet that cannot be read behind its pair, and throws as basic_packets
    /// does.
    bool dispatch(const std::uint32_t* begin, const std::uint32_t* end) override;

    unknown_walk on_packet(packet_id current, const packet_head& head) override;
    unknown_walk on_unknown(std::uint32_t id, std::uint32_t version, const std::uint32_t* begin,
                            const std::uint32_t* end) override;

    /// All other handlers end here.
    template<class View>
    void visit(View& p);

  private:
    void print(packet_id id, const std::uint32_t* begin, const std::uint32_t* end);

    std::ostream* out_;
    bool in_line_ = false; ///< the pair is printed, the rest of its line is not
    unsigned unknown_ = 0; ///< lines of unknown versions of the packet at hand
};

// Its handlers are made once, in ostream_packets.cpp.
extern template class handler_visitor<ostream_packets>;

} // namespace scanlib
