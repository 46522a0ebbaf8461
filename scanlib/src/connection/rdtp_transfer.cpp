#include "rdtp_transfer.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <boost/system/system_error.hpp>

#include "authority.hpp"
#include "scanlib/stream_words.hpp"
#include "uri.hpp"

namespace scanlib {

namespace {

constexpr const char* format_key = "format";
constexpr const char* encoding_key = "encoding";
constexpr const char* token_key = "continuation-token";
constexpr const char* offset_key = "continuation-offset";
constexpr const char* acknowledge_key = "acknowledge-token";
constexpr const char* error_key = "error-text";
constexpr const char* chunked_encoding = "chunked";
constexpr const char* error_token = "ERROR";
constexpr const char* read_failure = "rdtp_connection read";
constexpr const char* retry_failure = "rdtp_connection retry_open";

constexpr unsigned word_bytes = 4;
constexpr unsigned longest_wait = 6; ///< seconds
constexpr unsigned last_attempt = 51;
constexpr std::size_t told_digits = 40; ///< of a number that is too long

bool is_decimal(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// The number at the start of a text; the greatest one for those beyond it, 0 without one.
std::uint64_t leading_number(std::string_view text) {
    std::uint64_t value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc::result_out_of_range ? std::numeric_limits<std::uint64_t>::max()
                                                   : value;
}

std::uint64_t chunk_length(const std::string& token) {
    std::uint64_t value = 0;
    if (std::from_chars(token.data(), token.data() + token.size(), value).ec != std::errc()) {
        throw std::runtime_error("rdtp_connection: chunk length is no 64-bit number: " +
                                 token.substr(0, told_digits));
    }
    return value;
}

[[noreturn]] void throw_unexpected(const std::string& status) {
    throw std::runtime_error("Unexpected server status: " + status);
}

std::uint32_t word_at(const char* p) {
    std::uint32_t word = 0;
    std::memcpy(&word, p, sizeof word);
    return word;
}

} // namespace

rdtp_transfer::rdtp_transfer(const std::string& uri, const std::string& continuation,
                             std::unique_ptr<rdtp_link> link)
    : link_(std::move(link)) {
    const uri_parts parts = parse_uri(uri);
    split_authority(parts.authority, lone_part::host, host_, port_);
    request_text_ = parts.path.substr(parts.path.starts_with('/') ? 1 : 0) + ' ' + parts.query;
    if (const std::size_t colon = continuation.find(':'); colon != std::string::npos) {
        token_ = continuation.substr(0, colon);
        offset_ = leading_number(std::string_view(continuation).substr(colon + 1));
    }
}

std::string rdtp_transfer::continuation() const {
    return token_ + ':' + std::to_string(offset_);
}

void rdtp_transfer::open() {
    link_->connect(host_, port_);
    rdtp_line asked = parse_rdtp_line(request_text_);
    // What the URI asks for goes before what is asked for by default.
    asked.parameters.try_emplace(format_key, "rxp");
    asked.parameters.try_emplace(encoding_key, chunked_encoding);
    request_ = std::move(asked);
    send_request();
    read_reply();
}

void rdtp_transfer::send_request() {
    rdtp_line line = request_;
    if (!token_.empty()) {
        line.parameters[token_key] = token_;
        line.parameters[offset_key] = std::to_string(offset_);
    }
    link_->send(write_rdtp_line(line));
}

rdtp_transfer::text_line rdtp_transfer::read_line() {
    text_line line{{}, false};
    std::array<char, 256> part;
    while (!line.ended) {
        const std::uint64_t k = link_->read_line_part(part.data(), part.size());
        if (k == 0) {
            break;
        }
        line.text.append(part.data(), k);
        line.ended = line.text.back() == '\n';
        if (line.text.size() > longest_rdtp_line) {
            throw std::runtime_error("rdtp_connection: a line is longer than " +
                                     std::to_string(longest_rdtp_line) + " bytes");
        }
    }
    return line;
}

void rdtp_transfer::read_reply() {
    if (state_ == state::in_data) {
        return;
    }
    const rdtp_line reply = parse_rdtp_line(read_line().text);
    if (reply.token == error_token) {
        throw std::runtime_error(reply.value(error_key));
    }
    if (reply.token != "FILE" && reply.token != "CURRENT" && reply.token != "ACTUAL") {
        throw_unexpected(reply.token);
    }
    state_ = state::in_data;
    chunk_left_ = 0;
    const std::string encoding = reply.value(encoding_key);
    chunked_ = encoding == chunked_encoding;
    if (!chunked_ && encoding != "plain") {
        throw std::runtime_error("Unknown encoding!");
    }
    if (!token_.empty() &&
        (reply.value(token_key) != token_ || reply.value(offset_key) != std::to_string(offset_))) {
        throw std::runtime_error("Required continuation missing!");
    }
    id_ = reply.value("id");
}

void rdtp_transfer::read_chunk_line() {
    const text_line received = read_line();
    if (received.text.empty()) {
        // The peer has closed the connection between two chunks.
        state_ = state::at_end;
        return;
    }
    const rdtp_line line = parse_rdtp_line(received.text);
    if (is_decimal(line.token)) {
        take_chunk(chunk_length(line.token), line);
    } else if (line.token == "EOF") {
        end_announced_ = true;
        state_ = state::at_end;
    } else if (line.token == error_token) {
        throw std::runtime_error(line.value(error_key));
    } else {
        throw_unexpected(line.token);
    }
}

void rdtp_transfer::take_chunk(std::uint64_t length, const rdtp_line& line) {
    // This line shows that the data of the chunk before have been taken.
    if (!owed_acknowledge_.empty()) {
        const std::string owed = std::exchange(owed_acknowledge_, {});
        link_->send(write_rdtp_line({"ACKNOWLEDGE", {{acknowledge_key, owed}}}));
    }
    chunk_left_ = length;
    owed_acknowledge_ = line.value(acknowledge_key);
    if (const auto token = line.parameters.find(token_key); token != line.parameters.end()) {
        token_ = token->second;
        offset_ = 0;
    }
}

std::uint64_t rdtp_transfer::read_once(char* dst, std::uint64_t n) {
    if (state_ == state::reply_due) {
        read_reply();
    }
    while (state_ == state::in_data && chunked_ && chunk_left_ == 0) {
        read_chunk_line();
    }
    if (state_ == state::at_end) {
        return 0;
    }
    std::uint64_t k = link_->read_some(dst, chunked_ ? std::min(n, chunk_left_) : n);
    if (chunked_) {
        chunk_left_ -= k;
    }
    offset_ += k;
    if (link_->stop_requested() && phase_ + k >= word_bytes) {
        k = cut_at_packet(dst, k);
    }
    phase_ = static_cast<unsigned>((phase_ + k) % word_bytes);
    return k;
}

/// Ends the stream one word before the first packet that starts in the block, if there is one.
std::uint64_t rdtp_transfer::cut_at_packet(const char* data, std::uint64_t n) {
    for (std::uint64_t at = (word_bytes - phase_) % word_bytes; at + word_bytes < n;
         at += word_bytes) {
        if (is_start_word(word_at(data + at))) {
            state_ = state::at_end;
            return at < word_bytes ? 0 : at - word_bytes;
        }
    }
    return n;
}

bool rdtp_transfer::can_resume_after(const std::error_code& code) const noexcept {
    return !token_.empty() && code.category() == std::system_category();
}

std::uint64_t rdtp_transfer::read(char* dst, std::uint64_t n) {
    while (true) {
        if (state_ == state::at_end) {
            return 0;
        }
        try {
            return read_once(dst, n);
        } catch (const std::system_error& e) {
            if (!can_resume_after(e.code())) {
                throw std::system_error(e.code(), read_failure);
            }
        } catch (const boost::system::system_error& e) {
            throw boost::system::system_error(e.code(), read_failure);
        }
        resume();
    }
}

void rdtp_transfer::resume() {
    unsigned wait = 1;
    for (unsigned attempt = 0;; ++attempt) {
        try {
            link_->close();
            link_->wait(std::chrono::seconds(wait));
            link_->connect(host_, port_);
            state_ = state::reply_due;
            send_request();
            return;
        } catch (const std::system_error& e) {
            if (attempt == last_attempt || !can_resume_after(e.code())) {
                throw std::system_error(e.code(), retry_failure);
            }
        } catch (const boost::system::system_error& e) {
            throw boost::system::system_error(e.code(), retry_failure);
        }
        wait = std::min(wait + 1, longest_wait);
    }
}

} // namespace scanlib
