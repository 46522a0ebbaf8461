#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>

#include "scanlib/connection.hpp"
#include "scanlib/packet_catalogue.hpp"
#include "scanlib/packet_head.hpp"

namespace scanlib {

/// Writes a stream packet by packet, each under the shortest head that the `header` packets written
/// so far allow.
///
/// A handle: copies share the stream, and the last one closes it. Belongs to one thread.
class rxp_ostream {
  public:
    /// Without a stream.
    rxp_ostream();
    /// As open does. Without `keep` the file is a temporary: the last handle removes it.
    explicit rxp_ostream(const std::filesystem::path& path, bool keep = true);
    rxp_ostream(const rxp_ostream&) = default;
    rxp_ostream& operator=(const rxp_ostream& other);
    /// Closes the stream if this is its last handle; what goes wrong then is dropped.
    ~rxp_ostream();

    /// Writes from now on to a new file, its preamble first. Throws std::runtime_error when it
    /// cannot be opened.
    void open(const std::filesystem::path& path);

    /// Shares from now on `connection`, to which packets go without a preamble. Returns the one so
    /// far, which has got all packets written to it. Null leaves no stream.
    std::shared_ptr<basic_wconnection> attach(std::shared_ptr<basic_wconnection> connection);

    /// The next packet written must be of this kind.
    void expect(packet_id id);

    /// Writes one packet. Throws std::runtime_error for one that is not the expected one
    /// ("rxp_ostream: id mismatch: ...") and where there is no stream ("rxp_ostream: not open"),
    /// std::range_error ("Missing data for sequence.") for a `header` shorter than its fixed part,
    /// std::length_error for a packet longer than framing allows, and what the connection throws.
    void write(packet_id id, std::span<const std::uint32_t> body);

    /// Writes what is left and closes the connection. Throws what the connection throws.
    void close();

    bool is_open() const noexcept;
    const short_code_table& short_codes() const noexcept;

  private:
    void release() noexcept;

    struct state;
    std::shared_ptr<state> state_;
    bool keep_ = true;
};

} // namespace scanlib
