#include "conversion_fixture.hpp"

#include <stdexcept>

#include <gmock/gmock.h>

#include "scanlib/loss_log.hpp"

namespace {

using frontend_test::BundleReader;
using frontend_test::Report;
using frontend_test::StreamBuilder;
using frontend_test::whole_stream;
using Riegl::progress_scale;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* interrupted =
    "rxpToSkeinK7: Export interrupted for file: /nowhere/190209_124210_scan.rxp. Error: ";

TEST(ProgressScale, HundredthPartOfTheEstimatedPackets) {
    EXPECT_EQ(progress_scale(2500000).total, 1000);
    EXPECT_EQ(progress_scale(2500000).step, 10);
    EXPECT_EQ(progress_scale(2499999).total, 999);
    EXPECT_EQ(progress_scale(2499999).step, 9);
}

TEST(ProgressScale, ShortAndUnknownStreamsReportEveryPacket) {
    for (const std::int64_t size : {std::int64_t{-1}, std::int64_t{0}, std::int64_t{249999}}) {
        EXPECT_EQ(progress_scale(size).step, 1) << size;
    }
    EXPECT_EQ(progress_scale(-1).total, 0);
    EXPECT_EQ(progress_scale(249999).total, 99);
}

TEST(ProgressScale, QuotientWithItsUppermostBitOf32SetGivesTheFixedTotal) {
    constexpr std::int64_t two_to_31 = std::int64_t{1} << 31;
    EXPECT_EQ(progress_scale(2500 * (two_to_31 - 1)).total, 2147483647);
    EXPECT_EQ(progress_scale(2500 * two_to_31).total, 1000000);
    EXPECT_EQ(progress_scale(2500 * two_to_31).step, 10000);
    EXPECT_EQ(progress_scale(2500 * (2 * two_to_31 - 1)).total, 1000000);
}

TEST(ProgressScale, QuotientBeyond32BitsKeepsItsLowBits) {
    EXPECT_EQ(progress_scale(2500 * ((std::int64_t{1} << 32) + 700)).total, 700);
}

using Conversion = frontend_test::ConversionTest;

TEST_F(Conversion, HandsOutAHoldOnTheStreamBeforeItIsOpened) {
    plan_.when_opened = [&] {
        ASSERT_TRUE(monitor_->stream);
        monitor_->stream->stop();
        monitor_->stream->cancel();
    };
    EXPECT_EQ(convert(whole_stream(3)), "");
    EXPECT_EQ(plan_.stops, 1);
    EXPECT_EQ(plan_.cancels, 1);
    monitor_->stream->stop();
    monitor_->stream->cancel();
    EXPECT_EQ(plan_.stops, 1) << "the stream is gone, the hold on it is not";
    EXPECT_EQ(plan_.cancels, 1);
}

TEST_F(Conversion, StoresTheStreamAndClosesTheConnection) {
    EXPECT_EQ(convert(whole_stream(3)), "");
    EXPECT_EQ(input_.Errors, "");
    EXPECT_THAT(console_.messages, IsEmpty());
    EXPECT_EQ(plan_.closes, 1);
    const BundleReader k7(k7_);
    EXPECT_THAT(k7.read("Shots", "GPSTime", 0).values,
                testing::Pointwise(testing::DoubleNear(1e-6), {2.0, 2.01, 2.02}));
    EXPECT_THAT(k7.read("OPP", "Range", 0).values,
                testing::Pointwise(testing::DoubleNear(1e-6), {1.0, 1.001, 1.002}));
}

TEST_F(Conversion, TellsItsSummaryOnceTheFileIsFinished) {
    convert(whole_stream(3));
    ASSERT_THAT(monitor_->summaries, SizeIs(1));
    EXPECT_EQ(summary().output, k7_);
    EXPECT_EQ(summary().shots, 3U);
    EXPECT_EQ(summary().echoes, 3U);
    EXPECT_EQ(summary().fragments, 1U);
    EXPECT_EQ(summary().bytes_in, whole_stream(3).bytes().size());
    EXPECT_EQ(summary().bytes_out, std::filesystem::file_size(k7_));
    EXPECT_FALSE(summary().interrupted || summary().store_failed || summary().abandoned);
}

TEST_F(Conversion, LastPacketOfAStreamReachesNobodyAndIsCounted) {
    EXPECT_EQ(convert(StreamBuilder().describe().synchronise().shots(2).shot(5)), "");
    EXPECT_EQ(summary().shots, 2U);
    EXPECT_EQ(loss_count(scanlib::info_of(scanlib::loss::last_packet).name), 1U);
}

TEST_F(Conversion, StreamOfASinglePacketMakesTheFinalWriteOnEmptyStaging) {
    EXPECT_EQ(convert(StreamBuilder().shot(0)), no_table);
    EXPECT_THAT(monitor_->reports, ElementsAre(Report{"RXP-Writing# ", 1, 1}));
    EXPECT_TRUE(BundleReader(k7_).has_grid("Shots"));
    EXPECT_FALSE(BundleReader(k7_).read("Shots", "GPSTime", 0).there);
}

TEST_F(Conversion, MetadataThatNeverBecomeAvailableAreMissedAtTheEnd) {
    StreamBuilder stream;
    stream.describe().synchronise();
    for (int i = 0; i < 20; ++i) {
        stream.add<scanlib::packets::hk_incl_writer>();
    }
    EXPECT_EQ(convert(stream), no_table);
    EXPECT_THAT(console_.messages,
                ElementsAre("[parse_reflectance_amplitude_attributes] JSON string is empty."));
}

TEST_F(Conversion, StreamWithoutReflectanceTableKeepsItsRows) {
    EXPECT_EQ(convert(StreamBuilder().synchronise().shots(4).end()), no_table);
    EXPECT_THAT(BundleReader(k7_).read("Shots", "GPSTime", 0).values, SizeIs(4));
}

TEST_F(Conversion, WithoutWaveformsTheStreamIsConvertedToItsEnd) {
    input_.ExportFWF = false;
    EXPECT_EQ(convert(whole_stream(3)), "");
    EXPECT_EQ(plan_.closes, 1);
    EXPECT_FALSE(BundleReader(k7_).has_grid("Waveforms"));
    EXPECT_THAT(BundleReader(k7_).read("Shots", "GPSTime", 0).values, SizeIs(3));
}

TEST_F(Conversion, ShortStreamReportsEveryPacketButTheLastAndThenTheWriting) {
    const StreamBuilder stream = whole_stream(2);
    convert(stream);
    std::vector<Report> expected;
    for (int i = 0; i + 1 < static_cast<int>(stream.size()); ++i) {
        expected.push_back({"RXP-Package# ", i, 0});
    }
    expected.push_back({"RXP-Writing# ", 1, 1});
    EXPECT_EQ(monitor_->reports, expected);
}

TEST_F(Conversion, RunsWithoutAMonitor) {
    input_.Progress = {};
    EXPECT_EQ(convert(whole_stream(2)), "");
    EXPECT_TRUE(std::filesystem::exists(k7_));
}

TEST_F(Conversion, WarningReachesConsoleErrorsAndTheLogWithTwoLineFeeds) {
    input_.ErrorLog = folder_ / "log";
    plan_.when_exhausted = [] { throw std::runtime_error("line broke"); };
    EXPECT_EQ(convert(whole_stream(3)), "");
    const std::string message = std::string(interrupted) + "line broke";
    EXPECT_THAT(console_.messages, ElementsAre(message));
    EXPECT_EQ(input_.Errors, message);
    EXPECT_EQ(bytes_of(input_.ErrorLog), message + "\n\n");
}

TEST_F(Conversion, WithoutErrorLogWarningsStillReachConsoleAndErrors) {
    plan_.when_exhausted = [] { throw std::runtime_error("line broke"); };
    convert(whole_stream(3));
    EXPECT_THAT(console_.messages, ElementsAre(HasSubstr("line broke")));
    EXPECT_THAT(input_.Errors, HasSubstr("line broke"));
}

TEST_F(Conversion, ErrorsOfSeveralCallsFollowEachOtherWithoutSeparator) {
    plan_.when_exhausted = [] { throw std::runtime_error("broke"); };
    convert(whole_stream(1));
    const std::string once = input_.Errors;
    ASSERT_NE(once, "");
    convert(whole_stream(1));
    EXPECT_EQ(input_.Errors, once + once);
}

TEST_F(Conversion, FailureOfTheStreamKeepsTheRowsReadBeforeAndClosesTheConnection) {
    make_earlier_file();
    plan_.when_exhausted = [] { throw std::runtime_error("line broke"); };
    EXPECT_EQ(convert(whole_stream(50)), "");
    EXPECT_EQ(plan_.closes, 1);
    EXPECT_TRUE(summary().interrupted);
    EXPECT_EQ(summary().cause, "line broke");
    // At most the packets behind the last full read are missing.
    EXPECT_GE(summary().shots, 40U);
    EXPECT_THAT(BundleReader(k7_).read("Shots", "GPSTime", 0).values, SizeIs(summary().shots));
    EXPECT_GT(BundleReader(k7_).number("Shots", "refltab_delta"), 0);
}

TEST_F(Conversion, UnknownExceptionIsToldWithoutAText) {
    plan_.when_exhausted = [] { throw 5; };
    EXPECT_EQ(convert(whole_stream(3)), "");
    EXPECT_EQ(input_.Errors, "rxpToSkeinK7:  Unknown exception for file: " + stream_.string());
    EXPECT_THAT(console_.messages, ElementsAre(input_.Errors));
}

TEST_F(Conversion, TextOfTheFinalWriteTakesThePlaceOfTheInterruption) {
    plan_.when_exhausted = [] { throw std::runtime_error("line broke"); };
    EXPECT_EQ(convert(StreamBuilder().synchronise().shots(3).end()), no_table);
    EXPECT_EQ(input_.Errors, "");
    EXPECT_EQ(plan_.closes, 0);
    EXPECT_EQ(summary().cause, "line broke");
}

TEST_F(Conversion, TextOfTheFinalWriteLeavesTheConnectionUnclosed) {
    EXPECT_EQ(convert(StreamBuilder().synchronise().shots(3).end()), no_table);
    EXPECT_EQ(plan_.closes, 0);
}

TEST_F(Conversion, MonitorThatThrowsInterruptsTheStream) {
    monitor_->when_reported = [&] {
        if (monitor_->reports.size() == 12) {
            throw std::runtime_error("stopped by the user");
        }
    };
    EXPECT_EQ(convert(whole_stream(20)), "");
    EXPECT_EQ(input_.Errors, std::string(interrupted) + "stopped by the user");
    // Of 11 packets before, the shots are the first of each pair behind the leading ones.
    EXPECT_EQ(summary().shots, 3U);
}

TEST_F(Conversion, OpenedStreamThatIsNoneReplacesAnEarlierFile) {
    make_earlier_file();
    EXPECT_EQ(convert(std::vector<unsigned char>(64, 'x')), no_table);
    EXPECT_THAT(summary().cause, HasSubstr("Bad preamble."));
    EXPECT_FALSE(summary().abandoned);
    EXPECT_TRUE(BundleReader(k7_).has_grid("Shots"));
}

TEST_F(Conversion, NoConnectionGivesATextAloneAndTheEarlierFileStays) {
    make_earlier_file();
    input_.ErrorLog = folder_ / "log";
    const std::string text =
        Riegl::convert_stream(stream_, input_, [](const std::string&) { return nullptr; });
    EXPECT_EQ(text, "rxpToSkeinK7: cannot establish rconnection to file: " + stream_.string());
    EXPECT_EQ(input_.Errors, "");
    EXPECT_THAT(console_.messages, IsEmpty());
    EXPECT_TRUE(summary().abandoned);
    EXPECT_EQ(summary().bytes_out, 0U);
    expect_earlier_file_alone();
}

TEST_F(Conversion, FailureToConnectLeavesTheCallAndTheEarlierFileStays) {
    make_earlier_file();
    const auto refuse = [](const std::string& uri) -> scanlib::basic_rconnection* {
        throw std::runtime_error("refused " + uri);
    };
    EXPECT_THROW(Riegl::convert_stream(stream_, input_, refuse), std::runtime_error);
    EXPECT_EQ(input_.Errors, "");
    EXPECT_THAT(console_.messages, IsEmpty());
    ASSERT_THAT(monitor_->summaries, SizeIs(1));
    EXPECT_TRUE(summary().abandoned);
    expect_earlier_file_alone();
}

TEST_F(Conversion, ConnectionThatCannotBeOpenedLeavesTheEarlierFile) {
    make_earlier_file();
    plan_.when_opened = [] { throw std::runtime_error("no route"); };
    EXPECT_EQ(convert(whole_stream(3)), no_table);
    EXPECT_TRUE(summary().abandoned);
    EXPECT_TRUE(summary().interrupted);
    EXPECT_EQ(summary().cause, "no route");
    expect_earlier_file_alone();
}

TEST_F(Conversion, PathThatIsNoTextLeavesTheCallAndNoFile) {
    stream_ = "/nowhere/\xFF.rxp";
    EXPECT_THROW(convert(whole_stream(1)), std::range_error);
    EXPECT_TRUE(std::filesystem::is_empty(folder_));
}

TEST_F(Conversion, MissingFileLeavesTheEarlierFile) {
    make_earlier_file();
    EXPECT_THROW(Riegl::rxpToSkeinK7(stream_, input_), std::runtime_error);
    expect_earlier_file_alone();
}

TEST_F(Conversion, FileOnDiskIsConvertedUnderItsStem) {
    stream_ = folder_ / "a.b.rxp";
    const std::vector<unsigned char> bytes = whole_stream(3).bytes();
    std::ofstream(stream_, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    EXPECT_EQ(Riegl::rxpToSkeinK7(stream_, input_), "");
    EXPECT_THAT(BundleReader(folder_ / "a.b.k7").read("Shots", "GPSTime", 0).values, SizeIs(3));
}

TEST_F(Conversion, OutputFolderThatIsMissingLeavesTheCallBeforeTheStreamIsOpened) {
    input_.OutDir = folder_ / "none";
    bool opened = false;
    plan_.when_opened = [&] { opened = true; };
    EXPECT_THROW(convert(whole_stream(1)), std::runtime_error);
    EXPECT_FALSE(opened);
    EXPECT_TRUE(summary().store_failed);
}

} // namespace
