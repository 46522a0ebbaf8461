#include "packed_stream.hpp"
#include "scanlib/pointcloud/allocation_counter.hpp"

#include <gtest/gtest.h>

using namespace scanlib;
using namespace scanlib::testing;

namespace {

/// Counts what comes, and keeps nothing.
class counting_reader : public compressed_packets {
  public:
    counting_reader() : compressed_packets(false) {}
    std::uint64_t shots = 0;
    std::uint64_t echoes = 0;
    std::uint64_t blocks = 0;

    void on_laser_shot(packets::laser_shot&) override { ++shots; }
    void on_laser_shot_2angles_rad(packets::laser_shot_2angles_rad&) override { ++shots; }
    void on_laser_shot_2angles_hr(packets::laser_shot_2angles_hr&) override { ++shots; }
    void on_echo(packets::echo&) override { ++echoes; }
    void on_sbl_dg_channel_data_compressed(packets::sbl_dg_channel_data_compressed&,
                                           const std::uint32_t*) override {
        ++blocks;
    }
};

class Allocation : public ::testing::TestWithParam<packed_form> {};

} // namespace

TEST_P(Allocation, SteadyStateAllocatesNothing) {
    const auto packets = packets_of([](packet_emitter& emitter) {
        packed_writer writer(emitter, GetParam());
        const std::vector<std::uint32_t> samples(30);
        for (std::uint32_t i = 0; i < 5000; ++i) {
            writer.shot({100 * i, i, 0, 0});
            if (GetParam() == packed_form::shot_echo_blocks) {
                writer.block({0, 5, 0, 0, samples});
            }
            for (std::uint32_t e = 0; e < i % 6; ++e) {
                writer.echo({i + 1000 * e, 0, 0, 0, 0});
            }
        }
        writer.flush();
    });
    counting_reader reader;
    feed(reader, packets);
    const std::uint64_t shots = reader.shots, echoes = reader.echoes, blocks = reader.blocks;
    EXPECT_EQ(shots, 5000u);
    const std::size_t before = allocation_count();
    feed(reader, packets);
    EXPECT_EQ(allocation_count(), before);
    EXPECT_EQ(reader.shots, 2 * shots);
    EXPECT_EQ(reader.echoes, 2 * echoes);
    EXPECT_EQ(reader.blocks, 2 * blocks);
    EXPECT_EQ(blocks, GetParam() == packed_form::shot_echo_blocks ? 5000u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Forms, Allocation,
                         ::testing::Values(packed_form::packed, packed_form::packed_rad,
                                           packed_form::packed_hr, packed_form::shot_echo,
                                           packed_form::shot_echo_blocks));
