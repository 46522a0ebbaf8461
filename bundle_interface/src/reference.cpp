#include "bundle_interface/holdfast/reference.hpp"

#include <cstdlib>
#include <limits>
#include <memory>
#include <stdexcept>

#include <cxxabi.h>

namespace Holdfast {

namespace {

// Far enough below zero that a late increment never makes a dead object look alive.
constexpr std::int32_t dead = std::numeric_limits<std::int32_t>::min() / 2;

} // namespace

std::atomic<std::uint64_t> PointerID{1};
std::atomic<std::uint64_t> Ageable::GlobalTime{0};

std::string Typename(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    return status == 0 && name ? name.get() : type.name();
}

void throwUnavailable(const std::type_info& type) {
    throw std::runtime_error("Holdfast: reading through an unavailable reference to " +
                             Typename(type));
}

bool ControlBlock::tryAddStrong() noexcept {
    std::int32_t count = strong_.load(std::memory_order_relaxed);
    while (count >= 0) {
        if (strong_.compare_exchange_weak(count, count + 1, std::memory_order_acquire,
                                          std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

void ControlBlock::dropStrong() noexcept {
    // The object may be gone already if its owner destroyed it under the references; then the count
    // stays negative. The weak reference keeps the block alive while a concurrent holder may delete
    // the object.
    addWeak();
    if (strong_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        std::int32_t none = 0;
        if (strong_.compare_exchange_strong(none, dead, std::memory_order_acq_rel)) {
            delete object_;
        }
    }
    dropWeak();
}

void ControlBlock::dropWeak() noexcept {
    if (weak_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

void ControlBlock::objectGone() noexcept {
    strong_.store(dead, std::memory_order_release);
    dropWeak();
}

Reference::Reference() : block_(new ControlBlock(this)) {}

Reference::Reference(const Reference&) : Reference() {}

Reference::~Reference() {
    block_->objectGone();
}

StrongPtr<Cache> Cache::MemCache() {
    static const StrongPtr<Cache> cache(new Cache);
    return cache;
}

} // namespace Holdfast
