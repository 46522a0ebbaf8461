#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "bundle_interface/export.hpp"

/// What all objects of the bundle data model share: references, memory, attributes, messages.
namespace Holdfast {

/// Process-wide source of the identifiers of references.
RXP2K7_EXPORT extern std::atomic<std::uint64_t> PointerID;

/// Readable name of a type, for example "unsigned char".
RXP2K7_EXPORT std::string Typename(const std::type_info& type);

/// Throws std::runtime_error that says that a reference to `type` has no object.
[[noreturn]] RXP2K7_EXPORT void throwUnavailable(const std::type_info& type);

class Reference;

/// Shared by all references to one object; outlives the object while weak references remain.
class RXP2K7_EXPORT ControlBlock {
  public:
    /// The block of `object`, which makes it, without references yet.
    explicit ControlBlock(Reference* object) noexcept : object_(object) {}
    ControlBlock(const ControlBlock&) = delete;
    ControlBlock& operator=(const ControlBlock&) = delete;

    /// True until the object is dead.
    bool alive() const noexcept { return strong_.load(std::memory_order_acquire) >= 0; }
    /// Adds a strong reference; the caller has one already, or the object is new.
    void addStrong() noexcept { strong_.fetch_add(1, std::memory_order_relaxed); }
    /// Adds a strong reference unless the object is dead; tells whether it did.
    bool tryAddStrong() noexcept;
    /// Drops a strong reference; the last one deletes the object.
    void dropStrong() noexcept;
    /// Adds a weak reference; the caller has a reference of any kind already.
    void addWeak() noexcept { weak_.fetch_add(1, std::memory_order_relaxed); }
    /// Drops a weak reference; the last one deletes the block.
    void dropWeak() noexcept;
    /// Called by the object's destructor.
    void objectGone() noexcept;

  private:
    ~ControlBlock() = default;

    std::atomic<std::int32_t> strong_{0};
    std::atomic<std::int32_t> weak_{1}; // the object itself holds one
    Reference* object_;
};

/// Base of all objects that references share. Counting is safe between threads.
class RXP2K7_EXPORT Reference {
  public:
    Reference();
    /// A new object, which the references to the other one do not share.
    Reference(const Reference&);
    /// Leaves the references to both as they are.
    // Nothing is assigned. NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
    Reference& operator=(const Reference&) noexcept { return *this; }
    virtual ~Reference();

    /// The block that counts the references to this object; owned by them.
    ControlBlock* controlBlock() const noexcept { return block_; }

  private:
    ControlBlock* block_;
};

/// What a class T derives from so that StrongPtr<T> and WeakPtr<T> can refer to its objects, which
/// are made with `new`. The last strong reference deletes the object.
template<class T>
class RXP2K7_EXPORT ReferenceBase : public Reference {};

template<class T, class Base>
class WeakPtr;

/// Shared reference that keeps its object alive. May be empty. Reading through a reference that is
/// not available throws std::runtime_error. Copies and their destruction are safe between threads;
/// one reference object itself is not.
template<class T, class Base = Reference>
class StrongPtr {
  public:
    StrongPtr() noexcept = default;
    /// Empty.
    StrongPtr(std::nullptr_t) noexcept {}
    /// Refers to `object`, which may be null.
    explicit StrongPtr(T* object) noexcept : object_(object) {
        if (object_ != nullptr) {
            take(static_cast<const Reference*>(object_)->controlBlock());
        }
    }
    /// Another reference to the same object.
    StrongPtr(const StrongPtr& other) noexcept : object_(other.object_) { take(other.block_); }
    /// Takes the reference over; `other` is empty afterwards.
    StrongPtr(StrongPtr&& other) noexcept
        : id_(other.id_)
        , block_(std::exchange(other.block_, nullptr))
        , object_(std::exchange(other.object_, nullptr)) {}
    /// Refers to the same object as a base of it.
    template<class U, class B, std::enable_if_t<std::is_convertible_v<U*, T*>, int> = 0>
    StrongPtr(const StrongPtr<U, B>& other) noexcept : object_(other.object_) {
        take(other.block_);
    }
    /// Refers to what `other` refers to; the reference held before is dropped.
    StrongPtr& operator=(StrongPtr other) noexcept {
        swap(other);
        return *this;
    }
    ~StrongPtr() { reset(); }

    /// Becomes empty.
    void reset() noexcept {
        object_ = nullptr;
        if (ControlBlock* block = std::exchange(block_, nullptr)) {
            block->dropStrong();
        }
    }
    /// Exchanges what both refer to.
    void swap(StrongPtr& other) noexcept {
        std::swap(id_, other.id_);
        std::swap(block_, other.block_);
        std::swap(object_, other.object_);
    }

    /// True if there is a living object.
    bool available() const noexcept {
        return block_ != nullptr && object_ != nullptr && block_->alive();
    }
    /// As available().
    explicit operator bool() const noexcept { return available(); }
    /// The object, or null.
    T* get() const noexcept { return available() ? object_ : nullptr; }
    /// The object. Throws std::runtime_error with its type if there is none.
    T* operator->() const { return checked(); }
    /// The object. Throws std::runtime_error with its type if there is none.
    T& operator*() const { return *checked(); }

  private:
    template<class U, class B>
    friend class StrongPtr;
    template<class U, class B>
    friend class WeakPtr;

    void take(ControlBlock* block) noexcept {
        block_ = block;
        if (block_ != nullptr) {
            id_ = PointerID.fetch_add(1, std::memory_order_relaxed);
            block_->addStrong();
        }
    }
    T* checked() const {
        if (!available()) {
            throwUnavailable(typeid(T));
        }
        return object_;
    }

    std::uint64_t id_ = 0;
    ControlBlock* block_ = nullptr;
    T* object_ = nullptr;
};

/// Shared reference that does not keep its object alive.
template<class T, class Base = Reference>
class WeakPtr {
  public:
    /// Empty.
    WeakPtr() noexcept = default;
    template<class U, class B, std::enable_if_t<std::is_convertible_v<U*, T*>, int> = 0>
    /// Refers to the object of `strong`, or to a base of it.
    WeakPtr(const StrongPtr<U, B>& strong) noexcept : object_(strong.object_) {
        take(strong.block_);
    }
    /// Another weak reference to the same object.
    WeakPtr(const WeakPtr& other) noexcept : object_(other.object_) { take(other.block_); }
    /// Refers to what `other` refers to; the reference held before is dropped.
    WeakPtr& operator=(const WeakPtr& other) noexcept {
        WeakPtr copy(other);
        std::swap(id_, copy.id_);
        std::swap(block_, copy.block_);
        std::swap(object_, copy.object_);
        return *this;
    }
    ~WeakPtr() {
        if (block_ != nullptr) {
            block_->dropWeak();
        }
    }

    /// True if there is a living object. Another thread may end it at any time; lock() is safe.
    bool available() const noexcept {
        return block_ != nullptr && object_ != nullptr && block_->alive();
    }
    /// A strong reference to the object; empty if the object is gone.
    StrongPtr<T, Base> lock() const noexcept {
        StrongPtr<T, Base> strong;
        if (block_ != nullptr && block_->tryAddStrong()) {
            strong.id_ = id_;
            strong.block_ = block_;
            strong.object_ = object_;
        }
        return strong;
    }

  private:
    void take(ControlBlock* block) noexcept {
        block_ = block;
        if (block_ != nullptr) {
            id_ = PointerID.fetch_add(1, std::memory_order_relaxed);
            block_->addWeak();
        }
    }

    std::uint64_t id_ = 0;
    ControlBlock* block_ = nullptr;
    T* object_ = nullptr;
};

/// Age stamps. An object's age is the value that GlobalTime had at its last change.
struct RXP2K7_EXPORT Ageable {
    /// Process-wide clock of changes.
    static std::atomic<std::uint64_t> GlobalTime;
    std::uint64_t age = 0; ///< of this object
};

/// Where stored data are kept for reading. This implementation reads nothing back, so one kind
/// suffices.
class Cache : public ReferenceBase<Cache> {
  public:
    /// The cache in memory, one for the process.
    static StrongPtr<Cache> MemCache();
};

} // namespace Holdfast
