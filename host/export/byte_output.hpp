#pragma once

#include "recording_output.hpp"

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

/// Collects bytes for an output, to write them in large pieces. The output outlives it. Operations
/// throw simulator::output_error.
class byte_output {
  public:
    explicit byte_output(recording_output& to);

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
    /// Brings everything to the output.
    void flush();
    /// Replaces bytes that were flushed.
    void write_again(std::uint64_t at, std::string_view bytes);

  private:
    recording_output& to_;
    std::vector<char> buffer_;
    std::size_t size_ = 0;
};

} // namespace host
