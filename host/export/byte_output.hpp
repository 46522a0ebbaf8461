#pragma once

#include "scanlib/connection.hpp"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host {

/// Copies a number to memory with its lowest byte first, and returns the place behind it.
template<class Number>
char* put_little(char* to, Number value) {
    std::memcpy(to, &value, sizeof value);
    if constexpr (std::endian::native == std::endian::big) {
        for (std::size_t i = 0; i < sizeof value / 2; ++i) {
            std::swap(to[i], to[sizeof value - 1 - i]);
        }
    }
    return to + sizeof value;
}

/// A head of a binary file in the making: fields one behind the other.
class field_bytes {
  public:
    template<class Number>
    field_bytes& number(Number value) {
        char bytes[sizeof value];
        put_little(bytes, value);
        bytes_.append(bytes, sizeof value);
        return *this;
    }
    /// A text in a field of `size` bytes: cut, or with zeros behind.
    field_bytes& text(std::string_view value, std::size_t size) {
        bytes_.append(value.substr(0, size));
        return zeros(size - std::min(size, value.size()));
    }
    field_bytes& zeros(std::size_t n) {
        bytes_.append(n, '\0');
        return *this;
    }
    const std::string& bytes() const noexcept { return bytes_; }

  private:
    std::string bytes_;
};

/// Collects bytes for a connection, to write them in large pieces. The connection outlives it, and
/// its failures pass through.
class byte_output {
  public:
    explicit byte_output(scanlib::basic_wconnection& to);

    /// Room for `n` bytes, at most `most_at_once`; `take` tells how many of them are used.
    char* room(std::size_t n) {
        if (buffer_.size() - size_ < n) {
            flush();
        }
        return buffer_.data() + size_;
    }
    void take(std::size_t n) noexcept { size_ += n; }
    static constexpr std::size_t most_at_once = 4096;

    void append(std::string_view bytes);
    /// Hands everything over.
    void flush();
    /// Bytes that were handed over.
    std::uint64_t written() const noexcept { return written_; }

  private:
    scanlib::basic_wconnection& to_;
    std::vector<char> buffer_;
    std::size_t size_ = 0;
    std::uint64_t written_ = 0;
};

} // namespace host
