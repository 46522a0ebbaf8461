#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <system_error>

#include "rdtp_link.hpp"
#include "scanlib/rdtp_line.hpp"

namespace scanlib {

/// The dialogue of one live transfer, whatever the link.
///
///                 good reply            "EOF" line, or the cut of a stop
///     reply_due -------------> in_data ---------------------------------> at_end
///         ^                       |
///         +---- link made anew ---+
class rdtp_transfer {
  public:
    /// Throws std::runtime_error ("Invalid address/service syntax.").
    rdtp_transfer(const std::string& uri, const std::string& continuation,
                  std::unique_ptr<rdtp_link> link);

    void open();
    /// Stream bytes, straight into `dst`; 0 at the end.
    std::uint64_t read(char* dst, std::uint64_t n);

    std::string continuation() const;
    /// Name of the stream that the reply gave.
    const std::string& id() const noexcept { return id_; }
    /// Whether the server has sent the line that ends the stream.
    bool end_announced() const noexcept { return end_announced_; }
    rdtp_link& link() noexcept { return *link_; }

  private:
    enum class state { reply_due, in_data, at_end };
    struct text_line {
        std::string text;
        bool ended; ///< by a line feed, not by the end of the connection
    };

    void send_request();
    text_line read_line();
    void read_reply();
    void read_chunk_line();
    void take_chunk(std::uint64_t length, const rdtp_line& line);
    std::uint64_t read_once(char* dst, std::uint64_t n);
    std::uint64_t cut_at_packet(const char* data, std::uint64_t n);
    void resume();
    bool can_resume_after(const std::error_code& code) const noexcept;

    std::unique_ptr<rdtp_link> link_;
    state state_ = state::reply_due;
    unsigned phase_ = 0; ///< bytes delivered, modulo the size of a word
    std::string host_ = "127.0.0.1";
    std::string port_ = "20001";
    std::string request_text_;
    rdtp_line request_;
    bool chunked_ = false;
    std::uint64_t chunk_left_ = 0;
    std::string token_;
    std::uint64_t offset_ = 0; ///< bytes received since the token was issued
    std::string owed_acknowledge_;
    bool end_announced_ = false;
    std::string id_;
};

} // namespace scanlib
