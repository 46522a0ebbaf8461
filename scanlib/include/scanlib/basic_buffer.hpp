#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace scanlib {

/// A region of 32-bit words: begin, end, and end of storage. A view: it never owns its words.
class basic_buffer {
  public:
    basic_buffer() noexcept = default;
    basic_buffer(std::uint32_t* begin, std::uint32_t* end, std::uint32_t* end_of_storage) noexcept
        : begin_(begin), end_(end), end_of_storage_(end_of_storage) {}

    std::uint32_t* begin() const noexcept { return begin_; }
    std::uint32_t* end() const noexcept { return end_; }
    std::uint32_t* end_of_storage() const noexcept { return end_of_storage_; }
    std::size_t size() const noexcept { return static_cast<std::size_t>(end_ - begin_); }
    std::size_t capacity() const noexcept {
        return static_cast<std::size_t>(end_of_storage_ - begin_);
    }
    bool empty() const noexcept { return begin_ == end_; }

    /// Moves the end to `words` behind begin; words added are zero.
    /// Throws std::out_of_range ("basic_buffer::resize") beyond the end of storage.
    void resize(std::size_t words) {
        if (words > capacity()) {
            throw std::out_of_range("basic_buffer::resize");
        }
        std::uint32_t* const end = begin_ + words;
        if (end > end_) {
            std::fill(end_, end, 0u);
        }
        end_ = end;
    }

    /// Moves the end to `words` behind begin, for a region whose words are already there. Throws as
    /// resize does.
    void set_filled(std::size_t words) {
        if (words > capacity()) {
            throw std::out_of_range("basic_buffer::resize");
        }
        end_ = begin_ + words;
    }

  private:
    std::uint32_t* begin_ = nullptr;
    std::uint32_t* end_ = nullptr;
    std::uint32_t* end_of_storage_ = nullptr;
};

} // namespace scanlib
