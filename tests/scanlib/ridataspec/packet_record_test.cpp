#include "scanlib/packet_record.hpp"

#include <cmath>
#include <random>

#include <gtest/gtest.h>

namespace {

namespace detail = scanlib::packets::detail;

std::uint64_t bit_by_bit(const std::uint32_t* words, std::size_t bit, std::size_t width) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) {
        value |= std::uint64_t{words[(bit + i) / 32] >> ((bit + i) % 32) & 1} << i;
    }
    return value;
}

TEST(PacketRecord, ExtractionAgreesWithReadingBitByBit) {
    std::mt19937 random(1);
    std::uint32_t words[4];
    for (auto& w : words) {
        w = static_cast<std::uint32_t>(random());
    }
    for (std::size_t width = 1; width <= 64; ++width) {
        for (std::size_t bit = 0; bit + width <= 128; ++bit) {
            ASSERT_EQ(detail::extract_bits(words, bit, width), bit_by_bit(words, bit, width))
                << bit << ' ' << width;
        }
    }
}

TEST(PacketRecord, InsertionKeepsTheBitsAroundTheField) {
    std::mt19937_64 random(2);
    for (std::size_t width = 1; width <= 64; ++width) {
        for (std::size_t bit = 0; bit + width <= 128; bit += 3) {
            std::uint32_t before[4];
            for (auto& w : before) {
                w = static_cast<std::uint32_t>(random());
            }
            std::uint32_t after[4] = {before[0], before[1], before[2], before[3]};
            const std::uint64_t value = random() & (width == 64 ? ~0ull : (1ull << width) - 1);
            detail::insert_bits(after, bit, width, value);
            ASSERT_EQ(bit_by_bit(after, bit, width), value);
            for (std::size_t i = 0; i < 128; ++i) {
                if (i < bit || i >= bit + width) {
                    ASSERT_EQ(bit_by_bit(after, i, 1), bit_by_bit(before, i, 1))
                        << bit << ' ' << width << ' ' << i;
                }
            }
        }
    }
}

TEST(PacketRecord, FastPathAndGeneralPathGiveTheSameValue) {
    const std::uint32_t words[] = {0x80FF7F01, 0xC0490FDB, 0x12345678};
    EXPECT_EQ((detail::extract<std::uint8_t, 8, 8>(words)), 0x7F);
    EXPECT_EQ((detail::extract<std::int8_t, 24, 8>(words)), -128);
    EXPECT_EQ((detail::extract<std::uint16_t, 24, 16>(words)), 0xDB80);
    EXPECT_EQ((detail::extract<std::int16_t, 16, 16>(words)), static_cast<std::int16_t>(0x80FF));
    EXPECT_FLOAT_EQ((detail::extract<float, 32, 32>(words)), -3.14159274f);
    EXPECT_EQ((detail::extract<float, 0, 32>(words, 32)), (detail::extract<float, 32, 32>(words)));
    EXPECT_EQ((detail::extract<std::uint64_t, 8, 64>(words)), detail::extract_bits(words, 8, 64));
}

TEST(PacketRecord, SignedFieldsAreSignExtendedFromTheirOwnWidth) {
    const std::uint32_t words[] = {0x00000FFF};
    EXPECT_EQ((detail::extract<std::int16_t, 0, 12>(words)), -1);
    EXPECT_EQ((detail::extract<std::int16_t, 1, 12>(words)), 0x7FF);
    EXPECT_EQ((detail::extract<std::uint16_t, 0, 12>(words)), 0xFFF);
}

TEST(PacketRecord, TextOffAnyByteBoundaryEndsAtItsFirstZeroByte) {
    std::uint32_t words[4] = {};
    for (std::size_t i = 0; i < 3; ++i) {
        detail::insert_bits(words, 4 + 8 * i, 8, static_cast<unsigned char>("abc"[i]));
    }
    const detail::fixed_text<8> text(words, 4);
    EXPECT_EQ(text.view(), "abc");
    std::fill(std::begin(words), std::end(words), 0x41414141u);
    const detail::fixed_text<16> full(words, 0);
    EXPECT_EQ(full.view(), std::string(16, 'A'));
}

} // namespace
