#pragma once

#include <atomic>
#include <cstddef>

namespace Holdfast {

/// Memory lent to a borrower, who only reads it and gives it back from its start on. The owner may
/// write what was given back. Safe between the owner's thread and the borrower's.
class Loan {
  public:
    /// `urgent`: the owner goes on in the same memory, so that the borrower should be quick.
    Loan(std::size_t bytes, bool urgent) noexcept : bytes_(bytes), urgent_(urgent) {}

    /// Bytes lent.
    std::size_t bytes() const noexcept { return bytes_; }
    /// True where the owner waits for the memory.
    bool urgent() const noexcept { return urgent_; }

    /// The borrower has no more use for the bytes below `end`.
    void giveBack(std::size_t end) noexcept {
        returned_.store(end, std::memory_order_release);
        returned_.notify_all();
    }
    /// Gives all back.
    void end() noexcept { giveBack(bytes_); }

    /// True once all is back.
    bool ended() const noexcept { return returned_.load(std::memory_order_acquire) >= bytes_; }

    /// Waits until the bytes below `end` are back. Returns how many are.
    std::size_t await(std::size_t end) const noexcept {
        end = end < bytes_ ? end : bytes_;
        std::size_t returned = returned_.load(std::memory_order_acquire);
        while (returned < end) {
            returned_.wait(returned, std::memory_order_acquire);
            returned = returned_.load(std::memory_order_acquire);
        }
        return returned;
    }

  private:
    const std::size_t bytes_;
    const bool urgent_;
    std::atomic<std::size_t> returned_{0};
};

} // namespace Holdfast
