#include "allocation_counter.hpp"

#include <cstdlib>
#include <new>

namespace {

std::size_t allocations = 0;

} // namespace

std::size_t scanlib::testing::allocation_count() noexcept {
    return allocations;
}

void* operator new(std::size_t size) {
    ++allocations;
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}

void operator delete(void* p) noexcept {
    std::free(p);
}

void operator delete(void* p, std::size_t /*size*/) noexcept {
    std::free(p);
}
