// The scan for the header packet against one that goes byte by byte.
#include "header_scan.hpp"

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using bytes = std::vector<unsigned char>;

const bytes start{0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x01, 0x00};

/// One byte at a time, words built most significant byte first.
class slow_scan {
  public:
    std::size_t find(const char* data, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i) {
            word_ = word_ << 8 | static_cast<unsigned char>(data[i]);
            if (++count_ < 4) {
                continue;
            }
            bool found = false;
            if (looking_for_start_) {
                looking_for_start_ = word_ != 0xFFFFFFFF;
            } else {
                looking_for_start_ = true;
                found = word_ == 0x00000100;
            }
            word_ = 0;
            count_ = 0;
            if (found) {
                return i + 1;
            }
        }
        return 0;
    }

  private:
    std::uint32_t word_ = 0;
    std::uint32_t count_ = 0;
    bool looking_for_start_ = true;
};

/// Offsets behind all matches, where the stream comes in pieces of these sizes, over and over.
template<class Scan>
std::vector<std::size_t> matches(const bytes& stream, const std::vector<std::size_t>& pieces,
                                 Scan scan = Scan()) {
    std::vector<std::size_t> found;
    std::size_t piece = 0;
    for (std::size_t at = 0; at < stream.size();) {
        const std::size_t n = std::min(pieces[piece++ % pieces.size()], stream.size() - at);
        // A piece of its own, so that reading beyond it shows.
        const std::vector<char> own(stream.begin() + static_cast<std::ptrdiff_t>(at),
                                    stream.begin() + static_cast<std::ptrdiff_t>(at + n));
        for (std::size_t done = 0; done < n;) {
            const std::size_t k = scan.find(own.data() + done, n - done);
            if (k == 0) {
                break;
            }
            done += k;
            found.push_back(at + done);
        }
        at += n;
    }
    return found;
}

std::vector<std::size_t> fast(const bytes& stream, const std::vector<std::size_t>& pieces) {
    return matches<scanlib::header_scan>(stream, pieces);
}

bytes joined(const std::vector<bytes>& parts) {
    bytes all;
    for (const bytes& p : parts) {
        all.insert(all.end(), p.begin(), p.end());
    }
    return all;
}

TEST(HeaderScan, FindsTheStartOnAnyWordAtAnyPieceSize) {
    for (std::size_t words = 0; words < 300; words += 7) {
        const bytes stream = joined({bytes(words * 4), start, bytes(40)});
        for (const std::size_t piece : {1u, 2u, 3u, 5u, 8u, 64u, 2732u}) {
            EXPECT_EQ(fast(stream, {piece}), (std::vector<std::size_t>{words * 4 + 8}))
                << words << " words, pieces of " << piece;
        }
    }
}

TEST(HeaderScan, MatchThatSpansTwoPiecesIsFoundAtEverySplit) {
    const bytes stream = joined({bytes(16), start, bytes(16)});
    for (std::size_t split = 1; split < stream.size(); ++split) {
        EXPECT_EQ(fast(stream, {split, stream.size()}), (std::vector<std::size_t>{24})) << split;
    }
}

TEST(HeaderScan, StartOffAWordIsNotFound) {
    for (const std::size_t off : {1u, 2u, 3u, 5u}) {
        EXPECT_TRUE(fast(joined({bytes(off), start, bytes(40)}), {1000}).empty()) << off;
    }
}

TEST(HeaderScan, HeaderBehindTwoStartWordsGoesUnnoticed) {
    const bytes ones(4, 0xFF);
    bytes run;
    for (int n = 1; n < 80; ++n) {
        run = joined({run, ones});
        const bytes stream = joined({bytes(8), run, {0x00, 0x00, 0x01, 0x00}});
        for (const std::size_t piece : {3u, 4u, 12u, 1000u}) {
            EXPECT_EQ(fast(stream, {piece}).size(), n % 2 == 1 ? 1u : 0u) << n << ", " << piece;
        }
    }
}

TEST(HeaderScan, RealignmentBeginsAWord) {
    scanlib::header_scan scan;
    const char odd[] = "abc";
    EXPECT_EQ(scan.find(odd, 3), 0u);
    scan.realign();
    EXPECT_EQ(scan.find(reinterpret_cast<const char*>(start.data()), start.size()), 8u);
}

TEST(HeaderScan, AgreesWithTheSlowOneOnRandomStreamsAndPieces) {
    std::mt19937 random(3);
    const std::vector<bytes> parts{{0xFF, 0xFF, 0xFF, 0xFF},
                                   {0x00, 0x00, 0x01, 0x00},
                                   {0x00, 0x00, 0x00, 0x00},
                                   {0xFF, 0xFF, 0xFF, 0x00},
                                   {0x00, 0x01, 0x00, 0x00},
                                   {0xFF},
                                   bytes(400, 7)};
    std::size_t found = 0;
    for (int run = 0; run < 3000; ++run) {
        bytes stream;
        const std::size_t count = random() % 60;
        for (std::size_t i = 0; i < count; ++i) {
            // Mostly words that matter, sometimes what shifts or separates them.
            const bytes& part = parts[random() % 100 < 95 ? random() % 3 : random() % parts.size()];
            stream.insert(stream.end(), part.begin(), part.end());
        }
        std::vector<std::size_t> pieces(1 + random() % 5);
        for (std::size_t& n : pieces) {
            n = 1 + random() % (run % 2 == 0 ? 12 : 3000);
        }
        const auto expected = matches<slow_scan>(stream, {1});
        ASSERT_EQ(fast(stream, pieces), expected) << run;
        const scanlib::header_scan common(scanlib::header_scan::registers::common);
        ASSERT_EQ(matches(stream, pieces, common), expected) << run;
        found += expected.size();
    }
    EXPECT_GT(found, 1000u);
}

} // namespace
