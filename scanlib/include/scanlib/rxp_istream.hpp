#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "scanlib/connection.hpp"
#include "scanlib/packet_catalogue.hpp"
#include "scanlib/packet_head.hpp"

namespace scanlib {

/// A packet without its head. The words belong to whoever hands it out.
struct packet_words {
    packet_id id;
    std::span<const std::uint32_t> body;
};

/// Reads a stream packet by packet, and knows the short codes that its `header` packets assign.
///
///     rxp_istream in("scan.rxp");
///     for (packet_id id; in >> id;) {
///         use(id, in.body());
///     }
///
/// A handle: copies share the stream. Belongs to one thread.
class rxp_istream {
  public:
    /// Without a stream: fails.
    rxp_istream();
    /// As open does.
    explicit rxp_istream(const std::string& uri);
    explicit rxp_istream(const char* uri);
    explicit rxp_istream(const std::filesystem::path& path);

    /// Reads from now on the stream of a URI, from its preamble on. A text without ":" is a path.
    /// Throws std::runtime_error when the stream cannot be opened.
    void open(const std::string& uri);

    /// Shares from now on `connection`, which stands at a start word: there is no preamble. Returns
    /// the one so far. Null leaves no connection and sets fail, but what the decoder holds can
    /// still be taken by raw_read.
    std::shared_ptr<basic_rconnection> attach(std::shared_ptr<basic_rconnection> connection);

    /// The next packet; its words stay until the following call. Sets fail at the stream's end,
    /// does nothing once it is set. Throws std::range_error ("Missing data for sequence.") for a
    /// `header` shorter than its fixed part, and what framing and connection throw.
    rxp_istream& next();

    /// The next packet's pair.
    rxp_istream& operator>>(packet_id& id);

    /// The next packet, which must be of the kind of `View`; empty at the stream's end. Throws
    /// std::runtime_error ("rxp_istream: id mismatch: ...") for another kind, std::range_error
    /// ("Missing data for sequence.") for one shorter than the kind's fixed part.
    template<class View>
    rxp_istream& operator>>(std::optional<View>& view) {
        view.reset();
        if (next()) {
            const std::uint32_t* body = expect({View::id, View::version}, View::fixed_bits);
            view.emplace(body, body + this->body().size());
        }
        return *this;
    }

    /// Sets fail, closes the connection and drops it.
    void close();

    /// Sets fail, and takes up to `bytes` / 4 words that the decoder has read but not decoded.
    /// Returns the bytes taken.
    std::uint32_t raw_read(char* dst, std::uint16_t bytes);

    /// Raw byte offset of the next packet.
    std::uint64_t tell() const;
    /// Goes on at the start word at a raw byte offset. Throws as decoder_rxpmarker::seek does.
    void seek(std::uint64_t position);

    bool is_open() const noexcept;
    bool fail() const noexcept;
    explicit operator bool() const noexcept { return !fail(); }

    /// Of the last packet.
    packet_id id() const noexcept;
    std::span<const std::uint32_t> body() const noexcept;
    packet_words packet() const noexcept { return {id(), body()}; }

    const short_code_table& short_codes() const noexcept;
    /// The pairs to which a `header` of the stream gave a code.
    const std::set<packet_id>& known_ids() const noexcept;

  private:
    const std::uint32_t* expect(packet_id wanted, std::uint32_t fixed_bits);

    struct state;
    std::shared_ptr<state> state_;
};

} // namespace scanlib
