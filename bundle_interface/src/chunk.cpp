#include "bundle_interface/holdfast/chunk.hpp"
#include "bundle_interface/holdfast/loan.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

#include <sys/mman.h>
#include <unistd.h>

namespace Holdfast {

namespace {

// Column memory is touched once from end to end: large pages spare most of the page faults.
constexpr std::size_t large_page = std::size_t{2} << 20;
#if defined(__SANITIZE_ADDRESS__)
constexpr bool large_pages = false; // the allocator's memory is watched, the system's is not
#elif defined(__has_feature)
constexpr bool large_pages = !__has_feature(address_sanitizer);
#else
constexpr bool large_pages = true;
#endif

bool takesLargePages(std::size_t bytes) {
    return large_pages && bytes >= large_page;
}

std::size_t wholePages(std::size_t bytes) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

/// Zeros from the system, at the start of a large page; null without memory.
void* mapZeros(std::size_t bytes) {
    const std::size_t used = wholePages(bytes);
    const std::size_t mapped = used + large_page;
    void* const place =
        ::mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (place == MAP_FAILED) {
        return nullptr;
    }
    auto* const first = static_cast<std::byte*>(place);
    const std::size_t skipped = -reinterpret_cast<std::uintptr_t>(first) % large_page;
    if (skipped != 0) {
        ::munmap(first, skipped);
    }
    ::munmap(first + skipped + used, mapped - skipped - used);
    // Without large pages it is slower, nothing else.
    ::madvise(first + skipped, used, MADV_HUGEPAGE);
    return first + skipped;
}

std::byte* zeros(std::size_t bytes) {
    // Fresh pages come zeroed from the system; calloc passes that on without touching them.
    void* const place = takesLargePages(bytes) ? mapZeros(bytes) : std::calloc(bytes, 1);
    if (place == nullptr) {
        throw std::bad_alloc();
    }
    return static_cast<std::byte*>(place);
}

void release(std::byte* place, std::size_t bytes) noexcept {
    if (takesLargePages(bytes)) {
        ::munmap(place, wholePages(bytes));
    } else {
        std::free(place);
    }
}

} // namespace

Buffer::Buffer(std::size_t bytes) {
    if (bytes != 0) {
        data_ = zeros(bytes);
        capacity_ = bytes;
    }
}

Buffer::Buffer(std::size_t bytes, std::shared_ptr<BufferSlot> slot, LentMemory lent) {
    if (slot) {
        Buffer kept = slot->take(lent);
        if (kept.capacity_ >= bytes) {
            swap(kept);
        }
    }
    if (data_ == nullptr) {
        Buffer fresh(bytes);
        swap(fresh);
    }
    slot_ = std::move(slot);
}

Buffer::~Buffer() {
    if (slot_ && data_ != nullptr) {
        const std::shared_ptr<BufferSlot> slot = std::move(slot_);
        slot->keep(std::move(*this));
    }
    await(capacity_);
    release(data_, capacity_);
}

void Buffer::swap(Buffer& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(capacity_, other.capacity_);
    std::swap(dirty_, other.dirty_);
    std::swap(slot_, other.slot_);
    std::swap(loan_, other.loan_);
}

std::shared_ptr<Loan> Buffer::lend(std::size_t bytes, bool urgent) {
    await(capacity_);
    loan_ = std::make_shared<Loan>(bytes, urgent);
    return {loan_.get(), [loan = loan_](Loan* dropped) { dropped->end(); }};
}

bool Buffer::lent() const noexcept {
    return loan_ && !loan_->ended();
}

std::size_t Buffer::await(std::size_t end) noexcept {
    if (!loan_) {
        return capacity_;
    }
    const std::size_t returned = loan_->await(end);
    if (returned < loan_->bytes()) {
        return returned;
    }
    loan_.reset();
    return capacity_;
}

void Buffer::zero(std::size_t from, std::size_t to) noexcept {
    const std::size_t end = std::min(to, dirty_);
    if (from < end) {
        await(end);
        std::memset(data_ + from, 0, end - from);
        if (end == dirty_) {
            dirty_ = from;
        }
    }
}

void Buffer::grow(std::size_t bytes, std::size_t used) {
    if (bytes <= capacity_) {
        return;
    }
    Buffer larger(bytes);
    if (used != 0) {
        std::memcpy(larger.data_, data_, used);
    }
    larger.dirty_ = used;
    std::swap(larger.slot_, slot_);
    swap(larger);
}

Buffer BufferSlot::take(LentMemory lent) noexcept {
    const std::lock_guard lock(mutex_);
    Buffer* best = nullptr;
    for (Buffer& b : kept_) {
        if ((lent == LentMemory::take || !b.lent()) &&
            (best == nullptr || b.capacity_ > best->capacity_)) {
            best = &b;
        }
    }
    return best == nullptr ? Buffer() : std::move(*best);
}

void BufferSlot::keep(Buffer buffer) noexcept {
    // A kept buffer knows no slot, else slot and buffer would keep each other alive.
    buffer.slot_.reset();
    const std::lock_guard lock(mutex_);
    for (Buffer& b : kept_) {
        if (buffer.capacity_ > b.capacity_) {
            buffer.swap(b);
        }
    }
}

std::atomic<std::uint64_t> ChunkBase::TotalMemsize{0};

namespace {

std::size_t byteCount(std::size_t size, std::size_t elementSize) {
    if (size > std::numeric_limits<std::size_t>::max() / 2 / elementSize) {
        throw std::length_error("Holdfast::Chunk: too many elements: " + std::to_string(size));
    }
    return size * elementSize;
}

} // namespace

ChunkBase::ChunkBase(std::size_t size, std::size_t elementSize, std::shared_ptr<BufferSlot> slot,
                     LentMemory lent)
    : buffer_(byteCount(size, elementSize), std::move(slot), lent)
    , size_(size)
    , elementSize_(elementSize) {
    buffer_.zero(0, bytes());
    TotalMemsize.fetch_add(bytes(), std::memory_order_relaxed);
}

ChunkBase::~ChunkBase() {
    TotalMemsize.fetch_sub(bytes(), std::memory_order_relaxed);
}

void ChunkBase::reserve(std::size_t size, std::size_t keep) {
    buffer_.grow(byteCount(size, elementSize_),
                 std::max(bytes(), std::min(keep, capacity()) * elementSize_));
}

void ChunkBase::resizeUnfilled(std::size_t size) noexcept {
    TotalMemsize.fetch_sub(bytes(), std::memory_order_relaxed);
    size_ = std::min(size, capacity());
    TotalMemsize.fetch_add(bytes(), std::memory_order_relaxed);
    buffer_.markDirty(bytes());
}

void ChunkBase::resize(std::size_t size) {
    const std::size_t before = bytes();
    reserve(size);
    const std::size_t after = byteCount(size, elementSize_);
    buffer_.zero(before, after);
    size_ = size;
    TotalMemsize.fetch_add(after - before, std::memory_order_relaxed);
}

} // namespace Holdfast
