#pragma once

#include <cstddef>

namespace scanlib::testing {

/// Allocations of this process so far. A program that links allocation_counter.cpp counts them.
std::size_t allocation_count() noexcept;

} // namespace scanlib::testing
