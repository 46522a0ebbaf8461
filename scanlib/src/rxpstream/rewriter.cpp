#include "scanlib/rewriter.hpp"

#include <array>
#include <cstdint>

#include "override_pass.hpp"
#include "scanlib/packet_head.hpp"
#include "scanlib/packets.hpp"
#include "scanlib/rxp_istream.hpp"
#include "scanlib/rxp_ostream.hpp"

namespace scanlib {

namespace {

constexpr std::uint16_t raw_piece = 8192; ///< bytes
constexpr std::uint32_t header_context = header_id.id << 16 | header_id.version;

using detail::override_pass;

/// The two ends of a rewriting, and what the text demands between them.
class rewriting {
  public:
    rewriting(const override_text& text, override_listener* listener)
        : pass_(text, listener), listener_(listener) {}

    /// Returns the bytes behind the region that were passed on.
    std::uint64_t run(const std::shared_ptr<basic_rconnection>& reader,
                      const std::shared_ptr<basic_wconnection>& writer) {
        in_.attach(reader);
        out_.attach(writer);
        if (listener_ != nullptr) {
            listener_->region_begins();
        }
        copy_region();
        out_.close();
        if (listener_ != nullptr) {
            listener_->region_ends(pass_.outstanding());
        }
        return copy_rest(*writer);
    }

  private:
    void copy_region() {
        const packet_mask& measurement = mask_of("startcond");
        while (in_.next()) {
            const packet_index kind = index_of(in_.id());
            if (measurement.test(kind)) {
                end_region();
                put(in_.packet());
            } else if (kind == packet_index::context_end) {
                pass_context_end();
            } else {
                pass_packet();
            }
        }
    }

    /// From here on the stream stays as it is: what the decoder holds is taken raw.
    void end_region() {
        in_.attach(nullptr);
        in_.close();
        if (pass_.outstanding() == 0) {
            pass_.append([this](const packet_words& p) { put(p); });
        }
    }

    void pass_context_end() {
        const packet_words packet = in_.packet();
        const std::array<std::uint32_t, 1> context{packet.body.empty() ? 0 : packet.body.front()};
        if (context.front() == header_context) {
            end_region();
        }
        put({packet.id, context});
    }

    void pass_packet() {
        if (pass_.outstanding() != 0) {
            pass_.verify(in_.packet());
            put(in_.packet());
            return;
        }
        switch (pass_.apply(in_.packet())) {
        case override_pass::fate::keep:
            put(in_.packet());
            break;
        case override_pass::fate::replace:
            put(pass_.replacement());
            break;
        case override_pass::fate::drop:
            break;
        }
    }

    void put(const packet_words& packet) { out_.write(packet.id, packet.body); }

    std::uint64_t copy_rest(basic_wconnection& writer) {
        std::array<char, raw_piece> piece;
        std::uint64_t copied = 0;
        while (const std::uint32_t n = in_.raw_read(piece.data(), raw_piece)) {
            std::int64_t taken = 0;
            while (taken < n) {
                taken += writer.write(piece.data() + taken, n - taken);
            }
            copied += n;
        }
        return copied;
    }

    override_pass pass_;
    override_listener* listener_;
    rxp_istream in_;
    rxp_ostream out_;
};

} // namespace

std::uint64_t rewrite(const std::shared_ptr<basic_rconnection>& reader,
                      const std::shared_ptr<basic_wconnection>& writer, const std::string& pxp) {
    return rewrite(reader, writer, parse_override_text(pxp), nullptr);
}

std::uint64_t rewrite(const std::shared_ptr<basic_rconnection>& reader,
                      const std::shared_ptr<basic_wconnection>& writer, const override_text& text,
                      override_listener* listener) {
    return rewriting(text, listener).run(reader, writer);
}

} // namespace scanlib
