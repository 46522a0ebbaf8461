// What a wave allocates: nothing in steady state, and a bounded amount ever.
#include "live_memory.hpp"
#include "recording_wave.hpp"

#include <gtest/gtest.h>

using namespace scanlib;
using namespace scanlib::testing;

namespace {

/// Open samples and spare ones, twice for the room that lists grow by, and the blocks themselves.
constexpr std::size_t most_bytes = std::size_t{128} << 20;

/// Counts what is handed over, and keeps nothing.
class counting_wave : public fed_wave {
  public:
    using fed_wave::fed_wave;
    std::size_t records = 0;
    std::size_t samples = 0;

  protected:
    void on_shot() override {}
    void on_wave(wave_block& block) override {
        records += block.records.size();
        for (const wave_record& r : block.records) {
            samples += r.samples.size();
        }
    }
};

/// A shot with its block of three channels, of lengths that change from shot to shot.
struct steady_stream {
    std::vector<std::uint32_t> header =
        packet_feeder::words_of<packets::sbl_dg_channel_header_1_writer>([](auto&) {}, 2);
    std::vector<std::vector<std::uint32_t>> data;
    std::vector<std::uint32_t> shot =
        packet_feeder::words_of<packets::laser_shot_2angles_hr_writer>([](auto&) {});
    std::uint64_t ticks = 0;

    explicit steady_stream(bool compressed) {
        for (std::uint32_t length = 20; length < 80; ++length) {
            std::vector<std::uint32_t> words{0xFFFFFFFF, (compressed ? 90U : 89U) << 16,
                                             length % 3 == 2 ? 3U << 16 : length % 3 << 16};
            words[2] |= compressed ? 0 : 12U << 25;
            // Groups of width 3 in 28 bits of each word do not matter here, any bits do.
            words.resize(3 + length, 0x11111111);
            data.push_back(words);
        }
    }

    void run(wave& w, std::size_t shots) {
        for (std::size_t i = 0; i < shots; ++i) {
            ticks += 2048 * 1000 + 7;
            // A block may come ahead of the shot before it.
            header[2] = shot[2] = static_cast<std::uint32_t>(ticks);
            header[3] = shot[3] = static_cast<std::uint32_t>(ticks >> 32);
            feed(w, header);
            for (std::size_t c = 0; c < 3; ++c) {
                feed(w, data[(i * 3 + c) % data.size()]);
            }
            if (i % 10 != 9) { // each tenth block has no shot
                feed(w, shot);
            }
        }
    }

    static void feed(wave& w, const std::vector<std::uint32_t>& words) {
        w.dispatch(words.data(), words.data() + words.size());
    }
};

} // namespace

TEST(wave_memory, steady_state_allocates_nothing) {
    for (const bool compressed : {false, true}) {
        for (const bool uncompress : {false, true}) {
            counting_wave w(false, uncompress);
            w.describe();
            steady_stream stream(compressed);
            stream.run(w, 2000);
            const std::size_t before = allocation_count();
            const std::size_t records = w.records;
            const std::size_t samples = w.samples;
            stream.run(w, 5000);
            EXPECT_EQ(allocation_count(), before) << compressed << uncompress;
            EXPECT_EQ(w.records - records, 4500U * 3);
            EXPECT_GT(w.samples - samples, 4500U * 3 * 20);
        }
    }
}

TEST(wave_memory, blocks_that_are_never_paired_take_a_bounded_amount) {
    counting_wave w(false, false);
    w.describe();
    const std::size_t before = live_bytes();
    for (const std::size_t length : {std::size_t{0}, std::size_t{3}, std::size_t{200},
                                     std::size_t{5000}, std::size_t{60000}}) {
        const samples_list samples(length);
        for (std::uint64_t i = 1; i <= wave::open_block_limit + 100; ++i) {
            w.header_hr(i);
            w.data(0, 0, samples);
            if (length > 10000 && i > 1000) {
                break;
            }
        }
        EXPECT_LE(live_bytes() - before, most_bytes) << length;
    }
}

TEST(wave_memory, great_lists_under_small_records_do_not_pile_up) {
    counting_wave w(false, false);
    w.describe();
    const std::size_t before = live_bytes();
    const samples_list great(100000);
    std::uint64_t ticks = 0;
    for (int round = 0; round < 30; ++round) {
        for (int i = 0; i < 60; ++i) { // small records take the lists that are spare
            w.header_hr(++ticks);
            w.data(0, 0, {1});
        }
        const std::uint64_t small = ticks;
        for (int i = 0; i < 60; ++i) {
            w.header_hr(++ticks);
            w.data(0, 0, great);
        }
        w.whole_shot_hr(small); // drops the small ones alone
        ASSERT_LE(live_bytes() - before, most_bytes) << round;
        w.whole_shot_hr(ticks);
    }
}

TEST(wave_memory, blocks_of_many_records_do_not_pile_up) {
    counting_wave w(false, false);
    w.describe();
    const std::size_t before = live_bytes();
    std::uint64_t ticks = 0;
    for (int round = 0; round < 40; ++round) {
        for (int i = 0; i < round; ++i) {
            w.header_hr(++ticks);
        }
        w.header_hr(++ticks);
        for (int i = 0; i < 50000; ++i) {
            w.raw(19, {0});
        }
        w.whole_shot_hr(ticks);
        ASSERT_LE(live_bytes() - before, most_bytes) << round;
    }
}
