#include "scanlib/crc_contexts.hpp"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using scanlib::crc32_of_words;
using scanlib::crc_contexts;
using scanlib::crc_start;
using scanlib::packet_index;

constexpr auto kind_a = static_cast<packet_index>(3);
constexpr auto kind_b = static_cast<packet_index>(40);
constexpr auto kind_last = static_cast<packet_index>(scanlib::packet_index_count - 1);

/// One bit after the other, as a shift register of hardware does it.
std::uint32_t register_step(std::uint32_t crc, unsigned char byte) {
    for (int bit = 7; bit >= 0; --bit) {
        const bool feedback = ((crc >> 31) ^ (byte >> bit & 1u)) != 0;
        crc = (crc << 1) ^ (feedback ? 0x04C11DB7u : 0u);
    }
    return crc;
}

std::uint32_t register_of(std::uint32_t crc, const std::vector<std::uint32_t>& words) {
    for (const std::uint32_t w : words) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            crc = register_step(crc, static_cast<unsigned char>(w >> shift));
        }
    }
    return crc;
}

std::uint32_t crc_of(const std::vector<std::uint32_t>& words, std::uint32_t start = crc_start) {
    return crc32_of_words(start, words.data(), words.data() + words.size());
}

/// Words whose bytes, most significant first, are those of a text.
std::vector<std::uint32_t> words_of(const std::string& text) {
    std::vector<std::uint32_t> words(text.size() / 4);
    for (std::size_t i = 0; i < 4 * words.size(); ++i) {
        words[i / 4] = words[i / 4] << 8 | static_cast<unsigned char>(text[i]);
    }
    return words;
}

std::vector<std::uint32_t> random_words(std::size_t n) {
    std::mt19937 random(static_cast<unsigned>(n));
    std::vector<std::uint32_t> words(n);
    for (auto& w : words) {
        w = static_cast<std::uint32_t>(random());
    }
    return words;
}

TEST(crc32_of_words, published_check_value_of_the_digits_1_to_9) {
    std::uint32_t whole = crc_start;
    for (const char c : std::string("123456789")) {
        whole = register_step(whole, static_cast<unsigned char>(c));
    }
    ASSERT_EQ(whole, 0x0376E6E7u) << "the reference itself";
    // The ninth digit is no whole word.
    EXPECT_EQ(register_step(crc_of(words_of("12345678")), '9'), 0x0376E6E7u);
}

TEST(crc32_of_words, agrees_with_a_shift_register_for_any_length) {
    for (std::size_t n = 0; n < 40; ++n) {
        const auto words = random_words(n);
        EXPECT_EQ(crc_of(words), register_of(crc_start, words)) << n;
        EXPECT_EQ(crc_of(words, 0x12345678), register_of(0x12345678, words)) << n;
    }
}

TEST(crc32_of_words, pieces_continue_each_other) {
    const auto words = random_words(31);
    for (std::size_t cut = 0; cut <= words.size(); ++cut) {
        const std::uint32_t* middle = words.data() + cut;
        const std::uint32_t first = crc32_of_words(crc_start, words.data(), middle);
        EXPECT_EQ(crc32_of_words(first, middle, words.data() + words.size()), crc_of(words));
    }
}

TEST(crc32_of_words, message_with_its_checksum_behind_leaves_zero) {
    for (std::size_t n = 1; n < 20; ++n) {
        auto words = random_words(n);
        words.push_back(crc_of(words));
        EXPECT_EQ(crc_of(words), 0u);
    }
}

TEST(crc32_of_words, any_single_flipped_bit_is_seen) {
    const auto words = random_words(5);
    for (std::size_t bit = 0; bit < 32 * words.size(); ++bit) {
        auto damaged = words;
        damaged[bit / 32] ^= 1u << (bit % 32);
        EXPECT_NE(crc_of(damaged), crc_of(words)) << bit;
    }
}

/// Contexts with context 0 over kind a, its first check done with sequence 5.
class crc_run : public testing::Test {
  protected:
    crc_run() {
        contexts.begin(0);
        contexts.select(0, kind_a);
        EXPECT_FALSE(contexts.check(0, 5, 0xDEADBEEF)) << "a first check never fails";
    }
    void feed(packet_index kind, const std::vector<std::uint32_t>& words) {
        contexts.update(kind, words.data(), words.data() + words.size());
    }
    crc_contexts contexts;
};

TEST_F(crc_run, right_checksum_passes) {
    feed(kind_a, {1, 2, 3});
    EXPECT_FALSE(contexts.check(0, 6, crc_of({1, 2, 3})));
}

TEST_F(crc_run, wrong_checksum_tells_both_sequences) {
    feed(kind_a, {1, 2, 3});
    const auto m = contexts.check(0, 6, crc_of({1, 2, 3}) ^ 1);
    ASSERT_TRUE(m);
    EXPECT_EQ(m->sequence, 5u);
    EXPECT_EQ(m->new_sequence, 6u);
}

TEST_F(crc_run, sequence_stays_after_a_mismatch_and_moves_after_a_match) {
    EXPECT_TRUE(contexts.check(0, 6, 0));
    const auto again = contexts.check(0, 7, 0);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->sequence, 5u);
    EXPECT_FALSE(contexts.check(0, 8, crc_start));
    const auto moved = contexts.check(0, 9, 0);
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->sequence, 8u);
}

TEST_F(crc_run, each_check_begins_a_new_run) {
    feed(kind_a, {1, 2, 3});
    EXPECT_TRUE(contexts.check(0, 6, 0));
    feed(kind_a, {4});
    feed(kind_a, {5});
    EXPECT_FALSE(contexts.check(0, 7, crc_of({4, 5})));
}

TEST_F(crc_run, other_kinds_do_not_count) {
    feed(kind_b, {9, 9, 9});
    feed(kind_a, {1});
    feed(kind_last, {8});
    EXPECT_FALSE(contexts.check(0, 6, crc_of({1})));
}

TEST_F(crc_run, last_kind_of_the_catalogue_can_be_chosen) {
    contexts.select(0, kind_last);
    feed(kind_last, {8});
    EXPECT_FALSE(contexts.check(0, 6, crc_of({8})));
}

TEST_F(crc_run, context_beyond_the_list_is_left_alone) {
    EXPECT_FALSE(contexts.check(1, 6, 0));
    EXPECT_FALSE(contexts.check(255, 6, 0));
    contexts.select(1, kind_b);
    feed(kind_b, {1});
    EXPECT_EQ(contexts.size(), 1u);
    EXPECT_FALSE(contexts.check(0, 6, crc_start));
}

TEST_F(crc_run, header_again_forgets_kinds_and_run) {
    feed(kind_a, {1});
    contexts.begin(0);
    EXPECT_FALSE(contexts.check(0, 6, 0)) << "a first check again";
    feed(kind_a, {1});
    EXPECT_FALSE(contexts.check(0, 7, crc_start)) << "no kind is chosen any more";
}

TEST_F(crc_run, contexts_run_side_by_side) {
    contexts.begin(1);
    contexts.select(1, kind_a);
    contexts.select(1, kind_b);
    EXPECT_FALSE(contexts.check(1, 1, 0));
    feed(kind_a, {1});
    feed(kind_b, {2});
    EXPECT_FALSE(contexts.check(0, 6, crc_of({1})));
    EXPECT_FALSE(contexts.check(1, 2, crc_of({1, 2})));
}

TEST_F(crc_run, header_of_a_lower_context_drops_those_above) {
    contexts.begin(2);
    contexts.select(2, kind_b);
    EXPECT_EQ(contexts.size(), 3u);
    contexts.begin(1);
    EXPECT_EQ(contexts.size(), 2u);
    contexts.begin(2);
    feed(kind_b, {1});
    EXPECT_FALSE(contexts.check(2, 1, 0));
    EXPECT_FALSE(contexts.check(2, 2, crc_start)) << "kinds of the dropped context are gone";
    feed(kind_a, {7});
    EXPECT_FALSE(contexts.check(0, 6, crc_of({7}))) << "the one below runs on";
}

TEST_F(crc_run, contexts_between_are_made_with_no_kind) {
    contexts.begin(255);
    EXPECT_EQ(contexts.size(), 256u);
    feed(kind_a, {1});
    EXPECT_FALSE(contexts.check(100, 1, 0));
    feed(kind_a, {1});
    EXPECT_FALSE(contexts.check(100, 2, crc_start));
}

TEST(crc_contexts, without_contexts_packets_are_not_even_read) {
    crc_contexts contexts;
    // Words that would fault.
    contexts.update(kind_a, reinterpret_cast<const std::uint32_t*>(8),
                    reinterpret_cast<const std::uint32_t*>(800));
    EXPECT_FALSE(contexts.check(0, 1, 2));
    EXPECT_EQ(contexts.size(), 0u);
}

TEST(crc_contexts, clear_drops_all) {
    crc_contexts contexts;
    contexts.begin(3);
    contexts.select(3, kind_a);
    contexts.clear();
    EXPECT_EQ(contexts.size(), 0u);
    contexts.update(kind_a, reinterpret_cast<const std::uint32_t*>(8),
                    reinterpret_cast<const std::uint32_t*>(800));
    EXPECT_FALSE(contexts.check(3, 1, 2));
}

} // namespace
