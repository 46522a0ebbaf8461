#pragma once

#include "scanlib/packet_catalogue.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// A stream as a list of packets whose fields can be changed one by one.
namespace fuzzing {

/// A source of numbers that is the same for the same seed.
class dice {
  public:
    explicit dice(std::uint64_t seed) noexcept : state_(seed) {}
    std::uint64_t roll() noexcept {
        state_ += 0x9E3779B97F4A7C15;
        std::uint64_t x = state_;
        x = (x ^ x >> 30) * 0xBF58476D1CE4E5B9;
        x = (x ^ x >> 27) * 0x94D049BB133111EB;
        return x ^ x >> 31;
    }
    /// A number below `n`, 0 for none.
    std::size_t below(std::size_t n) noexcept { return n == 0 ? 0 : roll() % n; }
    bool once_in(std::size_t n) noexcept { return below(n) == 0; }

  private:
    std::uint64_t state_;
};

/// One packet of a kind that the consumer listens to. The payload is as long as the kind and the
/// number of elements ask for.
struct field_packet {
    std::size_t kind = 0; ///< into the list of kinds
    std::size_t elements = 0;
    std::vector<std::uint32_t> payload;
};

struct field_stream {
    std::uint8_t options = 0; ///< for the consumer
    std::vector<field_packet> packets;
};

/// What the kind of a packet is in the catalogue.
const scanlib::packet_layout& layout_of(const field_packet& packet);

/// Stream number `n` of those that are right in every field.
field_stream valid_stream(std::size_t n);

/// Reads what `write` wrote. Any bytes are a stream: what is missing at the end counts as 0.
field_stream read(std::span<const std::uint8_t> bytes);
std::vector<std::uint8_t> write(const field_stream& stream);

/// Changes one thing: a field, a number of elements, or which packets there are.
void change(field_stream& stream, dice& d);

} // namespace fuzzing
