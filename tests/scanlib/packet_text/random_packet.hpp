#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <random>
#include <vector>

#include "scanlib/packet_catalogue.hpp"
#include "scanlib/packet_record.hpp"

namespace test_support {

/// Makes payloads whose words all lie in what the text form shows.
class random_packet {
  public:
    explicit random_packet(unsigned seed) : random_(seed) {}

    std::vector<std::uint32_t> of(const scanlib::packet_layout& kind) {
        const std::size_t elements = kind.has_sequence ? count(kind) : 0;
        const std::size_t bits = kind.fixed_bits + elements * kind.element_bits;
        std::vector<std::uint32_t> words((bits + 31) / 32);
        for (const scanlib::field_layout& f : kind.fields) {
            if (f.listed) {
                fill(words.data(), f, 0);
            }
        }
        const scanlib::field_layout number{
            "", scanlib::field_type::unsigned_integer, 0, kind.element_bits, 0, true};
        for (std::size_t i = 0; i < elements; ++i) {
            const std::size_t base = kind.fixed_bits + i * kind.element_bits;
            if (kind.is_text) {
                place(words.data(), base, 8, letter());
            } else if (kind.is_composite) {
                for (const scanlib::field_layout& f : kind.element_fields) {
                    fill(words.data(), f, base);
                }
            } else {
                fill(words.data(), number, base);
            }
        }
        return words;
    }

    std::vector<std::uint32_t> any_words(std::size_t n) {
        std::vector<std::uint32_t> words(n);
        std::generate(words.begin(), words.end(),
                      [&] { return static_cast<std::uint32_t>(random_()); });
        return words;
    }

    std::uint64_t below(std::uint64_t n) { return random_() % n; }

  private:
    /// As many elements as fill whole words, since the number of them follows from the words.
    std::size_t count(const scanlib::packet_layout& kind) {
        const std::size_t limit = kind.limit == 0 ? 40 : std::min(kind.limit, 40u);
        std::size_t n = random_() % (limit + 1);
        n = kind.is_text ? std::max<std::size_t>(n, 1) : n;
        while (!kind.is_text && kind.element_bits < 32 &&
               (kind.fixed_bits + n * kind.element_bits) % 32 != 0) {
            n += n == limit ? std::size_t(-1) : 1;
        }
        return n;
    }

    /// Any printable character but the quote.
    std::uint64_t letter() {
        const std::uint64_t c = ' ' + random_() % 94;
        return c < '"' ? c : c + 1;
    }

    void place(std::uint32_t* words, std::size_t bit, std::size_t width, std::uint64_t value) {
        scanlib::packets::detail::insert_bits(words, bit, width, value);
    }

    std::uint64_t finite(std::size_t width) {
        const std::uint64_t exponents = width == 32 ? 0x7F800000u : 0x7FF0000000000000u;
        std::uint64_t bits = random_();
        bits = width == 32 ? bits & 0xFFFFFFFFu : bits;
        const auto one_in_four = random_() % 4;
        if (one_in_four == 0) {
            bits &= ~exponents; // zero or subnormal
        } else if ((bits & exponents) == exponents) {
            bits ^= exponents & (exponents << 1);
        }
        return bits;
    }

    void fill(std::uint32_t* words, const scanlib::field_layout& f, std::size_t base) {
        const std::size_t entries = std::max(f.count, 1u);
        const std::size_t used =
            f.type == scanlib::field_type::text ? random_() % (entries + 1) : entries;
        for (std::size_t i = 0; i < used; ++i) {
            const std::uint64_t value = f.type == scanlib::field_type::text       ? letter()
                                        : f.type == scanlib::field_type::floating ? finite(f.width)
                                                                                  : random_();
            place(words, base + f.bit + i * f.width, f.width, value);
        }
    }

    std::mt19937_64 random_;
};

} // namespace test_support
