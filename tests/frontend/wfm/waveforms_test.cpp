// Rows of the grid "Waveforms", the reference time and what is said of them.
#include "waveform_stream.hpp"

#include <gmock/gmock.h>

#include "scanlib/loss_log.hpp"

namespace {

using frontend_test::BundleReader;
using frontend_test::Samples;
using frontend_test::WaveformStream;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr int many = 100;
constexpr const char* channel_message = "baseRxpToSkein:: Warning: Channel is 2 !?!";

class Waveforms : public frontend_test::ConversionTest {
  protected:
    std::vector<double> column(const char* name, int fragment = 0) const {
        return BundleReader(k7_).read("Waveforms", name, fragment).values;
    }
    std::vector<hsize_t> shape(int fragment = 0) const {
        return BundleReader(k7_).read("Waveforms", "Waveforms", fragment).shape;
    }
    double t_ref() const { return BundleReader(k7_).number("Shots", "t_ref"); }
    std::size_t channel_messages() const {
        return static_cast<std::size_t>(
            std::count(console_.messages.begin(), console_.messages.end(), channel_message));
    }
    std::string cut_off_warning(int exported, int actual) const {
        return "Warning! FWF cut off: Exported length  " + std::to_string(exported) +
               ", actual length " + std::to_string(actual) + " for file " + stream_.string();
    }
};

TEST_F(Waveforms, EachChannelButTheOddOnesIsARowWithTimeStartLengthAndSamples) {
    WaveformStream stream;
    stream.begin().block(3).samples(0, 7, {11, 12, 13}).samples(1, -20, {21}).shot_hr(3);
    stream.end();
    EXPECT_EQ(convert(stream), "");
    const double time = BundleReader(k7_).read("Shots", "GPSTime", 0).values.at(0);
    EXPECT_NEAR(time, 2.03, 1e-6);
    EXPECT_THAT(column("GPSTime"), ElementsAre(time, time));
    EXPECT_THAT(column("SBL_Time"),
                ElementsAre(WaveformStream::start(3, 7), WaveformStream::start(3, -20)));
    EXPECT_THAT(column("Channel"), ElementsAre(0, 1));
    EXPECT_THAT(column("FWFLength"), ElementsAre(3, 1));
    EXPECT_THAT(shape(), ElementsAre(2, 3));
    EXPECT_THAT(column("Waveforms"), ElementsAre(11, 12, 13, 21, 0, 0));
    EXPECT_THAT(column("Positions"), ElementsAre(0, 0, 0, 0, 0, 0));
    EXPECT_EQ(summary().waveforms, 2U);
}

TEST_F(Waveforms, CompressedSamplesAreStoredAsTheyCome) {
    WaveformStream stream;
    stream.begin().block(0).compressed(1, 0xABCD1233).shot_hr(0).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_THAT(column("Waveforms"), ElementsAre(0x1233, 0xABCD));
    EXPECT_THAT(column("FWFLength"), ElementsAre(2));
}

TEST_F(Waveforms, RecordWithoutSamplesIsARowOfLength0) {
    WaveformStream stream;
    stream.begin().block(0).samples(0, 0, {}).samples(1, 0, {5}).shot_hr(0).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_THAT(column("FWFLength"), ElementsAre(0, 1));
    EXPECT_THAT(column("Waveforms"), ElementsAre(0, 5));
}

TEST_F(Waveforms, RowsOfOneShotShareItsTimeWithTheShotAndItsEchoes) {
    WaveformStream stream;
    stream.begin();
    stream.waveform(0, 3).echo(1000).echo(2000);
    stream.waveform(1, 3).echo(1500).end();
    EXPECT_EQ(convert(stream), "");
    const BundleReader k7(k7_);
    const auto shots = k7.read("Shots", "GPSTime", 0).values;
    ASSERT_THAT(shots, SizeIs(2));
    EXPECT_EQ(column("GPSTime"), shots);
    EXPECT_THAT(k7.read("OPP", "GPSTime", 0).values, ElementsAre(shots[0], shots[0], shots[1]));
}

TEST_F(Waveforms, ShotsWithoutBlocksAndBlocksWithoutShotsGiveNoRows) {
    WaveformStream stream;
    stream.begin().shot_hr(0).block(1).samples(0, 0, {1}).shot_hr(2).waveform(3, 4).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_EQ(summary().shots, 3U);
    EXPECT_EQ(summary().waveforms, 1U);
    EXPECT_THAT(column("FWFLength"), ElementsAre(4));
    EXPECT_EQ(loss_count(scanlib::info_of(scanlib::loss::block_without_shot).name), 1U);
}

TEST_F(Waveforms, BlocksAheadOfTheFirstSynchronisationGiveNoRows) {
    WaveformStream stream;
    stream.describe();
    stream.channel(0, "high_power").channel(3, "reference");
    stream.waveform(0, 4);
    stream.synchronise();
    stream.waveform(1, 5).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_THAT(column("FWFLength"), ElementsAre(5));
}

TEST_F(Waveforms, LongerThanTheExportedLengthAreCutAndTheCutLengthIsTold) {
    input_.Exported_FWF_LENGTH = 4;
    WaveformStream stream;
    stream.begin().waveform(0, 6).waveform(1, 3).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_THAT(column("FWFLength"), ElementsAre(4, 3));
    EXPECT_THAT(shape(), ElementsAre(2, 4));
    EXPECT_THAT(column("Waveforms"), ElementsAre(100, 101, 102, 103, 100, 101, 102, 0));
}

TEST_F(Waveforms, CutOffIsToldOnConsoleInTheLogAndInErrors) {
    input_.Exported_FWF_LENGTH = 4;
    input_.ErrorLog = folder_ / "errors.log";
    input_.Errors = "before";
    WaveformStream stream;
    stream.begin().waveform(0, 6).waveform(1, 9).waveform(2, 5).end();
    EXPECT_EQ(convert(stream), "");
    const std::string warning = cut_off_warning(4, 9);
    EXPECT_THAT(console_.messages, ElementsAre(warning));
    EXPECT_EQ(bytes_of(input_.ErrorLog), warning + "\n\n");
    EXPECT_EQ(input_.Errors, "before" + warning);
}

TEST_F(Waveforms, AsLongAsTheExportedLengthAreNotCutOff) {
    input_.Exported_FWF_LENGTH = 6;
    WaveformStream stream;
    stream.begin().waveform(0, 6).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_THAT(console_.messages, IsEmpty());
    EXPECT_EQ(input_.Errors, "");
    EXPECT_THAT(shape(), ElementsAre(1, 6));
}

TEST_F(Waveforms, LongOneInAnEarlierFragmentCausesNoWarning) {
    input_.Exported_FWF_LENGTH = 4;
    input_.FragSize = 2;
    WaveformStream stream;
    stream.begin().waveform(0, 9).waveform(1, 2).waveform(2, 3).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_EQ(column("FWFLength", 0).at(0), 4);
    EXPECT_THAT(console_.messages, IsEmpty());
    EXPECT_EQ(input_.Errors, "");
}

TEST_F(Waveforms, ExportedLength0GivesRowsWithoutSamplesAndTheWarning) {
    input_.Exported_FWF_LENGTH = 0;
    WaveformStream stream;
    stream.begin().waveform(0, 6).waveform(1, 3).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_THAT(column("FWFLength"), ElementsAre(0, 0));
    EXPECT_THAT(column("SBL_Time"), SizeIs(2));
    EXPECT_THAT(column("Waveforms"), IsEmpty());
    EXPECT_EQ(input_.Errors, cut_off_warning(0, 6));
}

TEST_F(Waveforms, EachFragmentIsAsWideAsItsLongest) {
    input_.FragSize = 2;
    WaveformStream stream;
    stream.begin();
    const std::size_t lengths[] = {5, 3, 40, 41, 2, 1, 300, 7};
    for (std::uint32_t i = 0; i < std::size(lengths); ++i) {
        stream.waveform(i, lengths[i]);
    }
    stream.end();
    EXPECT_EQ(convert(stream), "");
    std::vector<double> all;
    const BundleReader k7(k7_);
    for (const int f : k7.fragments("Waveforms", "FWFLength", many)) {
        const auto in_fragment = column("FWFLength", f);
        all.insert(all.end(), in_fragment.begin(), in_fragment.end());
        const auto widest = *std::max_element(in_fragment.begin(), in_fragment.end());
        EXPECT_THAT(shape(f), ElementsAre(in_fragment.size(), static_cast<hsize_t>(widest)));
        const auto cells = column("Waveforms", f);
        for (std::size_t row = 0; row < in_fragment.size(); ++row) {
            for (std::size_t i = 0; i < static_cast<std::size_t>(widest); ++i) {
                const double expected = i < static_cast<std::size_t>(in_fragment[row])
                                            ? 100 + static_cast<double>(i)
                                            : 0;
                ASSERT_EQ(cells[row * static_cast<std::size_t>(widest) + i], expected);
            }
        }
    }
    EXPECT_THAT(all, ElementsAre(5, 3, 40, 41, 2, 1, 256, 7));
}

TEST_F(Waveforms, ThatFillAFragmentCutAllGrids) {
    input_.FragSize = 4;
    WaveformStream stream;
    stream.begin();
    for (std::uint32_t i = 0; i < 4; ++i) {
        stream.block(i).samples(0, 0, {1}).samples(1, 0, {2}).shot_hr(i);
    }
    stream.end();
    EXPECT_EQ(convert(stream), "");
    // The fourth row comes with the end of the second shot, which the third tells.
    EXPECT_THAT(column("Channel", 0), ElementsAre(0, 1, 0, 1));
    EXPECT_THAT(BundleReader(k7_).read("Shots", "GPSTime", 0).values, SizeIs(3));
    EXPECT_THAT(column("Channel", 1), ElementsAre(0, 1, 0, 1));
}

TEST_F(Waveforms, OfChannel2AreToldOnTheConsoleEachTimeAndLeftOut) {
    WaveformStream stream;
    stream.begin();
    stream.block(0).samples(2, 0, {1}).samples(0, 0, {2}).samples(2, 0, {3}).shot_hr(0);
    stream.block(1).samples(2, 0, {4}).shot_hr(1).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_THAT(column("Channel"), ElementsAre(0));
    EXPECT_EQ(channel_messages(), 3U);
    EXPECT_EQ(input_.Errors, "");
}

TEST_F(Waveforms, OneSampleOfTheOldestHeaderIsOfChannel2) {
    WaveformStream stream;
    stream.begin();
    for (std::uint32_t i = 0; i < 3; ++i) {
        stream.add<scanlib::packets::sbl_dg_header_writer>(
            [&](auto& w) { w.time_counter(WaveformStream::ticks_at_2_s + i * 100000); });
        stream.add<scanlib::packets::sbl_dg_data_writer>(
            [&](auto& w) { w.element(0, static_cast<std::uint16_t>(i + 1)); }, 2);
        stream.shot(i);
    }
    stream.end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_EQ(channel_messages(), 3U);
    EXPECT_THAT(column("Waveforms"), ElementsAre(1, 0, 2, 0, 3, 0));
}

TEST_F(Waveforms, ReferenceTimeIsThatOfTheLastRecordOfChannel3) {
    WaveformStream stream;
    stream.begin();
    stream.block(0).samples(3, 5, {1}).shot_hr(0);
    stream.block(1).samples(3, 9, {1, 2}).shot_hr(1).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_EQ(t_ref(), WaveformStream::start(1, 9));
    EXPECT_EQ(BundleReader(k7_).number("Waveforms", "t_ref"), WaveformStream::start(1, 9));
    EXPECT_EQ(summary().waveforms, 0U);
    EXPECT_FALSE(BundleReader(k7_).read("Waveforms", "GPSTime", 0).there);
}

TEST_F(Waveforms, ShotWithoutABlockTellsTheReferenceTimeToo) {
    WaveformStream stream;
    stream.begin().block(0).samples(3, 5, {1}).shot_hr(0).shot_hr(1).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_EQ(t_ref(), static_cast<double>(WaveformStream::reference_time));
}

TEST_F(Waveforms, ReferenceIsChannel3WhateverTheChannelsAreCalled) {
    WaveformStream stream;
    stream.describe();
    stream.channel(0, "high_power").channel(1, "reference").channel(3, "low_power");
    stream.synchronise();
    stream.block(0).samples(1, 2, {7}).samples(3, 4, {8}).shot_hr(0).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_THAT(column("Channel"), ElementsAre(1));
    EXPECT_EQ(t_ref(), WaveformStream::start(0, 4));
}

TEST_F(Waveforms, NotExportedAreNoRowsNoReferenceTimeAndNoMessages) {
    input_.ExportFWF = false;
    input_.Exported_FWF_LENGTH = 1;
    WaveformStream stream;
    stream.begin();
    stream.block(0).samples(3, 5, {1}).samples(2, 0, {1}).samples(0, 0, {1, 2, 3}).shot_hr(0);
    stream.end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_FALSE(BundleReader(k7_).has_grid("Waveforms"));
    EXPECT_EQ(t_ref(), 0);
    EXPECT_THAT(console_.messages, IsEmpty());
    EXPECT_EQ(input_.Errors, "");
    EXPECT_EQ(summary().waveforms, 0U);
    EXPECT_EQ(summary().shots, 1U);
}

TEST_F(Waveforms, ChannelsWithoutPlaceForTheReferenceInterruptTheConversion) {
    WaveformStream stream;
    stream.describe();
    stream.channel(0, "high_power").channel(3, "odd one");
    stream.synchronise();
    stream.waveform(0, 3).end();
    EXPECT_EQ(convert(stream), frontend_test::ConversionTest::no_table);
    EXPECT_EQ(summary().cause, "wave: illegal name for channel 3 found: odd one");
    EXPECT_EQ(summary().shots, 0U);
}

TEST_F(Waveforms, ChannelBeyondTheListIsARowWithoutStart) {
    WaveformStream stream;
    stream.begin().block(0).samples(9, 5, {1, 2}).shot_hr(0).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_THAT(column("Channel"), ElementsAre(9));
    EXPECT_TRUE(std::isnan(column("SBL_Time").at(0)));
}

} // namespace
