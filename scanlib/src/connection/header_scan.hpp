#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace scanlib {

/// First bytes of every `header` packet.
inline constexpr std::array<unsigned char, 8> header_packet_start = {0xFF, 0xFF, 0xFF, 0xFF,
                                                                     0x00, 0x00, 0x01, 0x00};

/// Looks for the header packet in a stream that comes in pieces.
///
/// Word by word: a start word makes the next one count, which is then the header's second word or
/// not, and is not itself looked at as a start word:
///
///     FFFFFFFF 00000100                 found
///     FFFFFFFF FFFFFFFF 00000100        not found
///
/// So of a run of start words the last one counts if the run is odd. That lets whole pieces be
/// searched for the pair alone, without a state per word.
class header_scan {
  public:
    /// Which ones the search uses: those that every processor has, or what this one has.
    enum class registers { common, widest };
    explicit header_scan(registers used = registers::widest) noexcept;

    /// Searches the next `n` bytes of the stream up to and with the first header packet's start.
    /// Returns how many bytes that are; 0 for none, with all of them searched.
    std::size_t find(const char* data, std::size_t n);

    /// The next byte begins a word.
    void realign() noexcept { count_ = 0; }

  private:
    std::size_t search(const char* data, std::size_t n);
    std::size_t fill_word(const char* data, std::size_t n, bool& found);
    bool take_word(std::uint32_t word) noexcept;

    std::size_t (*skip_)(const char* data, std::size_t i, std::size_t end) noexcept;
    std::array<char, 4> partial_{}; ///< the word that the piece before has cut
    std::uint32_t count_ = 0;       ///< bytes of it
    bool counts_ = false;           ///< the word before was a start word that counts
};

} // namespace scanlib
