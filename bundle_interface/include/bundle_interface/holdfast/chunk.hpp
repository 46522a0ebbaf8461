#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "bundle_interface/holdfast/reference.hpp"

namespace Holdfast {

class BufferSlot;
class Loan;

/// Whether memory may be taken over that a borrower still reads.
enum class LentMemory : std::uint8_t { leave, take };

/// Owned raw memory. Bytes beyond `dirty()` are zero. A buffer with a home slot goes back there
/// when it is released, so that its pages need not be faulted in anew. Lent memory is only read
/// until it is given back: zero(), grow() and the release to the system wait for that, and
/// whoever writes through data() calls await() first.
class Buffer {
  public:
    Buffer() noexcept = default;
    /// At least `bytes` bytes of zeros. Throws std::bad_alloc.
    explicit Buffer(std::size_t bytes);
    /// A buffer kept in `slot` if one is large enough, else new memory; released into `slot`. The
    /// first `dirty()` bytes hold old values.
    Buffer(std::size_t bytes, std::shared_ptr<BufferSlot> slot, LentMemory lent);
    /// The memory goes over; `other` is empty afterwards.
    Buffer(Buffer&& other) noexcept { swap(other); }
    /// As the constructor; the memory held before is released.
    Buffer& operator=(Buffer&& other) noexcept {
        Buffer taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~Buffer();

    /// Start of the memory, null where there is none. Valid until it grows or goes over.
    std::byte* data() const noexcept { return data_; }
    /// Bytes that there is memory for.
    std::size_t capacity() const noexcept { return capacity_; }
    /// Bytes at the start that may be other than zero.
    std::size_t dirty() const noexcept { return dirty_; }
    /// Says that the first `bytes` bytes may be other than zero.
    void markDirty(std::size_t bytes) noexcept { dirty_ = bytes > dirty_ ? bytes : dirty_; }
    /// Zeroes the bytes [from, to) as far as they may be other than zero.
    void zero(std::size_t from, std::size_t to) noexcept;
    /// Makes room for `bytes` bytes, keeping the first `used` ones. Throws std::bad_alloc, then
    /// nothing changed.
    void grow(std::size_t bytes, std::size_t used);

    /// Lends the first `bytes` bytes, which are back from the borrower before. All are given back
    /// at the latest when the borrower drops the loan, so that none is lost by an exception.
    std::shared_ptr<Loan> lend(std::size_t bytes, bool urgent);
    /// True while a borrower has not given all back.
    bool lent() const noexcept;
    /// Waits until the bytes below `end` are back. Returns how many bytes may be written.
    std::size_t await(std::size_t end) noexcept;

  private:
    friend class BufferSlot;
    void swap(Buffer& other) noexcept;

    std::byte* data_ = nullptr;
    std::size_t capacity_ = 0;
    std::size_t dirty_ = 0;
    std::shared_ptr<BufferSlot> slot_;
    std::shared_ptr<Loan> loan_;
};

/// Keeps the memory of released buffers for the next of their kind: two, one of which may be lent
/// while the other is in use. Safe between threads.
class BufferSlot {
  public:
    /// The largest kept buffer, or an empty one; with LentMemory::leave the largest that is not
    /// lent.
    Buffer take(LentMemory lent) noexcept;
    /// Keeps the two largest of the kept buffers and `buffer`.
    void keep(Buffer buffer) noexcept;

  private:
    std::mutex mutex_;
    std::array<Buffer, 2> kept_;
};

/// Heap array of some element type, seen without the type.
class ChunkBase : public ReferenceBase<ChunkBase> {
  public:
    /// Bytes of all living chunks.
    static std::atomic<std::uint64_t> TotalMemsize;

    ~ChunkBase() override;
    ChunkBase(const ChunkBase&) = delete;
    ChunkBase& operator=(const ChunkBase&) = delete;

    /// Type of the elements.
    virtual const std::type_info& elementType() const noexcept = 0;
    /// Number of elements.
    std::size_t size() const noexcept { return size_; }
    /// Bytes of the elements.
    std::size_t bytes() const noexcept { return size_ * elementSize_; }
    /// The elements, for reading. Valid until the next resize or reserve.
    const void* raw() const noexcept { return buffer_.data(); }

    /// Sets the number of elements. Elements added are zero; those left keep their values, also the
    /// ones beyond a lowered size until they are added again. Throws std::bad_alloc or
    /// std::length_error, then nothing changed.
    void resize(std::size_t size);
    /// As resize, but elements added hold whatever stands in the memory reserved for them: what was
    /// written there through data(), zeros, or values of an earlier user of the buffer. `size` is
    /// at most capacity().
    void resizeUnfilled(std::size_t size) noexcept;
    /// Zeroes what an earlier user of the buffer left in the elements [from, to), which fit the
    /// capacity.
    void clearOld(std::size_t from, std::size_t to) noexcept {
        buffer_.zero(from * elementSize_, to * elementSize_);
    }
    /// Makes room for `size` elements without changing their number; what was written beyond size()
    /// is kept up to `keep` elements. Throws as resize does.
    void reserve(std::size_t size, std::size_t keep = 0);
    /// Number of elements that fit without new memory.
    std::size_t capacity() const noexcept { return buffer_.capacity() / elementSize_; }

    /// Lends the elements to a borrower who reads them, also after this object is gone. Until they
    /// are given back, by dropping the loan at the latest, nobody may change them. Waits for the
    /// end of an earlier loan.
    std::shared_ptr<Loan> lend(bool urgent) { return buffer_.lend(bytes(), urgent); }
    /// Waits until the elements below `end`, which may be beyond size(), are back from a borrower
    /// of the buffer. Returns how many may be written.
    std::size_t await(std::size_t end) noexcept {
        return buffer_.await(end * elementSize_) / elementSize_;
    }

  protected:
    /// `size` zeros of `elementSize` bytes each; memory from `slot` where it has some. Throws
    /// std::bad_alloc, or std::length_error if the size has no byte count.
    ChunkBase(std::size_t size, std::size_t elementSize, std::shared_ptr<BufferSlot> slot,
              LentMemory lent);

    /// The elements, for reading.
    std::byte* constBytes() const noexcept { return buffer_.data(); }
    /// For writing: all elements may differ from zero from here on.
    std::byte* bytesForWriting() noexcept {
        buffer_.markDirty(bytes());
        return buffer_.data();
    }

  private:
    Buffer buffer_;
    std::size_t size_ = 0;
    std::size_t elementSize_;
};

/// Heap array of T, zero-filled when made.
template<class T>
class Chunk : public ChunkBase {
    static_assert(std::is_trivially_copyable_v<T> && alignof(T) <= alignof(std::max_align_t));

  public:
    /// `size` zeros. With a slot the memory comes from there if it fits, and goes back there.
    /// Throws std::bad_alloc, or std::length_error if the size has no byte count.
    explicit Chunk(std::size_t size, std::shared_ptr<BufferSlot> slot = nullptr,
                   LentMemory lent = LentMemory::leave)
        : ChunkBase(size, sizeof(T), std::move(slot), lent) {}

    /// typeid(T).
    const std::type_info& elementType() const noexcept override { return typeid(T); }
    /// Valid until the next resize or reserve.
    T* data() noexcept { return reinterpret_cast<T*>(bytesForWriting()); }
    /// For reading. Valid until the next resize or reserve.
    const T* data() const noexcept { return reinterpret_cast<const T*>(constBytes()); }
    /// Unchecked.
    T& operator[](std::size_t i) noexcept { return data()[i]; }
    /// Unchecked.
    const T& operator[](std::size_t i) const noexcept { return data()[i]; }
};

} // namespace Holdfast
