#include <algorithm>

#include "scanlib/rxpmarker.hpp"
#include "source_name.hpp"

namespace scanlib {

basic_rxpmarker::basic_rxpmarker(std::uint64_t capacity, std::uint64_t headroom, bool with_preamble)
    : capacity_(capacity)
    , headroom_(headroom)
    , words_(std::make_unique<std::uint32_t[]>(capacity))
    , write_(words_.get())
    , read_(words_.get())
    , preamble_pending_(with_preamble) {}

basic_rxpmarker::~basic_rxpmarker() = default;

void basic_rxpmarker::attempt_to_resize(std::uint64_t capacity, std::uint64_t headroom) {
    if (capacity > largest_size || headroom > largest_size) {
        throw scanlib_exception("basic_rxpmarker::attempt_to_resize: excess packet size",
                                rxpmarker_source, __LINE__);
    }
    if (headroom < headroom_ || capacity < headroom || capacity - headroom < ring_size()) {
        return;
    }
    auto larger = std::make_unique<std::uint32_t[]>(capacity);
    std::uint32_t* const old_read = read_;
    std::uint32_t* const old_write = write_;
    std::uint32_t* const new_ring_end = larger.get() + (capacity - headroom);
    std::copy(ring_end(), array_end(), new_ring_end);
    std::uint32_t* const new_read = std::copy_backward(old_read, ring_end(), new_ring_end);
    std::copy(array_begin(), old_read, larger.get());
    std::uint32_t* const new_write = old_write < old_read
                                         ? larger.get() + (old_write - array_begin())
                                         : new_read + (old_write - old_read);
    words_ = std::move(larger);
    capacity_ = capacity;
    headroom_ = headroom;
    read_ = new_read;
    write_ = new_write;
}

} // namespace scanlib
