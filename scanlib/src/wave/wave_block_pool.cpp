#include "scanlib/wave_block_pool.hpp"

#include <utility>

namespace scanlib {

std::unique_ptr<wave_block> wave_block_pool::take_block() {
    if (blocks_.empty()) {
        return std::make_unique<wave_block>();
    }
    auto block = std::move(blocks_.back());
    blocks_.pop_back();
    return block;
}

std::vector<std::uint16_t> wave_block_pool::take_samples() noexcept {
    if (lists_.empty()) {
        return {};
    }
    auto samples = std::move(lists_.back());
    lists_.pop_back();
    room_ -= samples.capacity();
    return samples;
}

void wave_block_pool::keep(std::vector<std::uint16_t>&& samples) {
    const std::size_t room = samples.capacity();
    if (room == 0 || room > sample_limit - room_ || lists_.size() == list_limit) {
        return;
    }
    lists_.push_back(std::move(samples));
    room_ += room;
}

void wave_block_pool::give_back(std::unique_ptr<wave_block> block) {
    for (wave_record& r : block->records) {
        keep(std::move(r.samples));
    }
    block->records.clear();
    block->peaks.clear();
    if (block->records.capacity() > record_limit || block->peaks.capacity() > record_limit ||
        blocks_.size() == block_limit) {
        return;
    }
    // Only the lists' memory is worth keeping.
    wave_block fresh;
    fresh.records.swap(block->records);
    fresh.peaks.swap(block->peaks);
    *block = std::move(fresh);
    blocks_.push_back(std::move(block));
}

} // namespace scanlib
