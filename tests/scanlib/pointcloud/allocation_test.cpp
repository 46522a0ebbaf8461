#include "allocation_counter.hpp"
#include "recording_pointcloud.hpp"

#include <gtest/gtest.h>

using namespace scanlib;
using namespace scanlib::testing;

namespace {

/// Counts what is reported, and keeps nothing.
class counting_pointcloud : public pointcloud {
  public:
    counting_pointcloud() : pointcloud(true) {}
    int shots = 0;
    int echoes = 0;

  protected:
    void on_shot() override { ++shots; }
    void on_echo_ready(echo_position /*position*/) override { ++echoes; }
};

} // namespace

TEST(pointcloud_allocation, steady_state_allocates_nothing) {
    counting_pointcloud cloud;
    const auto geometry = packet_feeder::words_of<packets::device_geometry_writer>(
        [](auto& w) {
            w.laser_direction(2, 1.0F);
            w.mirror_axis_direction(0, 1.0F);
            w.element(0).normal(2, 1.0F);
        },
        1);
    auto shot = packet_feeder::words_of<packets::laser_shot_2angles_writer>([](auto&) {});
    const auto echo =
        packet_feeder::words_of<packets::echo_writer>([](auto& w) { w.range_counter(1000); });
    const auto line_stop = packet_feeder::words_of<packets::line_stop_writer>([](auto&) {});
    auto pps = packet_feeder::words_of<packets::pps_sync_writer>([](auto&) {});
    const auto dispatch = [&](const std::vector<std::uint32_t>& words) {
        cloud.dispatch(words.data(), words.data() + words.size());
    };
    const auto second = [&](std::uint32_t s) {
        pps[2] = s * 10000000;
        pps[3] = s * 1000;
        dispatch(pps);
        for (std::uint32_t i = 0; i < 200; ++i) {
            shot[2] = s * 10000000 + i * 50000;
            shot[3] = i;
            dispatch(shot);
            for (std::uint32_t e = 0; e < i % 20; ++e) {
                dispatch(echo);
            }
        }
        dispatch(line_stop);
    };
    dispatch(geometry);
    for (std::uint32_t s = 1; s < 8; ++s) {
        second(s);
    }
    const int echoes_before = cloud.echoes;
    const std::size_t before = allocation_count();
    for (std::uint32_t s = 8; s < 30; ++s) {
        second(s);
    }
    EXPECT_EQ(allocation_count(), before);
    EXPECT_EQ(cloud.echoes - echoes_before, 22 * 10 * 190);
}
