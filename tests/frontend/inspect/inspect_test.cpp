#include "inspect_fwf.hpp"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "frontend/conversion/conversion_fixture.hpp"
#include "frontend/inspect/pdf_reader.hpp"
#include "frontend/recorded_console.hpp"

namespace {

using frontend_test::Plan;
using frontend_test::PlannedConnection;
using frontend_test::Report;
using frontend_test::StreamBuilder;
using frontend_test::texts_of;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

/// A stream whose shots carry blocks of samples, one sample 2^-30 s after the other.
class WaveStream : public StreamBuilder {
  public:
    WaveStream() {
        describe();
        add<scanlib::packets::sbl_dg_parameters_writer>([](auto& w) {
            w.group_velocity(3e8F);
            w.sampling_time(0x1p-30F);
        });
        synchronise();
    }
    /// The block of the shot at 2 s and that many hundredths; with it comes one sample of channel
    /// 2.
    WaveStream& block(std::uint32_t hundredths) {
        add<scanlib::packets::sbl_dg_header_writer>([&](auto& w) {
            w.time_counter(ticks_at_2_s + hundredths * (ticks_per_second / 100));
            w.sample(1234);
        });
        return *this;
    }
    WaveStream& samples(std::uint8_t channel, const std::vector<std::uint16_t>& values) {
        add<scanlib::packets::sbl_dg_data_writer>(
            [&](auto& w) {
                w.channel(channel);
                w.odd(values.size() % 2);
                for (std::size_t i = 0; i < values.size(); ++i) {
                    w.element(i, values[i]);
                }
            },
            values.size());
        return *this;
    }
    WaveStream& wave_shot(std::uint32_t hundredths, std::uint8_t channel = 0,
                          const std::vector<std::uint16_t>& values = {10, 500, 30, 20}) {
        block(hundredths).samples(channel, values).shot(hundredths);
        return *this;
    }
};

class InspectionMonitor : public frontend_test::RecordingMonitor {
  public:
    void inspected(const Riegl::InspectionSummary& s) override { inspections.push_back(s); }
    std::vector<Riegl::InspectionSummary> inspections;
};

/// Inspects streams in memory, in a folder of its own.
class Inspection : public testing::Test {
  protected:
    Inspection() : before_(std::filesystem::current_path()) {
        std::string name = testing::TempDir() + "inspectXXXXXX";
        folder_ = mkdtemp(name.data());
        std::filesystem::current_path(folder_);
        input_.Progress = Holdfast::StrongPtr<Riegl::ProgressMonitor>(monitor_);
        range(-inf, inf);
    }
    ~Inspection() override {
        std::filesystem::current_path(before_);
        std::filesystem::remove_all(folder_);
    }

    void range(double min, double max) {
        input_.TimeRange =
            Holdfast::StrongPtr<Skein::DataRange<double>>(new Skein::DataRange<double>(min, max));
    }
    std::string inspect(const StreamBuilder& stream) {
        return Riegl::inspect_stream(stream_, input_, [&](const std::string&) {
            return new PlannedConnection(stream.bytes(), plan_);
        });
    }
    const Riegl::InspectionSummary& summary() const { return monitor_->inspections.back(); }

    static std::vector<std::string> files() {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(".")) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    std::filesystem::path before_;
    std::filesystem::path folder_;
    std::filesystem::path stream_ = "/nowhere/190209_124210_scan.rxp";
    Riegl::Input input_;
    InspectionMonitor* monitor_ = new InspectionMonitor;
    frontend_test::RecordedConsole console_;
    Plan plan_;
};

WaveStream three_shots() {
    WaveStream stream;
    stream.wave_shot(0).wave_shot(50).wave_shot(100).end();
    return stream;
}

TEST(InspectionTotal, IsTheSizeInThousands) {
    EXPECT_EQ(Riegl::inspection_total(1999), 1);
    EXPECT_EQ(Riegl::inspection_total(5000000), 5000);
    EXPECT_EQ(Riegl::inspection_total(0), 0);
    EXPECT_EQ(Riegl::inspection_total(-1), 0);
    EXPECT_EQ(Riegl::inspection_total(-999), 0);
    EXPECT_EQ(Riegl::inspection_total(-1000), 1000000);
}

TEST(InspectionTotal, KeepsTheLow32BitsOfTheQuotient) {
    constexpr std::int64_t two_to_31 = std::int64_t{1} << 31;
    EXPECT_EQ(Riegl::inspection_total(1000 * (two_to_31 - 1)), 2147483647);
    EXPECT_EQ(Riegl::inspection_total(1000 * two_to_31), -2147483647 - 1);
    EXPECT_EQ(Riegl::inspection_total(1000 * (2 * two_to_31 + 5)), 5);
}

TEST_F(Inspection, WritesAPdfForEachShotNamedByItsTime) {
    EXPECT_EQ(inspect(three_shots()), "");
    EXPECT_THAT(files(), ElementsAre("GPSTime[s]2.5.pdf", "GPSTime[s]2.pdf", "GPSTime[s]3.pdf"));
    EXPECT_EQ(plan_.closes, 1);
    EXPECT_THAT(console_.messages, IsEmpty());
    EXPECT_EQ(input_.Errors, "");
}

TEST_F(Inspection, TitleIsMisspeltAndTellsTimeAndSamplingTimeInNanoseconds) {
    inspect(three_shots());
    EXPECT_THAT(texts_of("GPSTime[s]2.5.pdf"),
                HasSubstr("GSPTime[s]: 2.5 dt[ns]: 0.9313225746154785\n"));
    EXPECT_THAT(texts_of("GPSTime[s]2.5.pdf"), HasSubstr("Bin [-]"));
    EXPECT_THAT(texts_of("GPSTime[s]2.5.pdf"), HasSubstr("2500"));
    // The label beside the axis is turned, so its letters come one a line.
    EXPECT_THAT(frontend_test::ask("pdftotext", "GPSTime[s]2.5.pdf", "-"),
                HasSubstr("Amplitude dB"));
}

TEST_F(Inspection, PageIs30By8Centimetres) {
    inspect(three_shots());
    EXPECT_THAT(frontend_test::ask("pdfinfo", "GPSTime[s]2.pdf"),
                HasSubstr("850.394 x 226.772 pts"));
}

TEST_F(Inspection, WithoutTimeRangeTheStreamIsReadToItsEndAndNoPdfIsWritten) {
    input_.TimeRange = {};
    EXPECT_EQ(inspect(three_shots()), "");
    EXPECT_THAT(files(), IsEmpty());
    EXPECT_EQ(plan_.closes, 1);
    EXPECT_EQ(summary().bytes_in, three_shots().bytes().size());
    EXPECT_EQ(summary().shots, 3U);
    EXPECT_EQ(summary().shots_in_range, 0U);
}

TEST_F(Inspection, ShotExactlyAtABoundIsPlotted) {
    range(2.5, 3);
    inspect(three_shots());
    EXPECT_THAT(files(), ElementsAre("GPSTime[s]2.5.pdf", "GPSTime[s]3.pdf"));
}

TEST_F(Inspection, ShotJustOutsideABoundIsNotPlotted) {
    range(std::nextafter(2.0, 3), std::nextafter(3.0, 2));
    inspect(three_shots());
    EXPECT_THAT(files(), ElementsAre("GPSTime[s]2.5.pdf"));
}

TEST_F(Inspection, RangeOfOneTimePlotsTheShotOfThatTime) {
    range(2.5, 2.5);
    inspect(three_shots());
    EXPECT_THAT(files(), ElementsAre("GPSTime[s]2.5.pdf"));
}

TEST_F(Inspection, BoundsThatAreNoNumberExcludeNothing) {
    range(nan, nan);
    inspect(three_shots());
    EXPECT_THAT(files(), SizeIs(3));
}

TEST_F(Inspection, ReferenceChannelIsSkipped) {
    // Without a block of its own a shot has the record of the reference pulse only.
    WaveStream stream;
    stream.wave_shot(0).shot(50).end();
    inspect(stream);
    EXPECT_THAT(files(), ElementsAre("GPSTime[s]2.pdf"));
    EXPECT_EQ(summary().shots_in_range, 2U);
    EXPECT_EQ(summary().files, 1U);
}

TEST_F(Inspection, Channel2IsPlottedToo) {
    WaveStream stream;
    stream.block(0).shot(0).end();
    inspect(stream);
    EXPECT_THAT(files(), ElementsAre("GPSTime[s]2.pdf"));
    EXPECT_EQ(summary().plots, 1U);
    EXPECT_THAT(console_.messages, IsEmpty());
}

TEST_F(Inspection, AllChannelsOfAShotGoToOneFileAndTheLastOneStays) {
    WaveStream both;
    both.block(0).samples(0, {1, 2, 3}).samples(1, {2000, 0, 2000, 0}).shot(0).end();
    inspect(both);
    EXPECT_THAT(files(), ElementsAre("GPSTime[s]2.pdf"));
    EXPECT_EQ(summary().plots, 3U); // channel 2 comes with the block
    EXPECT_EQ(summary().files, 1U);
    const std::string shown = frontend_test::bytes_of("GPSTime[s]2.pdf");

    std::filesystem::remove("GPSTime[s]2.pdf");
    WaveStream last;
    last.wave_shot(0, 1, {2000, 0, 2000, 0}).end();
    inspect(last);
    EXPECT_EQ(frontend_test::bytes_of("GPSTime[s]2.pdf"), shown);
}

TEST_F(Inspection, RecordWithoutSamplesGivesAPdfWithoutSeries) {
    WaveStream stream;
    stream.wave_shot(0, 0, {}).end();
    EXPECT_EQ(inspect(stream), "");
    EXPECT_THAT(texts_of("GPSTime[s]2.pdf"), HasSubstr("no samples"));
    EXPECT_EQ(summary().empty_plots, 1U);
}

TEST_F(Inspection, SingleSampleAndSamplesBeyondTheFixedRangeAreDrawn) {
    WaveStream stream;
    stream.wave_shot(0, 0, {700}).wave_shot(50, 0, {0, 65535, 65535, 0}).end();
    EXPECT_EQ(inspect(stream), "");
    EXPECT_EQ(summary().files, 2U);
    EXPECT_THAT(texts_of("GPSTime[s]2.5.pdf"), Not(HasSubstr("3000")));
    EXPECT_THAT(texts_of("GPSTime[s]2.pdf"), Not(HasSubstr("no samples")));
}

TEST_F(Inspection, CompressedSamplesAreDrawnAsTheyComeAndCounted) {
    WaveStream stream;
    stream.block(0).add<scanlib::packets::sbl_dg_data_compressed_writer>(
        [](auto& w) {
            w.channel(0);
            w.element(0, 17);
            w.element(1, 34);
        },
        2);
    stream.shot(0).end();
    inspect(stream);
    EXPECT_EQ(summary().compressed_plots, 1U);
    EXPECT_EQ(summary().plots, 2U);
}

TEST_F(Inspection, ShotsBeforeTheSynchronisationAreNotPlotted) {
    StreamBuilder stream;
    stream.describe().add<scanlib::packets::sbl_dg_parameters_writer>(
        [](auto& w) { w.sampling_time(1e-9F); });
    stream.shot(0).shot(50).synchronise().shot(100).end();
    EXPECT_EQ(inspect(stream), "");
    EXPECT_EQ(summary().shots, 1U);
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(Inspection, LastPacketOfTheStreamIsNotDispatched) {
    WaveStream stream;
    stream.wave_shot(0).wave_shot(50); // the first shot would end with the second
    inspect(stream);
    EXPECT_THAT(files(), IsEmpty());
    stream.add<scanlib::packets::line_stop_writer>();
    inspect(stream);
    EXPECT_THAT(files(), ElementsAre("GPSTime[s]2.pdf"));
    ASSERT_THAT(summary().losses, SizeIs(1));
    EXPECT_EQ(summary().losses[0].name, scanlib::info_of(scanlib::loss::last_packet).name);
}

TEST_F(Inspection, EveryPacketButTheLastIsReported) {
    const WaveStream stream = three_shots();
    inspect(stream);
    std::vector<Report> expected;
    for (int i = 0; i + 1 < static_cast<int>(stream.size()); ++i) {
        expected.push_back({"Package# ", i, 0});
    }
    EXPECT_EQ(monitor_->reports, expected);
    EXPECT_THAT(monitor_->summaries, IsEmpty());
}

TEST_F(Inspection, FileThatCannotBeMeasuredIsReportedWithTotal0) {
    ASSERT_FALSE(std::filesystem::exists(stream_));
    inspect(three_shots());
    ASSERT_THAT(monitor_->reports, Not(IsEmpty()));
    for (const Report& r : monitor_->reports) {
        EXPECT_EQ(r.total, 0);
    }
}

TEST_F(Inspection, TotalIsAThousandthOfTheFileSize) {
    WaveStream stream;
    for (std::uint32_t i = 0; i < 100; ++i) {
        stream.shot(i);
    }
    const auto bytes = stream.end().bytes();
    stream_ = folder_ / "scan.rxp";
    std::ofstream(stream_, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    EXPECT_EQ(Riegl::inspectFWFs(stream_, input_), "");
    ASSERT_GE(bytes.size(), 2000U);
    EXPECT_EQ(monitor_->reports.front().total, static_cast<int>(bytes.size() / 1000));
}

TEST_F(Inspection, WithoutMonitorThereAreNoReports) {
    input_.Progress = {};
    EXPECT_EQ(inspect(three_shots()), "");
    EXPECT_THAT(files(), SizeIs(3));
}

TEST_F(Inspection, OutputFolderPlaysNoPart) {
    std::filesystem::create_directory("elsewhere");
    input_.OutDir = folder_ / "elsewhere";
    inspect(three_shots());
    EXPECT_THAT(files(), SizeIs(4));
    EXPECT_TRUE(std::filesystem::is_empty("elsewhere"));
}

TEST_F(Inspection, ConnectionThatIsNotMadeIsToldWithTheNameOfTheConversion) {
    EXPECT_EQ(Riegl::inspect_stream(stream_, input_, [](const std::string&) { return nullptr; }),
              "rxpToSkeinK7: cannot establish rconnection to file: " + stream_.string());
    EXPECT_FALSE(summary().opened);
}

TEST_F(Inspection, MissingFileIsToldByText) {
    EXPECT_EQ(Riegl::inspectFWFs("missing.rxp", input_),
              "inspectFWFs: Could not open \"missing.rxp\" for reading!");
    EXPECT_FALSE(summary().opened);
    EXPECT_EQ(input_.Errors, "");
}

TEST_F(Inspection, PathThatIsNoTextIsToldByText) {
    EXPECT_THAT(Riegl::inspectFWFs("scan\xFF.rxp", input_),
                HasSubstr("inspectFWFs: path is no UTF-8 text"));
}

TEST_F(Inspection, FailureOfTheStreamIsToldByTextAlone) {
    input_.ErrorLog = folder_ / "log";
    plan_.when_exhausted = [] { throw std::runtime_error("line broke"); };
    EXPECT_EQ(inspect(three_shots()), "inspectFWFs: line broke");
    EXPECT_EQ(input_.Errors, "");
    EXPECT_THAT(console_.messages, IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(input_.ErrorLog));
    EXPECT_EQ(plan_.closes, 0);
    EXPECT_TRUE(summary().opened);
}

TEST_F(Inspection, FailureToOpenIsToldByText) {
    plan_.when_opened = [] { throw std::runtime_error("no line"); };
    EXPECT_EQ(inspect(three_shots()), "inspectFWFs: no line");
    EXPECT_FALSE(summary().opened);
}

TEST_F(Inspection, ExceptionOfAnotherKindIsUnknown) {
    plan_.when_exhausted = [] { throw 5; };
    EXPECT_EQ(inspect(three_shots()), "inspectFWFs: unknown exception");
}

TEST_F(Inspection, MonitorThatThrowsEndsTheRun) {
    monitor_->when_reported = [] { throw std::runtime_error("stopped by the user"); };
    EXPECT_EQ(inspect(three_shots()), "inspectFWFs: stopped by the user");
    EXPECT_THAT(monitor_->reports, SizeIs(1));
}

TEST_F(Inspection, PdfThatCannotBeWrittenIsPassedOverAndCounted) {
    std::filesystem::create_directory("GPSTime[s]2.5.pdf");
    EXPECT_EQ(inspect(three_shots()), "");
    EXPECT_EQ(summary().failed_plots, 2U);
    EXPECT_EQ(summary().failure,
              "VectorToPDF::write2Pdf: cannot write \"GPSTime[s]2.5.pdf\": Is a directory");
    EXPECT_EQ(summary().files, 2U);
    EXPECT_TRUE(std::filesystem::is_regular_file("GPSTime[s]3.pdf"));
}

TEST_F(Inspection, TellsOnceWhatWasDrawn) {
    range(2.2, 10);
    inspect(three_shots());
    ASSERT_THAT(monitor_->inspections, SizeIs(1));
    EXPECT_TRUE(summary().opened);
    EXPECT_EQ(summary().shots, 3U);
    EXPECT_EQ(summary().first_time, 2.0);
    EXPECT_EQ(summary().last_time, 3.0);
    EXPECT_EQ(summary().records, 6U);
    EXPECT_EQ(summary().shots_in_range, 2U);
    EXPECT_EQ(summary().files, 2U);
    EXPECT_EQ(summary().plots, 4U);
    EXPECT_EQ(summary().empty_plots + summary().compressed_plots + summary().failed_plots, 0U);
    EXPECT_EQ(summary().offset, three_shots().bytes().size());
}

TEST_F(Inspection, StreamWithoutWaveformsTellsThatThereAreNone) {
    inspect(frontend_test::whole_stream(5));
    EXPECT_EQ(summary().records, 0U);
    EXPECT_TRUE(std::isnan(summary().first_time));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(Inspection, RepeatsToTheByte) {
    inspect(three_shots());
    const std::string first = frontend_test::bytes_of("GPSTime[s]2.pdf");
    ASSERT_FALSE(first.empty());
    inspect(three_shots());
    EXPECT_EQ(frontend_test::bytes_of("GPSTime[s]2.pdf"), first);
}

} // namespace
