#pragma once

#include <cstddef>
#include <memory>
#include <utility>

namespace scanlib::detail {

/// First in, first out, up to `limit` elements, a power of two. Its storage grows as needed and is
/// kept: a queue that has seen its longest row allocates no more.
template<class T>
class ring_queue {
  public:
    explicit ring_queue(std::size_t limit) noexcept : limit_(limit) {}

    bool empty() const noexcept { return head_ == tail_; }
    std::size_t size() const noexcept { return tail_ - head_; }
    void clear() noexcept { head_ = tail_ = 0; }

    /// The oldest element, of a queue that is not empty.
    const T& front() const noexcept { return items_[head_ & mask_]; }
    void pop() noexcept { ++head_; }

    /// False where the limit left no room.
    bool push(const T& item) {
        if (size() == room_ && !grow()) [[unlikely]] {
            return false;
        }
        items_[tail_++ & mask_] = item;
        return true;
    }

  private:
    static constexpr std::size_t first_room = 1024;

    bool grow() {
        if (room_ >= limit_) {
            return false;
        }
        const std::size_t room = room_ == 0 ? first_room : room_ * 2;
        auto items = std::make_unique<T[]>(room);
        const std::size_t n = size();
        for (std::size_t i = 0; i < n; ++i) {
            items[i] = items_[(head_ + i) & mask_];
        }
        items_ = std::move(items);
        room_ = room;
        mask_ = room - 1;
        head_ = 0;
        tail_ = n;
        return true;
    }

    std::unique_ptr<T[]> items_;
    std::size_t limit_;
    std::size_t room_ = 0;
    std::size_t mask_ = 0;
    std::size_t head_ = 0; ///< counts on; its low bits are the place
    std::size_t tail_ = 0;
};

} // namespace scanlib::detail
