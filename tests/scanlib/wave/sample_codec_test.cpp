// The two forms of samples: packed at a fixed width, and groups of steps.
#include "scanlib/sample_codec.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <memory>
#include <random>

using namespace scanlib;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using sample_list = std::vector<std::uint16_t>;
using word_list = std::vector<std::uint32_t>;

/// Unpacks from memory that ends with the payload, so that a sanitizer sees reads behind it.
sample_list unpacked(const word_list& words, std::size_t bits, unsigned width) {
    const auto exact = std::make_unique<std::uint32_t[]>(words.size());
    std::copy(words.begin(), words.end(), exact.get());
    sample_list out(packed_sample_count(bits, width), 0xAAAA);
    out.shrink_to_fit();
    unpack_samples(exact.get(), out.size(), width, out.data());
    return out;
}

sample_list decompressed(const word_list& words, std::size_t words16) {
    const auto exact = std::make_unique<std::uint32_t[]>(words.size());
    std::copy(words.begin(), words.end(), exact.get());
    sample_list out;
    decompress_samples(exact.get(), words16, out);
    return out;
}

/// The words of 16 bits in words of 32.
word_list in_words(const sample_list& words16) {
    word_list words((words16.size() + 1) / 2);
    for (std::size_t i = 0; i < words16.size(); ++i) {
        words[i / 2] |= std::uint32_t{words16[i]} << (i % 2 * 16);
    }
    return words;
}

/// One bit after the other.
sample_list bit_by_bit(const word_list& words, std::size_t bits, unsigned width) {
    sample_list out(bits / width);
    for (std::size_t bit = 0; bit < out.size() * width; ++bit) {
        const std::size_t place = bit % width;
        if (place < 16) {
            out[bit / width] = static_cast<std::uint16_t>(
                out[bit / width] | (words[bit / 32] >> bit % 32 & 1) << place);
        }
    }
    return out;
}

word_list random_words(std::size_t count, std::uint32_t seed) {
    std::mt19937 random(seed);
    word_list words(count);
    for (std::uint32_t& w : words) {
        w = static_cast<std::uint32_t>(random());
    }
    return words;
}

} // namespace

TEST(packed_samples, twelve_bits_cross_words_least_significant_first) {
    // 0x123, 0x456, 0x789, 0xABC, 0xDEF: each three hexadecimal digits, the first at the right.
    EXPECT_THAT(unpacked({0x89456123, 0x0DEFABC7}, 60, 12),
                ElementsAre(0x123, 0x456, 0x789, 0xABC, 0xDEF));
}

TEST(packed_samples, five_bits_by_hand) {
    // 1, 2, 4, 8, 16, 31 and the two low bits of 30; its others begin the second word.
    constexpr std::uint32_t first = 1U | 2U << 5 | 4U << 10 | 8U << 15 | 16U << 20 | 31U << 25;
    EXPECT_THAT(unpacked({first | 2U << 30, 7}, 35, 5), ElementsAre(1, 2, 4, 8, 16, 31, 30));
}

TEST(packed_samples, width_0_holds_none) {
    EXPECT_EQ(packed_sample_count(64, 0), 0U);
    EXPECT_THAT(unpacked({1, 2}, 64, 0), IsEmpty());
}

TEST(packed_samples, bits_that_make_no_whole_sample_are_left) {
    EXPECT_THAT(unpacked({0xFFFFFFFF}, 23, 12), ElementsAre(0xFFF));
    EXPECT_THAT(unpacked({0xFFFFFFFF}, 11, 12), IsEmpty());
}

TEST(packed_samples, every_width_up_to_16_and_length_equals_the_bits_one_by_one) {
    for (unsigned width = 1; width <= 16; ++width) {
        for (std::size_t bits = 1; bits <= 40 * 32; bits += bits < 300 ? 1 : 7) {
            const word_list words = random_words((bits + 31) / 32, width);
            ASSERT_EQ(unpacked(words, bits, width), bit_by_bit(words, bits, width))
                << width << " bits of " << bits;
        }
    }
}

TEST(packed_samples, of_a_width_beyond_16_the_low_16_bits_count) {
    for (const unsigned width : {17U, 20U, 24U, 31U, 32U, 33U, 64U, 127U, 511U}) {
        for (const std::size_t bits : {std::size_t{1}, std::size_t{width}, std::size_t{32 * 64}}) {
            const word_list words = random_words((bits + 31) / 32, width);
            EXPECT_EQ(unpacked(words, bits, width), bit_by_bit(words, bits, width)) << width;
        }
    }
}

RC_GTEST_PROP(packed_samples, what_was_packed_comes_back, ()) {
    const auto width = *rc::gen::inRange(1U, 17U);
    const auto samples = *rc::gen::container<sample_list>(
        rc::gen::map(rc::gen::arbitrary<std::uint16_t>(), [width](std::uint16_t s) {
            return static_cast<std::uint16_t>(s & ((1U << width) - 1));
        }));
    word_list words;
    const unsigned last = pack_samples(samples, width, words);
    RC_ASSERT(last >= 1U && last <= 32U);
    const std::size_t bits = words.empty() ? 0 : (words.size() - 1) * 32 + last;
    RC_ASSERT(bits == samples.size() * width);
    RC_ASSERT(unpacked(words, bits, width) == samples);
}

TEST(packed_samples, packing_loses_the_bits_above_the_width) {
    word_list words;
    EXPECT_EQ(pack_samples(sample_list{0xFFFF, 0x0001}, 4, words), 8U);
    EXPECT_THAT(words, ElementsAre(0x1F));
}

TEST(compressed_samples, width_3_by_hand) {
    // Width 3, then steps 1 2 3 4 5 6 7 0 and a width of 0.
    const std::uint64_t bits =
        3U | 1U << 4 | 2U << 7 | 3U << 10 | 4U << 13 | 5U << 16 | 6U << 19 | 7U << 22;
    EXPECT_THAT(decompressed({static_cast<std::uint32_t>(bits)}, 2),
                ElementsAre(1, 3, 6, 10, 15, 21, 28, 28));
}

TEST(compressed_samples, first_width_of_0_gives_none) {
    EXPECT_THAT(decompressed({0xFFFFFFF0}, 2), IsEmpty());
}

TEST(compressed_samples, without_words_there_are_none) {
    EXPECT_THAT(decompressed({}, 0), IsEmpty());
}

TEST(compressed_samples, sum_runs_on_across_groups_and_widths) {
    // Width 1 with eight steps of 1, width 2 with eight of 3, width 0: 12 + 20 + 4 bits.
    const std::uint64_t bits = 1U | 0xFFULL << 4 | 2ULL << 12 | 0xFFFFULL << 16;
    EXPECT_THAT(decompressed({static_cast<std::uint32_t>(bits), 0}, 3),
                ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 11, 14, 17, 20, 23, 26, 29, 32));
}

TEST(compressed_samples, low_16_bits_of_the_sum_are_the_sample) {
    // Width 15, eight steps of 32767: the third sum is 98301, beyond 16 bits.
    word_list words;
    pack_samples(sample_list{15}, 4, words);
    std::vector<bool> bits;
    const auto put = [&](std::uint32_t value, unsigned width) {
        for (unsigned i = 0; i < width; ++i) {
            bits.push_back((value >> i & 1) != 0);
        }
    };
    put(15, 4);
    for (int i = 0; i < 8; ++i) {
        put(32767, 15);
    }
    words.assign((bits.size() + 31) / 32, 0);
    for (std::size_t i = 0; i < bits.size(); ++i) {
        words[i / 32] |= (bits[i] ? 1U : 0U) << i % 32;
    }
    EXPECT_THAT(decompressed(words, 8),
                ElementsAre(32767, 65534, 98301 - 65536, 131068 - 65536, 163835 - 131072,
                            196602 - 131072, 229369 - 196608, 262136 - 196608));
}

TEST(compressed_samples, group_that_the_payload_does_not_hold_whole_ends_them) {
    // One whole group of 12 bits, then a width of 15 with four bits left of its 120.
    EXPECT_THAT(decompressed({1U | 0xFFU << 4 | 15U << 12 | 0xFFFF0000U}, 2),
                ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
    // Of two words of 16 bits the second does not belong to the payload.
    EXPECT_THAT(decompressed({1U | 0xFFU << 4 | 1U << 12 | 0xFFU << 16}, 1),
                ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
}

TEST(compressed_samples, data_may_end_without_a_width_of_0) {
    // Four groups of 12 bits fill three words of 16.
    sample_list out;
    word_list words(2);
    for (unsigned group = 0; group < 4; ++group) {
        const std::uint64_t bits = (1ULL | 0xFFULL << 4) << (group * 12 % 32);
        words[group * 12 / 32] |= static_cast<std::uint32_t>(bits);
        if (group * 12 / 32 == 0) {
            words[1] |= static_cast<std::uint32_t>(bits >> 32);
        }
    }
    out = decompressed(words, 3);
    ASSERT_EQ(out.size(), 32U);
    EXPECT_EQ(out.back(), 32);
}

RC_GTEST_PROP(compressed_samples, come_back_modulo_the_resolution, ()) {
    const auto resolution = *rc::gen::inRange(1U, 16U);
    const auto samples = *rc::gen::container<sample_list>(
        rc::gen::map(rc::gen::arbitrary<std::uint16_t>(), [resolution](std::uint16_t s) {
            return static_cast<std::uint16_t>(s & ((1U << resolution) - 1));
        }));
    sample_list words16;
    compress_samples(samples, resolution, words16);
    RC_ASSERT(words16.size() >= 1U);
    sample_list back = decompressed(in_words(words16), words16.size());
    RC_ASSERT(back.size() == (samples.size() + 7) / 8 * 8);
    RC_ASSERT(back.size() <= most_decompressed(words16.size()));
    for (std::size_t i = 0; i < back.size(); ++i) {
        const std::uint16_t expected = i < samples.size() ? samples[i] : samples.back();
        RC_ASSERT((back[i] & ((1U << resolution) - 1)) == expected);
    }
}

RC_GTEST_PROP(compressed_samples, no_payload_gives_more_than_the_bound,
              (const std::vector<std::uint32_t>& words)) {
    RC_ASSERT(decompressed(words, words.size() * 2).size() <= most_decompressed(words.size() * 2));
}
