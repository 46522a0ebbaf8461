// Where a stopped stream ends.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "scripted_stream.hpp"

namespace {

using namespace live_test;

const std::string start_word("\x01\xFF\xFF\xFF", 4);
const std::string escape_word("\x00\xFF\xFF\xFF", 4);
const std::string plain_word("\x01\x02\x03\x04", 4);

std::string repeat(const std::string& word, int n) {
    std::string text;
    for (int i = 0; i < n; ++i) {
        text += word;
    }
    return text;
}

/// What a plain stream delivers that is stopped with its read number `read` behind the reply, each
/// of which brings at most `block` bytes.
std::string stopped(const std::string& data, std::uint64_t read, std::uint64_t block) {
    const scripted_stream s({{plain_reply + data}}, address, "", block);
    s.connection->open();
    s.link->stop_at_read(s.record->reads + read);
    return s.rest();
}

TEST(RdtpStop, EndsOneWordBeforeTheFirstPacketOfTheBlock) {
    const std::string data = repeat(plain_word, 6) + start_word + repeat(plain_word, 6);
    EXPECT_EQ(stopped(data, 1, 256), repeat(plain_word, 5));
}

TEST(RdtpStop, FirstWordOfTheBlockEndsTheStreamWithNothingOfIt) {
    EXPECT_EQ(stopped(start_word + repeat(plain_word, 6), 1, 256), "");
    const std::string first_block = repeat(plain_word, 4);
    EXPECT_EQ(stopped(first_block + start_word + repeat(plain_word, 3), 2, 16), first_block);
}

TEST(RdtpStop, WordAtTheEndOfTheBlockIsNotLookedAt) {
    // Neither this block's last word nor the next block's first is a start with a byte behind it.
    const std::string block = repeat(plain_word, 3) + start_word;
    const std::string data =
        block + repeat(plain_word, 4) + repeat(plain_word, 2) + start_word + repeat(plain_word, 1);
    EXPECT_EQ(stopped(data, 1, 16), data.substr(0, 16 + 16 + 4));
    EXPECT_EQ(stopped(block + "x", 1, 17), block.substr(0, 8)) << "one byte behind it is enough";
}

TEST(RdtpStop, EscapeWordIsNoStart) {
    const std::string data = repeat(plain_word, 2) + escape_word + repeat(plain_word, 2);
    EXPECT_EQ(stopped(data, 1, 256), data);
}

TEST(RdtpStop, WordsCountFromTheStartOfTheStream) {
    // The bytes of a start word across two words of the stream are none.
    const std::string data = repeat(plain_word, 2) + "ab" + start_word + "cd" +
                             repeat(plain_word, 2) + start_word + repeat(plain_word, 2);
    for (const std::uint64_t block : {5u, 6u, 7u, 9u, 256u}) {
        const std::string end = data.substr(0, 20);
        EXPECT_EQ(stopped(data, 1, block).substr(0, end.size()), end) << block;
    }
}

TEST(RdtpStop, FewBytesAreDeliveredUnlookedAt) {
    EXPECT_EQ(stopped("abc", 1, 256), "abc");
}

TEST(RdtpStop, NothingIsReadBehindTheCut) {
    const std::string packet = start_word + repeat(plain_word, 7);
    const scripted_stream s({{plain_reply + packet + packet + packet + packet}}, address, "", 64);
    s.connection->open();
    EXPECT_EQ(s.read(4), start_word);
    s.connection->stop();
    EXPECT_EQ(s.read(64), repeat(plain_word, 6)) << "the packet less its last word";
    const std::uint64_t reads = s.record->reads;
    EXPECT_EQ(s.read(64), "");
    EXPECT_EQ(s.record->reads, reads);
}

/// Where the rules end a stream of these words that is read in blocks, told word by word.
std::size_t expected_end(const std::vector<bool>& starts, std::size_t block_bytes) {
    const std::size_t size = starts.size() * 4;
    for (std::size_t block = 0; block < size; block += block_bytes) {
        const std::size_t end = std::min(block + block_bytes, size);
        for (std::size_t word = 0; word < starts.size(); ++word) {
            if (starts[word] && word * 4 >= block && word * 4 + 4 < end) {
                return word * 4 < block + 4 ? block : word * 4 - 4;
            }
        }
    }
    return size;
}

TEST(RdtpStop, EveryBlockSizeAndPlaceOfTheStartEndsWhereTheRulesSay) {
    for (std::size_t block = 4; block <= 24; ++block) {
        for (std::size_t place = 0; place < 12; ++place) {
            std::vector<bool> starts(12, false);
            starts[place] = true;
            std::string data;
            for (const bool start : starts) {
                data += start ? start_word : plain_word;
            }
            EXPECT_EQ(stopped(data, 1, block), data.substr(0, expected_end(starts, block)))
                << "blocks of " << block << ", start at word " << place;
        }
    }
}

TEST(RdtpStop, ContinuationCountsWhatWasCutOff) {
    const std::string data = repeat(plain_word, 6) + start_word + repeat(plain_word, 5);
    const scripted_stream s({{chunked_reply + "48 continuation-token=T\n" + data + "EOF\n"}},
                            address, "", 256);
    s.connection->open();
    s.connection->stop();
    EXPECT_EQ(s.rest(256).size(), 20u);
    EXPECT_EQ(s.connection->continuation(), "T:48");
}

} // namespace
