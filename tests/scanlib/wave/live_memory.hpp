#pragma once

#include <cstddef>

namespace scanlib::testing {

/// Bytes of this process that are allocated now, and the number of allocations so far. A program
/// that links live_memory.cpp counts them.
std::size_t live_bytes() noexcept;
std::size_t allocation_count() noexcept;

} // namespace scanlib::testing
