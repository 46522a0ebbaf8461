// Damaged packets of every packed form neither fault nor ask for memory without bound. Sanitised
// builds are the judges of reads past an end.
#include "packed_stream.hpp"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>

using namespace scanlib;
using namespace scanlib::testing;

namespace {

/// Counts what comes, and reads every field of it.
class damage_reader : public compressed_packets {
  public:
    explicit damage_reader(bool skip_sample_blocks) : compressed_packets(skip_sample_blocks) {
        set_loss_log(&losses);
    }
    loss_log losses;
    std::uint64_t shots = 0;
    std::uint64_t echoes = 0;
    std::uint64_t sum = 0;

    void on_laser_shot(packets::laser_shot& p) override { take(p, shots); }
    void on_laser_shot_2angles_rad(packets::laser_shot_2angles_rad& p) override { take(p, shots); }
    void on_laser_shot_2angles_hr(packets::laser_shot_2angles_hr& p) override { take(p, shots); }
    void on_echo(packets::echo& p) override { take(p, echoes); }
    void on_sbl_dg_channel_header_1(packets::sbl_dg_channel_header_1& p,
                                    const std::uint32_t* end) override {
        take(p, sum);
        EXPECT_EQ(p.end_of_words(), end);
    }
    void on_sbl_dg_channel_data_compressed(packets::sbl_dg_channel_data_compressed& p,
                                           const std::uint32_t* end) override {
        take(p, sum);
        EXPECT_EQ(p.end_of_words(), end);
    }

  private:
    template<class View>
    void take(const View& p, std::uint64_t& count) {
        ++count;
        for (const std::uint32_t* w = p.words(); w != p.end_of_words(); ++w) {
            sum += *w;
        }
    }
};

/// A small stream of the form, with sample blocks where it has them.
std::vector<words> sample(packed_form form, bool offsets) {
    return packets_of([&](packet_emitter& emitter) {
        packing_options options;
        options.echo_offsets = offsets;
        options.shots_per_key = 20;
        options.shots_per_packet = 8;
        packed_writer writer(emitter, form, options);
        const std::vector<std::uint32_t> samples(9, 0xA5A5A5A5);
        const packed_block_entry entry{5, 1000, 10};
        for (std::uint32_t i = 0; i < 64; ++i) {
            writer.shot({1000 + 97 * i, 3 * i, i / 7, 0});
            if (form == packed_form::shot_echo_blocks) {
                if (i % 3 != 0) {
                    writer.block_head({7, {&entry, 1}});
                }
                writer.block({3, 5, 2, 11, samples});
            }
            for (std::uint32_t e = 0; e < i % 4; ++e) {
                writer.echo({5000 + 31 * i + 900 * e, 100, 90, 0, 3});
            }
        }
        writer.flush();
    });
}

void dispatch(basic_packets& reader, const words& packet) {
    // A copy of the exact size, so that a read past its end is one past a heap block.
    const std::vector<std::uint32_t> exact(packet);
    try {
        reader.dispatch(exact.data(), exact.data() + exact.size());
    } catch (const std::runtime_error& e) {
        const std::string text = e.what();
        EXPECT_TRUE(text.starts_with("Unknown subpackage v") ||
                    text == "Missing data for sequence.")
            << text;
    }
}

class Damage : public ::testing::TestWithParam<std::tuple<packed_form, bool>> {
  protected:
    std::vector<words> packets = sample(std::get<0>(GetParam()), std::get<1>(GetParam()));
};

} // namespace

TEST_P(Damage, FlippedBitsLeaveTheReaderUsable) {
    std::mt19937 random(1);
    std::uint64_t heard = 0;
    for (int round = 0; round < 400; ++round) {
        damage_reader reader(round % 2 == 0);
        for (words w : packets) {
            for (unsigned flips = random() % 4; flips > 0; --flips) {
                w[2 + random() % (w.size() - 2)] ^= 1u << random() % 32;
            }
            dispatch(reader, w);
        }
        heard += reader.shots;
        // What comes behind the damage is read as ever, from the next key on.
        const std::uint64_t before = reader.shots;
        for (const words& w : packets) {
            dispatch(reader, w);
        }
        EXPECT_GE(reader.shots - before, 64u);
    }
    EXPECT_GT(heard, 400u);
}

TEST_P(Damage, PacketsCutAtEveryWordReadWithoutFault) {
    for (const words& w : packets) {
        for (std::size_t size = 1; size <= w.size(); ++size) {
            for (const bool skip : {false, true}) {
                damage_reader reader(skip);
                dispatch(reader, packets.front());
                dispatch(reader, {w.begin(), w.begin() + static_cast<std::ptrdiff_t>(size)});
                EXPECT_GE(reader.packet_total, 2u);
            }
        }
    }
}

TEST_P(Damage, RandomPayloadsOfEveryPackedKindReadWithoutFault) {
    std::mt19937 random(2);
    damage_reader reader(false);
    for (int round = 0; round < 2000; ++round) {
        words w = packets[random() % packets.size()];
        w.resize(2 + random() % 40);
        for (std::size_t i = 2; i < w.size(); ++i) {
            w[i] = static_cast<std::uint32_t>(random());
        }
        dispatch(reader, w);
    }
    EXPECT_GT(reader.packet_total, 2000u);
}

TEST_P(Damage, LostPacketsAreOverAtTheNextKey) {
    record_reader whole;
    feed(whole, packets);
    for (std::size_t lost = 0; lost < packets.size(); ++lost) {
        record_reader reader;
        for (std::size_t i = 0; i < packets.size(); ++i) {
            if (i != lost) {
                // Twice the length of a stream makes sure that a whole key follows.
                reader.dispatch(packets[i].data(), packets[i].data() + packets[i].size());
            }
        }
        reader.records.clear();
        feed(reader, packets);
        // What the damaged run still owed may come first.
        ASSERT_GE(reader.records.size(), whole.records.size());
        const auto tail = reader.records.end() - static_cast<std::ptrdiff_t>(whole.records.size());
        EXPECT_TRUE(std::equal(tail, reader.records.end(), whole.records.begin())) << lost;
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, Damage,
                         ::testing::Values(std::tuple{packed_form::packed, false},
                                           std::tuple{packed_form::packed_rad, false},
                                           std::tuple{packed_form::packed_hr, false},
                                           std::tuple{packed_form::packed_hr, true},
                                           std::tuple{packed_form::shot_echo, false},
                                           std::tuple{packed_form::shot_echo_blocks, false}));
