// The decoder against the plainest one that follows the format word by word, on any words and any
// sizes of reads.
#include <random>

#include <gtest/gtest.h>

#include "streams.hpp"

namespace {

using namespace streams;

struct outcome {
    packets all;
    std::vector<std::uint64_t> offsets;
    std::string end; ///< text of the failure, empty for a clean end
    bool operator==(const outcome&) const = default;
};

/// One word at a time over the whole stream.
outcome plain(const words& w) {
    outcome o;
    std::size_t i = 0;
    while (i < w.size()) {
        if (w[i] <= 0xFFFFFF00u) {
            o.end = "Start escape missing!";
            return o;
        }
        words packet{w[i++]};
        while (i < w.size() && w[i] <= 0xFFFFFF00u) {
            if (w[i] == 0xFFFFFF00u) {
                if (++i == w.size()) {
                    break;
                }
                packet.push_back(~w[i++]);
            } else {
                packet.push_back(w[i++]);
            }
        }
        o.all.push_back(packet);
        o.offsets.push_back(i * 4);
    }
    return o;
}

outcome decoded(const words& w, std::uint64_t largest_read) {
    outcome o;
    auto d = decoder(bytes(w), false, largest_read);
    scanlib::basic_buffer p;
    o.end = failure([&] {
        for (d.get(p); !p.empty(); d.get(p)) {
            o.all.push_back(words_of(p));
            o.offsets.push_back(d.tell());
        }
    });
    o.end = o.end == "no failure" ? "" : o.end;
    return o;
}

class Reference : public testing::TestWithParam<int> {};

TEST_P(Reference, DecoderAgreesOnRandomStreamsReadInPiecesOfAnySize) {
    std::mt19937 random(static_cast<unsigned>(GetParam()));
    for (int round = 0; round < 60; ++round) {
        words w(random() % 4000);
        const unsigned starts = 1 + static_cast<unsigned>(random() % 400);
        for (auto& word : w) {
            const auto dice = random();
            word = dice % starts == 0 ? 0xFFFFFF01u + static_cast<std::uint32_t>(random() % 255)
                   : dice % 37 == 1   ? 0xFFFFFF00u
                                      : static_cast<std::uint32_t>(random());
        }
        if (!w.empty() && random() % 8 != 0) {
            w[0] = 0xFFFFFFFF;
        }
        const outcome expected = plain(w);
        for (const std::uint64_t step : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 64u, 1000u, 100000u}) {
            const outcome found = decoded(w, step);
            ASSERT_EQ(found.all, expected.all) << "step " << step;
            ASSERT_EQ(found.offsets, expected.offsets) << "step " << step;
            ASSERT_EQ(found.end, expected.end) << "step " << step;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Reference, testing::Range(1, 9));

} // namespace
