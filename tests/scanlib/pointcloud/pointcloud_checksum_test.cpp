#include "recording_pointcloud.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>

using namespace scanlib;
using namespace scanlib::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

/// The checksum bit by bit, most significant bit first.
std::uint32_t checksum(std::uint32_t crc, const std::vector<std::uint32_t>& words) {
    for (const std::uint32_t word : words) {
        for (int bit = 31; bit >= 0; --bit) {
            const bool out = (crc >> 31 != 0) != ((word >> bit & 1) != 0);
            crc = crc << 1 ^ (out ? 0x04C11DB7U : 0U);
        }
    }
    return crc;
}

struct checked_stream : fed_pointcloud {
    std::uint32_t crc = 0xFFFFFFFF; ///< of the echoes since the last check

    void begin(std::uint8_t context, std::initializer_list<packet_id> kinds) {
        feed<packets::crc32_header_writer>(
            [&](auto& w) {
                w.context(context);
                std::size_t i = 0;
                for (const packet_id kind : kinds) {
                    w.element(i).id(static_cast<std::uint16_t>(kind.id));
                    w.element(i).version(static_cast<std::uint16_t>(kind.version));
                    ++i;
                }
            },
            kinds.size());
    }
    void send_echo(std::int32_t range) {
        const auto words =
            packet_feeder::words_of<packets::echo_writer>([&](auto& w) { w.range_counter(range); });
        crc = checksum(crc, words);
        dispatch(words.data(), words.data() + words.size());
    }
    static std::vector<std::uint32_t> check_words(std::uint8_t context, std::uint32_t sequence,
                                                  std::uint32_t told) {
        return packet_feeder::words_of<packets::crc32_check_writer>([&](auto& w) {
            w.context(context);
            w.sequence(sequence);
            w.crc(told);
        });
    }
    void check(std::uint8_t context, std::uint32_t sequence, std::uint32_t told) {
        const auto words = check_words(context, sequence, told);
        dispatch(words.data(), words.data() + words.size());
        crc = 0xFFFFFFFF;
    }
};

constexpr packet_id echo_kind{42, 0};

} // namespace

TEST(pointcloud_checksums, first_check_only_starts_and_right_sums_pass) {
    checked_stream stream;
    stream.begin(0, {echo_kind});
    stream.send_echo(1);
    stream.check(0, 10, 12345);
    EXPECT_THAT(stream.mismatches, IsEmpty());
    for (std::uint32_t n = 11; n < 15; ++n) {
        stream.send_echo(static_cast<std::int32_t>(n));
        stream.shot(n);
        stream.send_echo(-5);
        stream.check(0, n, stream.crc);
    }
    EXPECT_THAT(stream.mismatches, IsEmpty());
}

TEST(pointcloud_checksums, mismatch_tells_context_and_both_sequences_and_the_old_one_stays) {
    checked_stream stream;
    stream.begin(3, {echo_kind});
    stream.check(3, 0xABCDEF, 0);
    stream.send_echo(1);
    stream.check(3, 11, stream.crc ^ 1);
    stream.send_echo(2);
    stream.check(3, 12, stream.crc ^ 0x80000000);
    stream.send_echo(3);
    stream.check(3, 13, stream.crc);
    stream.check(3, 14, 5);
    EXPECT_THAT(stream.mismatches, ElementsAre(recording_pointcloud::mismatch{3, 0xABCDEF, 11},
                                               recording_pointcloud::mismatch{3, 0xABCDEF, 12},
                                               recording_pointcloud::mismatch{3, 13, 14}));
    EXPECT_EQ(stream.log.count(loss::checksum_mismatch), 3U);
}

TEST(pointcloud_checksums, check_packet_counts_in_the_run_that_it_ends) {
    checked_stream stream;
    stream.begin(0, {echo_kind, {50, 0}});
    stream.check(0, 1, 0);
    stream.send_echo(7);
    // The sum that comes out right with the check packet itself behind the echo: each bit of the
    // sum told changes the sum found, so that it follows from 32 linear equations.
    const std::uint32_t ahead = stream.crc;
    const auto found = [&](std::uint32_t told) {
        return checksum(ahead, checked_stream::check_words(0, 2, told)) ^ told;
    };
    const std::uint32_t base = found(0);
    std::uint32_t rows[32];
    std::uint32_t masks[32];
    for (int i = 0; i < 32; ++i) {
        rows[i] = found(1U << i) ^ base;
        masks[i] = 1U << i;
    }
    std::uint32_t left = base;
    std::uint32_t told = 0;
    for (int i = 0; i < 32; ++i) {
        const std::uint32_t top = rows[i] & (0U - rows[i]);
        if (top == 0) {
            continue;
        }
        for (int k = 0; k < 32; ++k) {
            if (k != i && (rows[k] & top) != 0) {
                rows[k] ^= rows[i];
                masks[k] ^= masks[i];
            }
        }
        if ((left & top) != 0) {
            left ^= rows[i];
            told ^= masks[i];
        }
    }
    ASSERT_EQ(found(told), 0U) << "the equations have a solution";
    stream.check(0, 2, told);
    EXPECT_THAT(stream.mismatches, IsEmpty());
    stream.send_echo(7);
    stream.check(0, 3, stream.crc);
    EXPECT_EQ(stream.mismatches.size(), 1U) << "without itself the sum is wrong";
}

TEST(pointcloud_checksums, contexts_run_side_by_side) {
    checked_stream stream;
    stream.begin(0, {echo_kind});
    stream.begin(1, {{42, 0}, {111, 0}});
    stream.check(0, 1, 0);
    stream.check(1, 1, 0);
    const auto device = packet_feeder::words_of<packets::header_device_writer>([](auto&) {});
    std::uint32_t both = checksum(0xFFFFFFFF, device);
    stream.dispatch(device.data(), device.data() + device.size());
    stream.send_echo(5);
    const std::uint32_t echoes = stream.crc;
    both = checksum(
        both, packet_feeder::words_of<packets::echo_writer>([](auto& w) { w.range_counter(5); }));
    stream.check(0, 2, echoes);
    stream.check(1, 2, both);
    EXPECT_THAT(stream.mismatches, IsEmpty());
    stream.check(1, 3, both);
    EXPECT_THAT(stream.mismatches, ElementsAre(recording_pointcloud::mismatch{1, 2, 3}));
}

TEST(pointcloud_checksums, header_of_a_lower_context_drops_those_above_it) {
    checked_stream stream;
    stream.begin(0, {echo_kind});
    stream.begin(5, {echo_kind});
    stream.check(0, 1, 0);
    stream.check(5, 1, 0);
    stream.begin(1, {echo_kind});
    stream.check(5, 2, 99);
    EXPECT_THAT(stream.mismatches, IsEmpty()) << "nobody is left to find it";
    stream.check(0, 2, 99);
    EXPECT_EQ(stream.mismatches.size(), 1U) << "those below go on";
    stream.begin(5, {echo_kind});
    stream.check(5, 3, 99);
    EXPECT_EQ(stream.mismatches.size(), 1U) << "and begin anew when they come again";
}

TEST(pointcloud_checksums, header_of_a_context_begins_it_anew_with_its_kinds_only) {
    checked_stream stream;
    stream.begin(0, {echo_kind});
    stream.check(0, 1, 0);
    stream.begin(0, {{111, 0}});
    stream.check(0, 2, 99);
    EXPECT_THAT(stream.mismatches, IsEmpty());
    stream.send_echo(1);
    stream.check(0, 3, 0xFFFFFFFF);
    EXPECT_THAT(stream.mismatches, IsEmpty()) << "echoes no longer count";
}

TEST(pointcloud_checksums, versions_of_one_packet_each_run_it_through) {
    checked_stream stream;
    stream.begin(0, {{10, 2}, {10, 1}, {10, 0}});
    stream.check(0, 1, 0);
    const auto shot = packet_feeder::words_of<packets::laser_shot_2angles_writer>([](auto&) {});
    stream.dispatch(shot.data(), shot.data() + shot.size());
    stream.check(0, 2, checksum(checksum(checksum(0xFFFFFFFF, shot), shot), shot));
    EXPECT_THAT(stream.mismatches, IsEmpty()) << "one call ahead of each handler";
}

TEST(pointcloud_checksums, unknown_versions_cost_bounded_time) {
    checked_stream stream;
    stream.begin(0, {{0, 0}});
    const std::vector<std::uint32_t> far(1000, 0x2AFFFF);
    std::vector<std::uint32_t> words = far;
    words[0] = 0xFFFFFFFF;
    for (int i = 0; i < 200; ++i) {
        stream.dispatch(words.data(), words.data() + words.size());
    }
    EXPECT_GT(stream.log.count(loss::echo_without_shot), 0U) << "the known version is reached";
}

TEST(pointcloud_checksums, reset_forgets_them) {
    checked_stream stream;
    stream.begin(0, {echo_kind});
    stream.check(0, 1, 0);
    stream.reset();
    stream.check(0, 2, 99);
    EXPECT_THAT(stream.mismatches, IsEmpty());
}
