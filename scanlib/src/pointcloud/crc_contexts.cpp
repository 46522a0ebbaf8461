#include "scanlib/crc_contexts.hpp"

#include <array>

namespace scanlib {

namespace {

constexpr std::uint32_t polynomial = 0x04C11DB7;

/// Bytes taken in one step.
constexpr std::size_t slices = 8;

using table = std::array<std::array<std::uint32_t, 256>, slices>;

/// Entry [n][b] is the checksum of byte b with n zero bytes behind it, so that the bytes of a step
/// are looked up each by itself and then joined.
constexpr table make_table() {
    table t{};
    for (std::uint32_t b = 0; b < 256; ++b) {
        std::uint32_t crc = b << 24;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x80000000) != 0 ? crc << 1 ^ polynomial : crc << 1;
        }
        t[0][b] = crc;
    }
    for (std::size_t n = 1; n < slices; ++n) {
        for (std::size_t b = 0; b < 256; ++b) {
            t[n][b] = t[n - 1][b] << 8 ^ t[0][t[n - 1][b] >> 24];
        }
    }
    return t;
}

constexpr table lookup = make_table();

/// A word with `behind` bytes of the step behind it.
template<std::size_t Behind>
std::uint32_t word_step(std::uint32_t word) noexcept {
    return lookup[Behind + 3][word >> 24] ^ lookup[Behind + 2][word >> 16 & 255] ^
           lookup[Behind + 1][word >> 8 & 255] ^ lookup[Behind][word & 255];
}

} // namespace

std::uint32_t crc32_of_words(std::uint32_t crc, const std::uint32_t* first,
                             const std::uint32_t* last) noexcept {
    for (; last - first >= 2; first += 2) {
        crc = word_step<4>(crc ^ first[0]) ^ word_step<0>(first[1]);
    }
    return first != last ? word_step<0>(crc ^ *first) : crc;
}

void crc_contexts::begin(std::uint8_t context) {
    contexts_.resize(std::size_t{context} + 1);
    context_state& c = contexts_[context];
    c.kinds = {};
    c.crc = crc_start;
    c.seen = false;
    gather_chosen();
}

void crc_contexts::select(std::uint8_t context, packet_index kind) noexcept {
    if (context < contexts_.size()) {
        contexts_[context].kinds.set(kind);
        chosen_.set(kind);
    }
}

void crc_contexts::gather_chosen() noexcept {
    chosen_ = {};
    for (const context_state& c : contexts_) {
        chosen_ |= c.kinds;
    }
}

void crc_contexts::run(packet_index kind, const std::uint32_t* first,
                       const std::uint32_t* last) noexcept {
    for (context_state& c : contexts_) {
        if (c.kinds.test(kind)) {
            c.crc = crc32_of_words(c.crc, first, last);
        }
    }
}

std::optional<crc_contexts::mismatch>
crc_contexts::check(std::uint8_t context, std::uint32_t new_sequence, std::uint32_t crc) noexcept {
    if (context >= contexts_.size()) {
        return std::nullopt;
    }
    context_state& c = contexts_[context];
    const std::uint32_t counted = c.crc;
    c.crc = crc_start;
    if (c.seen && crc != counted) {
        return mismatch{c.sequence, new_sequence};
    }
    c.seen = true;
    c.sequence = new_sequence;
    return std::nullopt;
}

void crc_contexts::clear() noexcept {
    contexts_.clear();
    chosen_ = {};
}

} // namespace scanlib
