#include "allocation_counter.hpp"
#include "packet_feeder.hpp"
#include "scanlib/pointcloud.hpp"
#include "valid_streams.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <streambuf>

using namespace scanlib;
using namespace scanlib::testing;

namespace {

/// Counts what is reported, and keeps nothing.
class counting_pointcloud : public pointcloud {
  public:
    explicit counting_pointcloud(bool external_time = true) : pointcloud(external_time) {}
    int shots = 0;
    int echoes = 0;
    int pulses = 0;
    int mismatches = 0;
    int far = 0; ///< echoes of another shot than the newest

    void take(const packet_list& packets) {
        for (const stream_packet& p : packets) {
            words_.assign({0xFFFFFFFF, p.id.id << 16 | p.id.version});
            words_.insert(words_.end(), p.payload.begin(), p.payload.end());
            dispatch(words_.data(), words_.data() + words_.size());
        }
    }
    bool has_trigger() const { return dyntrig.present(); }

  protected:
    void on_shot() override { ++shots; }
    void on_gap_pulse() override { ++pulses; }
    void on_crc_mismatch(std::uint8_t, std::uint32_t, std::uint32_t) override { ++mismatches; }
    void on_echo_ready(echo_position position) override {
        ++echoes;
        far += newest_target().mta_zone != 0 ? 1 : 0;
        pointcloud::on_echo_ready(position);
    }

  private:
    std::vector<std::uint32_t> words_;
};

/// The part of a stream that tells no parameters: shots, echoes, and where they end.
packet_list running_part(const packet_list& stream) {
    const packet_mask& attributes = mask_of("attribute");
    packet_list running;
    for (const stream_packet& p : stream) {
        const bool told_once = attributes.test(index_of(p.id)) || p.id.id == 1 || p.id.id == 49;
        if (!told_once) {
            running.push_back(p);
        }
    }
    return running;
}

/// Takes `part` again and again; expects it to allocate only at first.
void expect_steady(counting_pointcloud& cloud, const packet_list& part) {
    for (int i = 0; i < 20; ++i) {
        cloud.take(part);
    }
    const std::size_t before = allocation_count();
    for (int i = 0; i < 200; ++i) {
        cloud.take(part);
    }
    EXPECT_EQ(allocation_count(), before);
}

/// Takes text and drops it.
class drain : public std::streambuf {
  public:
    std::streamsize taken = 0;

  protected:
    std::streamsize xsputn(const char* /*text*/, std::streamsize n) override {
        taken += n;
        return n;
    }
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

TEST(pointcloud_allocation, all_calibration_tables_and_a_notch_by_angle_allocate_nothing) {
    counting_pointcloud cloud(false);
    cloud.take(calibrated_stream());
    const int before = cloud.echoes;
    expect_steady(cloud, running_part(calibrated_stream()));
    EXPECT_EQ(cloud.echoes - before, 220 * 20);
}

TEST(pointcloud_allocation, near_range_table_allocates_nothing) {
    counting_pointcloud cloud(false);
    packet_list stream = calibrated_stream();
    std::erase_if(stream, [](const stream_packet& p) { return p.id == packet_id{146, 0}; });
    cloud.take(stream);
    const int before = cloud.echoes;
    expect_steady(cloud, running_part(stream));
    EXPECT_EQ(cloud.echoes - before, 220 * 20);
}

TEST(pointcloud_allocation, both_forms_of_the_dynamic_trigger_allocate_nothing) {
    for (const bool grids : {false, true}) {
        counting_pointcloud cloud(false);
        packet_list stream = triggered_stream();
        if (!grids) {
            std::erase_if(stream, [](const stream_packet& p) {
                return p.id == packet_id{148, 0} || p.id == packet_id{149, 0};
            });
        }
        cloud.take(stream);
        EXPECT_TRUE(cloud.has_trigger());
        const int before = cloud.echoes;
        expect_steady(cloud, running_part(stream));
        EXPECT_EQ(cloud.echoes - before, 220 * 20);
    }
}

TEST(pointcloud_allocation, zones_alternatives_checksums_gaps_and_rare_shots_allocate_nothing) {
    for (const bool alternatives : {false, true}) {
        counting_pointcloud cloud(false);
        const std::uint16_t zones[] = {1, 2, 3};
        if (alternatives) {
            cloud.set_mta_ambiguity(zones, 3, -100, 900);
        }
        cloud.take(zoned_stream());
        const int shots = cloud.shots;
        const int pulses = cloud.pulses;
        const int mismatches = cloud.mismatches;
        expect_steady(cloud, running_part(zoned_stream()));
        EXPECT_EQ(cloud.shots - shots, 220 * 14);
        EXPECT_EQ(cloud.pulses - pulses, 220 * 3);
        EXPECT_GT(cloud.mismatches, mismatches);
    }
}

TEST(pointcloud_allocation, far_zones_and_the_dynamic_trigger_together_allocate_nothing) {
    counting_pointcloud cloud(false);
    stream_builder parameters;
    parameters.begin().wheel();
    parameters.add<packets::mta_settings_writer>([](auto& w) {
        w.gate_low(200.0F);
        w.gate_high(900.0F);
        w.unambiguous_range(280.0F);
    });
    parameters.add<packets::dyntrig_writer>([](auto& w) { w.scale(1.0F); }, 1);
    cloud.take(parameters.take());
    stream_builder shots;
    for (std::uint64_t n = 0; n < 50; ++n) {
        shots.shot_hr(n);
        for (std::uint64_t e = 0; e < n % 5; ++e) {
            shots.echo(static_cast<std::int32_t>(5000 * (e + 1)));
        }
    }
    shots.add<packets::line_stop_writer>();
    expect_steady(cloud, shots.take());
    EXPECT_GT(cloud.far, 1000);
}

TEST(pointcloud_allocation, packed_forms_allocate_nothing) {
    counting_pointcloud cloud(false);
    cloud.take(packed_stream());
    const int shots = cloud.shots;
    const int echoes = cloud.echoes;
    const packet_list running = running_part(packed_stream());
    expect_steady(cloud, running);
    EXPECT_GE(cloud.shots - shots, 220 * 20);
    EXPECT_GE(cloud.echoes - echoes, 220 * 30);
}

TEST(pointcloud_allocation, every_scanner_model_allocates_nothing) {
    packet_list first_half;
    packet_list second_half;
    for (const stream_packet& p : geometry_stream()) {
        const bool second =
            !second_half.empty() || (p.id == packet_id{1, 0} && first_half.size() > 5);
        (second ? second_half : first_half).push_back(p);
    }
    counting_pointcloud cloud(false);
    for (const packet_list* half : {&first_half, &second_half}) {
        cloud.take(*half);
        const int before = cloud.echoes;
        expect_steady(cloud, running_part(*half));
        EXPECT_EQ(cloud.echoes - before, 220 * 50);
    }
}

TEST(pointcloud_allocation, fans_allocate_nothing) {
    counting_pointcloud cloud(false);
    cloud.take(fan_stream());
    const int before = cloud.echoes;
    expect_steady(cloud, running_part(fan_stream()));
    EXPECT_GE(cloud.echoes - before, 220 * 16);
}

TEST(pointcloud_allocation, text_rows_allocate_nothing) {
    counting_pointcloud cloud(false);
    drain rows;
    std::ostream sink(&rows);
    cloud.set_text_sink(&sink);
    cloud.take(calibrated_stream());
    expect_steady(cloud, running_part(calibrated_stream()));
    EXPECT_GT(rows.taken, 220 * 20 * 40);
}
