#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "driver.hpp"
#include "frontend/bundle_reader.hpp"
#include "frontend/recorded_console.hpp"
#include "scanlib/pointcloud/packet_feeder.hpp"
#include "scanlib/rxpmarker/streams.hpp"

namespace frontend_test {

/// Packets of a recording, one after the other.
class StreamBuilder {
  public:
    static constexpr std::uint32_t ticks_per_second = 10000000;
    static constexpr std::uint32_t ticks_at_2_s = 20000000;
    static constexpr int leading_packets = 6; ///< of a described, synchronised stream

    template<class Writer, class Fill>
    StreamBuilder& add(Fill&& fill, std::size_t elements = 0) {
        packets_.push_back(
            scanlib::testing::packet_feeder::words_of<Writer>(std::forward<Fill>(fill), elements));
        return *this;
    }
    template<class Writer>
    StreamBuilder& add() {
        return add<Writer>([](Writer&) {});
    }

    /// Identity, units, a wheel of one facet and a reflectance table: four packets.
    StreamBuilder& describe() {
        using namespace scanlib::packets;
        add<header_writer>([](auto& w) {
            w.serial("S1");
            w.type_id("T1");
            w.build("B1");
        });
        add<units_writer>([](auto& w) {
            w.range_unit(0.001F);
            w.line_circle_count(3600);
            w.frame_circle_count(3600);
            w.systime_unit(1e-07F);
        });
        add<device_geometry_writer>(
            [](auto& w) {
                w.laser_direction(2, 1.0F);
                w.mirror_axis_direction(0, 1.0F);
                w.element(0).normal(2, 1.0F);
            },
            1);
        return add<reftab_table_writer>(
            [](auto& w) {
                w.step_counter(1000);
                w.element(0, 1);
                w.element(1, 2);
            },
            2);
    }
    /// Two pairs a second apart, the latter at 2 s.
    StreamBuilder& synchronise() {
        return pps(ticks_at_2_s - ticks_per_second, 1000).pps(ticks_at_2_s, 2000);
    }
    StreamBuilder& pps(std::uint32_t ticks, std::uint32_t milliseconds) {
        return add<scanlib::packets::pps_sync_writer>([&](auto& w) {
            w.system_counter(ticks);
            w.pps_time(milliseconds);
        });
    }
    /// A shot at 2 s and that many hundredths.
    StreamBuilder& shot(std::uint32_t hundredths) {
        return add<scanlib::packets::laser_shot_2angles_writer>(
            [&](auto& w) { w.time_counter(ticks_at_2_s + hundredths * (ticks_per_second / 100)); });
    }
    StreamBuilder& echo(std::int32_t millimetres) {
        return add<scanlib::packets::echo_writer>([&](auto& w) { w.range_counter(millimetres); });
    }
    /// `count` shots from 2 s on, each with an echo at 1 m and that many millimetres.
    StreamBuilder& shots(std::uint32_t count) {
        for (std::uint32_t i = 0; i < count; ++i) {
            shot(i).echo(1000 + static_cast<std::int32_t>(i));
        }
        return *this;
    }
    /// Closes the last shot; the very last packet is delivered to nobody.
    StreamBuilder& end() {
        return add<scanlib::packets::line_stop_writer>().add<scanlib::packets::meas_stop_writer>();
    }

    std::size_t size() const { return packets_.size(); }
    std::vector<unsigned char> bytes() const { return streams::encode_all(packets_, true); }

  private:
    streams::packets packets_;
};

inline StreamBuilder whole_stream(std::uint32_t shots) {
    StreamBuilder stream;
    return stream.describe().synchronise().shots(shots).end();
}

/// What the connection of a test does, and what happened to it.
struct Plan {
    std::function<void()> when_opened;
    std::function<void()> when_exhausted;
    int closes = 0;
    int stops = 0;
    int cancels = 0;
};

class PlannedConnection : public test_support::memory_rconnection {
  public:
    PlannedConnection(std::vector<unsigned char> bytes, Plan& plan)
        : memory_rconnection(std::move(bytes)), plan_(plan) {}
    void open() override {
        if (plan_.when_opened) {
            plan_.when_opened();
        }
    }
    void close() override { ++plan_.closes; }
    void stop() override { ++plan_.stops; }
    void cancel() override { ++plan_.cancels; }

  protected:
    std::uint64_t more_input(char* dst, std::uint64_t n) override {
        const std::uint64_t k = memory_rconnection::more_input(dst, n);
        if (k == 0 && plan_.when_exhausted) {
            plan_.when_exhausted();
        }
        return k;
    }

  private:
    Plan& plan_;
};

struct Report {
    std::string label;
    int current;
    int total;
    bool operator==(const Report&) const = default;
};

class RecordingMonitor : public Riegl::ProgressMonitor {
  public:
    void report(const std::string& label, int current, int total) override {
        reports.push_back({label, current, total});
        if (when_reported) {
            when_reported();
        }
    }
    void summarise(const Riegl::ConversionSummary& s) override { summaries.push_back(s); }
    void connecting(const std::shared_ptr<Riegl::StreamControl>& s) override {
        stream = s;
        if (when_connecting) {
            when_connecting();
        }
    }

    std::function<void()> when_connecting;
    std::function<void()> when_reported;
    std::vector<Report> reports;
    std::vector<Riegl::ConversionSummary> summaries;
    std::shared_ptr<Riegl::StreamControl> stream;
};

/// Converts streams in memory into a folder of its own.
class ConversionTest : public testing::Test {
  protected:
    static constexpr const char* no_table =
        "WFM::shall_we_write: No reflectance amplitude attributes found in meta json string.";

    ConversionTest() {
        std::string name = testing::TempDir() + "conversionXXXXXX";
        folder_ = mkdtemp(name.data());
        k7_ = folder_ / "190209_124210_scan.k7";
        input_.OutDir = folder_;
        input_.FragSize = 1000;
        input_.Progress = Holdfast::StrongPtr<Riegl::ProgressMonitor>(monitor_);
    }
    ~ConversionTest() override { std::filesystem::remove_all(folder_); }

    std::string convert(const std::vector<unsigned char>& bytes) {
        return Riegl::convert_stream(stream_, input_, [&](const std::string&) {
            return new PlannedConnection(bytes, plan_);
        });
    }
    std::string convert(const StreamBuilder& stream) { return convert(stream.bytes()); }

    const Riegl::ConversionSummary& summary() const { return monitor_->summaries.back(); }
    std::uint64_t loss_count(const std::string& name) const {
        for (const Riegl::Loss& loss : summary().losses) {
            if (loss.name == name) {
                return loss.count;
            }
        }
        return 0;
    }
    static std::string bytes_of(const std::filesystem::path& file) {
        std::ifstream in(file, std::ios::binary);
        return (std::ostringstream() << in.rdbuf()).str();
    }
    void make_earlier_file() const { std::ofstream(k7_) << "earlier"; }
    /// The folder holds the file of the earlier run, as it was, and nothing else.
    void expect_earlier_file_alone() const {
        EXPECT_EQ(bytes_of(k7_), "earlier");
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_),
                                std::filesystem::directory_iterator()),
                  1);
    }

    std::filesystem::path folder_;
    std::filesystem::path k7_;
    std::filesystem::path stream_ = "/nowhere/190209_124210_scan.rxp";
    Riegl::Input input_;
    RecordingMonitor* monitor_ = new RecordingMonitor;
    RecordedConsole console_;
    Plan plan_;
};

} // namespace frontend_test
