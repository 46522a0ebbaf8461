#pragma once

#include "scanlib/wave_block.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace scanlib {

/// Keeps the memory of blocks that are done with for those to come, so that a steady stream of
/// blocks allocates nothing. What it keeps is bounded, whatever shape the blocks had.
class wave_block_pool {
  public:
    /// Most samples that spare lists have room for, all together.
    static constexpr std::size_t sample_limit = std::size_t{8} << 20;
    /// Blocks and lists of samples kept.
    static constexpr std::size_t block_limit = 16384;
    static constexpr std::size_t list_limit = 4 * block_limit;
    /// Records and pulses that a block kept may have room for; a scanner has sixteen channels.
    static constexpr std::size_t record_limit = 32;

    /// A block as newly made.
    std::unique_ptr<wave_block> take_block();

    /// A list of samples that holds what it last held, for somebody who overwrites it.
    std::vector<std::uint16_t> take_samples() noexcept;

    /// Takes a block back, with the samples of its records.
    void give_back(std::unique_ptr<wave_block> block);

    /// Samples that the spare lists have room for.
    std::size_t spare_room() const noexcept { return room_; }

  private:
    void keep(std::vector<std::uint16_t>&& samples);

    std::vector<std::unique_ptr<wave_block>> blocks_;
    std::vector<std::vector<std::uint16_t>> lists_;
    std::size_t room_ = 0;
};

} // namespace scanlib
