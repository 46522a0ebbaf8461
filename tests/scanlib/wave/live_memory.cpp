#include "live_memory.hpp"

#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

std::size_t live = 0;
std::size_t allocations = 0;

void release(void* p) noexcept {
    if (p != nullptr) {
        live -= malloc_usable_size(p);
    }
    std::free(p);
}

} // namespace

std::size_t scanlib::testing::live_bytes() noexcept {
    return live;
}

std::size_t scanlib::testing::allocation_count() noexcept {
    return allocations;
}

void* operator new(std::size_t size) {
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        ++allocations;
        live += malloc_usable_size(p);
        return p;
    }
    throw std::bad_alloc();
}

void operator delete(void* p) noexcept {
    release(p);
}

void operator delete(void* p, std::size_t /*size*/) noexcept {
    release(p);
}
