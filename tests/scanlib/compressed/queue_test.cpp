// How shots and echoes of separate packets meet.
#include "expansion_recorder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace scanlib;
using scanlib::testing::bit_text;
using scanlib::testing::expansion_recorder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

bit_text key(std::int64_t time, std::int64_t count) {
    return bit_text(4).put(0, 32, time).put(32, 8, count);
}

bit_text hr_key(std::int64_t time, std::int64_t count) {
    return bit_text(4).put(0, 64, time).put(64, 8, count);
}

/// A frame of one shot.
bit_text frame(std::int64_t time_delta, std::int64_t count) {
    return bit_text(2).put(0, 8, time_delta).put(8, 8, count).put(48, 2, -2);
}

bit_text rad_frame(std::int64_t time_delta, std::int64_t count) {
    return bit_text(2).put(0, 8, time_delta).put(8, 8, count);
}

bit_text hr_frame(std::int64_t time_delta, std::int64_t count) {
    return bit_text(2).put(0, 28, time_delta).put(28, 4, count);
}

/// A frame of `n` echoes, each one range unit farther than the one before.
bit_text echoes(std::size_t n) {
    bit_text t(2 * n);
    for (std::size_t i = 0; i < n; ++i) {
        t.put(64 * i, 23, 1);
    }
    return t;
}

constexpr packet_id key_shot{45, 0};
constexpr packet_id frame_shot{46, 0};
constexpr packet_id frame_echo{48, 0};
constexpr packet_id key_shot_rad{51, 0};
constexpr packet_id frame_shot_rad{52, 0};
constexpr packet_id key_shot_hr{63, 0};
constexpr packet_id frame_shot_hr{64, 0};
constexpr packet_id key_echo_hr{65, 0};
constexpr packet_id frame_echo_hr{66, 0};
constexpr packet_id frame_echo_hr_1{93, 0};

std::string echo(int range) {
    return "echo " + std::to_string(range) + " 0 0 0 0";
}

} // namespace

TEST(Queues, MissingEchoComesOutOfTheNextFlushBeforeAnyLaterShot) {
    expansion_recorder r;
    r.run(key_shot, key(0, 0));
    EXPECT_THAT(r.run(frame_echo, echoes(2)), IsEmpty());
    EXPECT_THAT(r.run(frame_shot, frame(9, 3)),
                ElementsAre("2angles 0", "1angle 0", "shot 9", echo(1), echo(2)));
    EXPECT_THAT(r.run(frame_shot, frame(1, 0)), IsEmpty());
    EXPECT_THAT(r.run(frame_echo, echoes(1)),
                ElementsAre(echo(3), "2angles 0", "1angle 0", "shot 10"));
}

TEST(Queues, ShotsAndEchoesMeetInWhateverOrderTheirPacketsCome) {
    std::vector<std::string> all[2];
    for (const bool shots_first : {true, false}) {
        expansion_recorder r;
        auto& out = all[shots_first ? 1 : 0];
        const auto run = [&](packet_id id, const bit_text& payload) {
            for (const auto& call : r.run(id, payload)) {
                out.push_back(call);
            }
        };
        run(key_shot, key(100, 0));
        for (int i = 0; i < 5; ++i) {
            if (shots_first) {
                run(frame_shot, frame(3, i));
                run(frame_echo, echoes(static_cast<std::size_t>(i)));
            } else {
                run(frame_echo, echoes(static_cast<std::size_t>(i)));
                run(frame_shot, frame(3, i));
            }
        }
    }
    EXPECT_EQ(all[0].size(), 6u * 3 + 10);
    EXPECT_EQ(all[0], all[1]);
}

TEST(Queues, KeyShotDropsQueuedEchoesAndShotsAndCountsThem) {
    expansion_recorder r;
    r.run(key_shot, key(0, 1));
    r.run(frame_shot, frame(1, 1));
    r.run(frame_echo, echoes(1)); // the key's; the frame's shot is delivered, its echo owed
    r.run(frame_shot, frame(1, 0));
    EXPECT_THAT(r.run(key_shot, key(50, 0)), ElementsAre("2angles 0", "1angle 0", "shot 50"));
    EXPECT_EQ(r.losses.count(loss::packed_leftover), 1u);
    r.run(frame_echo, echoes(3));
    EXPECT_THAT(r.run(key_shot, key(60, 1)), ElementsAre("2angles 0", "1angle 0", "shot 60"));
    EXPECT_EQ(r.losses.count(loss::packed_leftover), 4u);
    // The accumulator went on: these are echoes 5 and on.
    EXPECT_THAT(r.run(frame_echo, echoes(1)), ElementsAre(echo(5)));
}

TEST(Queues, KeyShotWithoutEchoesSinceTheLastKeyDropsNothing) {
    expansion_recorder r;
    r.run(key_shot, key(1, 2));
    EXPECT_THAT(r.run(key_shot, key(2, 0)), IsEmpty());
    EXPECT_THAT(r.run(frame_echo, echoes(2)),
                ElementsAre(echo(1), echo(2), "2angles 0", "1angle 0", "shot 2"));
    EXPECT_EQ(r.losses.count(loss::packed_leftover), 0u);
}

TEST(Queues, KeyShotBehindADroppingOneDropsNothingMore) {
    expansion_recorder r;
    r.run(key_shot, key(1, 0));
    r.run(frame_echo, echoes(1));
    r.run(key_shot, key(2, 2)); // drops the echo; no echo has come since
    EXPECT_THAT(r.run(key_shot, key(3, 0)), IsEmpty());
    EXPECT_THAT(r.run(frame_echo, echoes(2)),
                ElementsAre(echo(2), echo(3), "2angles 0", "1angle 0", "shot 3"));
}

TEST(Queues, FrameShotBeforeAnyKeyIsDroppedAndCounted) {
    expansion_recorder r;
    EXPECT_THAT(r.run(frame_shot, frame(1, 0)), IsEmpty());
    EXPECT_THAT(r.run(frame_shot_rad, rad_frame(1, 0)), IsEmpty());
    EXPECT_THAT(r.run(frame_shot_hr, hr_frame(1, 0)), IsEmpty());
    EXPECT_EQ(r.losses.count(loss::packed_shot_without_key), 3u);
    EXPECT_THAT(r.run(key_shot, key(5, 0)), ElementsAre("2angles 0", "1angle 0", "shot 5"));
}

TEST(Queues, KeyOfOneFormLetsFramesOfTheOthersThrough) {
    expansion_recorder r;
    r.run(key_shot_hr, hr_key(1000, 0));
    EXPECT_THAT(r.run(frame_shot, frame(7, 0)), ElementsAre("2angles 0", "1angle 0", "shot 7"));
}

TEST(Queues, EchoesBeforeTheFirstKeyMoveTheAccumulatorButAreDropped) {
    expansion_recorder r;
    EXPECT_THAT(r.run(frame_echo, echoes(4)), IsEmpty());
    EXPECT_EQ(r.losses.count(loss::echo_without_shot), 4u);
    r.run(key_shot, key(5, 1));
    EXPECT_THAT(r.run(frame_echo, echoes(1)), ElementsAre(echo(5)));
}

TEST(Queues, HrKindsFlushTheHrQueueOnly) {
    expansion_recorder r;
    r.run(key_shot, key(1, 1)); // owes an echo
    r.run(frame_shot, frame(1, 0));
    EXPECT_THAT(r.run(frame_shot_hr, hr_frame(9, 0)), IsEmpty());
    // The echo of an hr packet pays what is owed, then lets the hr shot go, not the plain one.
    EXPECT_THAT(r.run(key_echo_hr, bit_text(3).put(0, 32, 70)), ElementsAre(echo(70), "hr 9 0 0"));
    EXPECT_THAT(r.run(frame_echo_hr_1, bit_text(0)), IsEmpty());
    EXPECT_THAT(r.run(frame_echo, bit_text(0)), ElementsAre("2angles 0", "1angle 0", "shot 2"));
}

TEST(Queues, PlainKindsFlushThePlainThenTheRadQueue) {
    expansion_recorder r;
    r.run(key_shot, key(1, 1));
    r.run(frame_shot_rad, rad_frame(2, 0));
    r.run(frame_shot, frame(3, 0));
    r.run(frame_shot_hr, hr_frame(4, 0));
    EXPECT_THAT(r.run(frame_echo, echoes(1)),
                ElementsAre(echo(1), "2angles 0", "1angle 0", "shot 4", "rad 2 0 0 0"));
    EXPECT_THAT(r.run(frame_echo_hr, bit_text(0)), ElementsAre("hr 4 0 0"));
}

TEST(Queues, RadShotsWaitForTheirEchoes) {
    expansion_recorder r;
    EXPECT_THAT(r.run(key_shot_rad, key(1, 2)), ElementsAre("rad 1 0 0 0"));
    r.run(frame_shot_rad, rad_frame(1, 1));
    EXPECT_THAT(r.run(frame_echo, echoes(3)),
                ElementsAre(echo(1), echo(2), "rad 2 0 0 0", echo(3)));
}

TEST(Queues, AccumulatorsKeepTheirValuesBetweenPackets) {
    expansion_recorder r;
    r.run(key_shot_hr, hr_key(1ll << 40, 0));
    r.run(frame_shot_hr, hr_frame(10, 0));
    EXPECT_THAT(r.run(frame_shot_hr, hr_frame(10, 0)),
                ElementsAre("hr " + std::to_string((1ll << 40) + 20) + " 0 0"));
}

TEST(Queues, EchoesThatNoShotClaimsNeedBoundedMemory) {
    expansion_recorder r;
    r.run(key_shot, key(1, 0));
    const bit_text many = echoes(16383);
    for (std::size_t n = 0; n <= compressed_packets::queue_limit; n += 16383) {
        EXPECT_THAT(r.run(frame_echo, many), IsEmpty());
    }
    const std::size_t sent = (compressed_packets::queue_limit / 16383 + 1) * 16383;
    EXPECT_EQ(r.losses.count(loss::packed_queue_full), sent - compressed_packets::queue_limit);
    // The oldest ones are those that stay.
    EXPECT_THAT(r.run(frame_shot, frame(1, 2)),
                ElementsAre("2angles 0", "1angle 0", "shot 2", echo(1), echo(2)));
}

TEST(Queues, ShotsThatGetNoEchoNeedBoundedMemory) {
    expansion_recorder r;
    r.run(key_shot_hr, hr_key(0, 1));
    const bit_text many = bit_text(2 + 16383).put(0, 28, 1);
    for (std::size_t n = 0; n <= compressed_packets::queue_limit; n += 16384) {
        r.run(frame_shot_hr, many);
    }
    EXPECT_EQ(r.losses.count(loss::packed_queue_full), 16384u);
    EXPECT_EQ(r.run(key_echo_hr, bit_text(3)).size(), 1 + compressed_packets::queue_limit);
}

TEST(Queues, WholeFrameWithTheMostEchoesPassesTheQueue) {
    expansion_recorder r;
    r.run(key_shot, key(0, 0));
    bit_text shots((48 + 16383 * 16 + 31) / 32);
    shots.put(8, 8, 255);
    for (std::size_t i = 0; i < 16383; ++i) {
        shots.put(48 + 16 * i + 12, 4, 15);
    }
    const std::size_t claimed = 255 + 16383 * 15;
    std::size_t delivered = 0;
    for (std::size_t n = 0; n < claimed; n += 16383) {
        delivered += r.run(frame_echo, echoes(16383)).size();
    }
    EXPECT_EQ(delivered, 0u);
    EXPECT_EQ(r.run(frame_shot, shots).size(), 3u * 16384 + claimed);
    EXPECT_EQ(r.losses.count(loss::packed_queue_full), 0u);
}

TEST(PacketTotal, CountsAPacketAsWhatItExpandedTo) {
    expansion_recorder r;
    r.run({31, 0}, {0}); // meas_start: no expansion
    EXPECT_EQ(r.packet_total, 1u);
    r.run(key_shot, key(1, 0)); // itself and its shot count once, three calls or not
    EXPECT_EQ(r.packet_total, 2u);
    r.run(frame_echo, echoes(2)); // nothing comes out yet
    EXPECT_EQ(r.packet_total, 3u);
    r.run(frame_shot, frame(1, 2)); // a shot and two echoes
    EXPECT_EQ(r.packet_total, 6u);
    EXPECT_EQ(r.packet_count, 4u);
}

TEST(PacketTotal, CountsSubpackages) {
    expansion_recorder r;
    // key shot, key echo, delta echo
    r.run({86, 0}, bit_text(8).put(0, 3, 1).put(96, 3, 4).put(192, 3, 5));
    EXPECT_EQ(r.packet_total, 3u);
    r.run({86, 0}, bit_text(1));
    EXPECT_EQ(r.packet_total, 4u);
}

TEST(Synthetic, CallNoOnPacketAndIgnoreTheSelection) {
    expansion_recorder r;
    r.selection.set(packet_index::laser_shot_2angles, false);
    r.selection.set(packet_index::laser_shot, false);
    EXPECT_THAT(r.run(key_shot, key(5, 0)), ElementsAre("2angles 0", "1angle 0", "shot 5"));
    EXPECT_THAT(r.attempts, ElementsAre(key_shot));
}

TEST(Synthetic, UnselectedPackedKindIsNotExpanded) {
    expansion_recorder r;
    r.selection.set(packet_index::packed_key_laser_shot_2angles, false);
    EXPECT_THAT(r.run(key_shot, key(5, 0)), IsEmpty());
    EXPECT_EQ(r.packet_total, 1u);
}

TEST(Synthetic, FrameShorterThanItsFixedPartThrows) {
    expansion_recorder r;
    EXPECT_THROW(r.run(frame_shot, {1}), std::range_error);
    EXPECT_EQ(r.losses.count(loss::short_sequence), 1u);
}

TEST(Synthetic, ShortKeyReadsItsMissingBitsAsZero) {
    expansion_recorder r;
    EXPECT_THAT(r.run(key_shot, {77}), ElementsAre("2angles 0", "1angle 0", "shot 77"));
    EXPECT_EQ(r.losses.count(loss::short_payload), 1u);
}

TEST(Synthetic, PackedSdfHasNoExpansion) {
    expansion_recorder r;
    EXPECT_THAT(r.run({108, 0}, {1, 2, 3}), IsEmpty());
}

TEST(Synthetic, ShotThatAHandlerRefusesStaysDeliveredOnce) {
    struct refusing : expansion_recorder {
        bool refuse = true;
        void on_laser_shot_2angles(packets::laser_shot_2angles& p) override {
            if (std::exchange(refuse, false)) {
                throw std::runtime_error("refused");
            }
            expansion_recorder::on_laser_shot_2angles(p);
        }
    } r;
    EXPECT_THROW(r.run(key_shot, key(5, 0)), std::runtime_error);
    // It is still the oldest of its queue, and comes with the next flush.
    EXPECT_THAT(r.run(frame_echo, bit_text(0)), ElementsAre("2angles 0", "1angle 0", "shot 5"));
}
