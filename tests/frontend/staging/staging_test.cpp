#include "staging.hpp"

#include "frontend/bundle_reader.hpp"

#include <cstdlib>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using frontend_test::BundleReader;
using Riegl::BundleWriter;
using Riegl::Input;
using Samples = std::vector<unsigned short>;

class Staging : public testing::Test {
  protected:
    Staging() {
        std::string name = testing::TempDir() + "stagingXXXXXX";
        folder_ = mkdtemp(name.data());
        input_.OutDir = folder_;
        input_.FragSize = 10;
        input_.Exported_FWF_LENGTH = 8;
    }
    ~Staging() override {
        writer_.reset();
        std::filesystem::remove_all(folder_);
    }

    BundleWriter& writer() {
        if (!writer_) {
            writer_ = std::make_unique<BundleWriter>("/somewhere/190209_124210_a.rxp", input_);
            prepare();
        }
        return *writer_;
    }
    void prepare() { writer_->prepare_fragment(input_.FragSize, input_.Exported_FWF_LENGTH); }

    void shot(double time) {
        auto& shots = writer().shots();
        shots.ensure_row(shots_);
        shots.column<"GPSTime">()[shots_] = time;
        shots.column<"Waveforms.DirectionDelta">()[shots_] = {time, 0, 1};
        shots.column<"Positions">()[shots_] = {1, 2, time};
        ++shots_;
    }
    void echo(double range) {
        auto& opp = writer().opp();
        opp.ensure_row(opp_);
        opp.column<"GPSTime">()[opp_] = range;
        opp.column<"Range">()[opp_] = range;
        opp.column<"Amplitude">()[opp_] = 1.5F;
        opp.column<"Channel">()[opp_] = 1;
        opp.column<"Reflectance">()[opp_] = -1.5F;
        ++opp_;
    }
    void waveform(const Samples& samples) {
        auto& waveforms = writer().waveforms();
        auto& column = waveforms.column<"Waveforms">();
        const auto kept = std::min<std::size_t>(samples.size(), input_.Exported_FWF_LENGTH);
        waveforms.ensure_row(waves_);
        column.assign(waves_, samples.data(), kept);
        waveforms.column<"FWFLength">()[waves_] = static_cast<unsigned short>(kept);
        column.max_length = std::max(column.max_length, static_cast<std::uint32_t>(samples.size()));
        ++waves_;
    }

    /// Stores what is staged as the next fragment, and starts a new one.
    std::string cut(bool skip = false) {
        std::string text = writer().write_fragment(fragment_++, &opp_, &waves_, &shots_,
                                                   &date_code_, &leap_flag_, &skip);
        shots_ = opp_ = waves_ = 0;
        prepare();
        return text;
    }
    std::unique_ptr<BundleReader> finished() {
        writer().finish();
        return std::make_unique<BundleReader>(folder_ / "190209_124210_a.k7");
    }

    Input input_;
    std::filesystem::path folder_;
    std::unique_ptr<BundleWriter> writer_;
    std::uint32_t shots_ = 0;
    std::uint32_t opp_ = 0;
    std::uint32_t waves_ = 0;
    std::uint32_t fragment_ = 0;
    std::int32_t date_code_ = 17936;
    bool leap_flag_ = true;
};

TEST_F(Staging, StoresEachColumnOfEachGrid) {
    shot(5);
    echo(7);
    waveform({1, 2, 3});
    EXPECT_EQ(cut(), "");
    const auto k7 = finished();
    EXPECT_THAT(k7->read("Shots", "GPSTime", 0).values, testing::ElementsAre(5));
    EXPECT_THAT(k7->read("Shots", "Waveforms.DirectionDelta", 0).values,
                testing::ElementsAre(5, 0, 1));
    EXPECT_THAT(k7->read("Shots", "Positions", 0).shape, testing::ElementsAre(1, 3));
    EXPECT_THAT(k7->read("OPP", "Range", 0).values, testing::ElementsAre(7));
    EXPECT_THAT(k7->read("OPP", "Amplitude", 0).values, testing::ElementsAre(1.5));
    EXPECT_THAT(k7->read("OPP", "Channel", 0).values, testing::ElementsAre(1));
    EXPECT_THAT(k7->read("OPP", "Reflectance", 0).values, testing::ElementsAre(-1.5));
    EXPECT_THAT(k7->read("Waveforms", "FWFLength", 0).values, testing::ElementsAre(3));
    EXPECT_THAT(k7->read("Waveforms", "SBL_Time", 0).values, testing::ElementsAre(0));
    EXPECT_THAT(k7->read("Waveforms", "Channel", 0).values, testing::ElementsAre(0));
}

TEST_F(Staging, NeverAssignedPositionsAreStoredAsZeros) {
    echo(1);
    echo(2);
    waveform({1});
    cut();
    const auto k7 = finished();
    EXPECT_THAT(k7->read("OPP", "Positions", 0).values,
                testing::AllOf(testing::SizeIs(6), testing::Each(0)));
    EXPECT_THAT(k7->read("Waveforms", "Positions", 0).values,
                testing::AllOf(testing::SizeIs(3), testing::Each(0)));
}

TEST_F(Staging, GridWithoutRowsHasNoFragmentAndNoAttribute) {
    shot(1);
    cut();
    const auto k7 = finished();
    EXPECT_TRUE(k7->read("Shots", "GPSTime", 0).there);
    EXPECT_EQ(k7->leap_seconds_added("Shots"), 0);
    EXPECT_FALSE(k7->read("OPP", "GPSTime", 0).there);
    EXPECT_EQ(k7->leap_seconds_added("OPP"), -1);
}

TEST_F(Staging, SkippedFragmentHasNoEntryAndTheNextNumberIsOneHigher) {
    shot(1);
    echo(1);
    cut(true);
    shot(2);
    cut();
    const auto k7 = finished();
    EXPECT_FALSE(k7->read("Shots", "GPSTime", 0).there);
    EXPECT_FALSE(k7->read("OPP", "Range", 0).there);
    EXPECT_THAT(k7->read("Shots", "GPSTime", 1).values, testing::ElementsAre(2));
}

TEST_F(Staging, WaveformsOfLengthZeroGiveAnArrayOfWidthZero) {
    waveform({});
    waveform({});
    cut();
    const auto k7 = finished();
    EXPECT_THAT(k7->read("Waveforms", "Waveforms", 0).shape, testing::ElementsAre(2, 0));
    EXPECT_THAT(k7->read("Waveforms", "FWFLength", 0).values, testing::ElementsAre(0, 0));
}

TEST_F(Staging, FullArrayOfFullWidthIsStoredAsItStands) {
    const std::uint32_t capacity = input_.FragSize + 500;
    for (std::uint32_t i = 0; i < capacity; ++i) {
        waveform(Samples(8, static_cast<unsigned short>(i)));
    }
    auto& column = writer().waveforms().column<"Waveforms">();
    const auto* before = column.data->raw();
    EXPECT_EQ(column.rows, capacity);
    bool skip = false;
    writer().write_fragment(0, &opp_, &waves_, &shots_, &date_code_, &leap_flag_, &skip);
    EXPECT_EQ(column.array->raw(), before);
    const auto stored = finished()->read("Waveforms", "Waveforms", 0);
    EXPECT_THAT(stored.shape, testing::ElementsAre(capacity, 8));
    EXPECT_EQ(stored.values[(capacity - 1) * 8 + 7], capacity - 1);
}

TEST_F(Staging, ExportedLengthZeroKeepsNoSamples) {
    input_.Exported_FWF_LENGTH = 0;
    waveform({1, 2, 3});
    cut();
    const auto k7 = finished();
    EXPECT_THAT(k7->read("Waveforms", "FWFLength", 0).values, testing::ElementsAre(0));
    EXPECT_THAT(k7->read("Waveforms", "Waveforms", 0).shape, testing::ElementsAre(1, 0));
}

TEST_F(Staging, ArrayIsAsWideAsTheFragmentsLongestWaveformAndPaddedWithZeros) {
    waveform({1});
    waveform({1, 2, 3});
    waveform({4, 5});
    cut();
    waveform({9, 9, 9, 9});
    cut();
    waveform(Samples(20, 6));
    EXPECT_EQ(writer().longest_waveform(), 20U);
    cut();
    waveform({7});
    cut();
    const auto k7 = finished();
    EXPECT_THAT(k7->read("Waveforms", "Waveforms", 0).values,
                testing::ElementsAre(1, 0, 0, 1, 2, 3, 4, 5, 0));
    EXPECT_THAT(k7->read("Waveforms", "Waveforms", 1).shape, testing::ElementsAre(1, 4));
    EXPECT_THAT(k7->read("Waveforms", "Waveforms", 2).shape, testing::ElementsAre(1, 8));
    EXPECT_THAT(k7->read("Waveforms", "Waveforms", 3).values, testing::ElementsAre(7));
}

TEST_F(Staging, WaveformRowsLeftOutAreZero) {
    waveform({1, 2});
    waves_ = 2;
    waveform({3});
    waves_ = 5;
    cut();
    EXPECT_THAT(finished()->read("Waveforms", "Waveforms", 0).values,
                testing::ElementsAre(1, 2, 0, 0, 3, 0, 0, 0, 0, 0));
}

TEST_F(Staging, CellsOfAReusedColumnAreZeroUntilAssigned) {
    for (int i = 0; i < 30; ++i) {
        echo(8);
    }
    cut();
    auto& opp = writer().opp();
    opp.ensure_row(2);
    opp.column<"Range">()[1] = 4;
    opp_ = 3;
    cut();
    const auto k7 = finished();
    EXPECT_THAT(k7->read("OPP", "Range", 1).values, testing::ElementsAre(0, 4, 0));
    EXPECT_THAT(k7->read("OPP", "Amplitude", 1).values, testing::Each(0));
}

TEST_F(Staging, GrowsPastTheMarginAndPastTheRowsReservedAhead) {
    const std::uint32_t rows = Riegl::most_rows_ahead + 1000;
    for (std::uint32_t i = 0; i < rows; ++i) {
        shot(i);
    }
    cut();
    const auto times = finished()->read("Shots", "GPSTime", 0);
    ASSERT_THAT(times.shape, testing::ElementsAre(rows));
    for (std::uint32_t i = 0; i < rows; ++i) {
        ASSERT_EQ(times.values[i], i);
    }
}

TEST_F(Staging, HugeFragmentSizeAndWaveformLengthTakeNoMemoryAhead) {
    input_.FragSize = std::numeric_limits<std::uint32_t>::max();
    input_.Exported_FWF_LENGTH = std::numeric_limits<std::uint32_t>::max();
    shot(1);
    waveform({1, 2});
    EXPECT_LT(writer().waveforms().column<"Waveforms">().data->capacity(), 1U << 20);
    cut();
    EXPECT_THAT(finished()->read("Waveforms", "Waveforms", 0).shape, testing::ElementsAre(1, 2));
}

using ConcurrentStaging = Staging;

TEST_F(ConcurrentStaging, RowsAreStagedBehindTheFragmentThatIsStillWritten) {
    constexpr std::uint32_t rows = 5000;
    input_.FragSize = rows;
    input_.Exported_FWF_LENGTH = 400;
    const auto sample = [](std::uint32_t fragment, std::uint32_t row) {
        return static_cast<unsigned short>(fragment * 1000 + row);
    };
    // Widths that grow, shrink and stay, so that rows come to lie elsewhere than those written.
    const std::vector<std::size_t> widths = {200, 300, 300, 100, 400};
    for (std::uint32_t f = 0; f < widths.size(); ++f) {
        for (std::uint32_t row = 0; row < rows; ++row) {
            shot(f * 10000.0 + row);
            waveform(Samples(row % 3 == 0 ? widths[f] : 1, sample(f, row)));
        }
        cut();
    }
    const auto k7 = finished();
    for (std::uint32_t f = 0; f < widths.size(); ++f) {
        const auto stored = k7->read("Waveforms", "Waveforms", f);
        ASSERT_THAT(stored.shape, testing::ElementsAre(rows, widths[f]));
        const auto times = k7->read("Shots", "GPSTime", f);
        for (std::uint32_t row = 0; row < rows; ++row) {
            const auto* first = &stored.values[row * widths[f]];
            ASSERT_EQ(times.values[row], f * 10000.0 + row);
            ASSERT_EQ(first[0], sample(f, row));
            ASSERT_EQ(first[1], row % 3 == 0 ? sample(f, row) : 0);
            ASSERT_EQ(first[widths[f] - 1], row % 3 == 0 ? sample(f, row) : 0);
        }
    }
}

TEST_F(Staging, SecondWriteOfTheSameRowsGivesTheSameValues) {
    shot(1);
    waveform({1, 2});
    const bool skip = false;
    for (std::uint32_t fragment : {0U, 1U}) {
        writer().write_fragment(fragment, &opp_, &waves_, &shots_, &date_code_, &leap_flag_, &skip);
    }
    const auto k7 = finished();
    EXPECT_EQ(k7->read("Shots", "Positions", 0).values, k7->read("Shots", "Positions", 1).values);
    EXPECT_THAT(k7->read("Waveforms", "Waveforms", 1).values, testing::ElementsAre(1, 2));
}

TEST_F(Staging, GridsThatAreNotAskedForAreNotMade) {
    input_.ExportFWF = false;
    input_.ExportOPP = false;
    shot(1);
    EXPECT_FALSE(writer().has_opp());
    EXPECT_FALSE(writer().has_waveforms());
    EXPECT_FALSE(writer().waveforms_grid().available());
    EXPECT_TRUE(writer().shots_grid().available());
    EXPECT_EQ(writer().longest_waveform(), 0U);
    EXPECT_THROW(writer().opp(), std::runtime_error);
    EXPECT_EQ(cut(), "");
}

TEST_F(Staging, TellsTheFirstAndTheLastTimeThatIsNotZero) {
    EXPECT_EQ(writer().first_shot_time(), 0);
    EXPECT_EQ(writer().last_shot_time(), 0);
    shot(3);
    shot(4);
    shot(0);
    EXPECT_EQ(writer().first_shot_time(), 3);
    EXPECT_EQ(writer().last_shot_time(), 4);
    cut();
    EXPECT_EQ(writer().last_shot_time(), 0);
}

TEST_F(Staging, TimesWithoutDateEndTheGridWithATextButTheColumnIsStored) {
    leap_flag_ = false;
    date_code_ = 0;
    shot(1);
    echo(1);
    EXPECT_THAT(cut(), testing::HasSubstr("date"));
    const auto k7 = finished();
    EXPECT_TRUE(k7->read("Shots", "GPSTime", 0).there);
    EXPECT_EQ(k7->leap_seconds_added("Shots"), 1);
    EXPECT_FALSE(k7->read("Shots", "Positions", 0).there);
    EXPECT_FALSE(k7->read("OPP", "GPSTime", 0).there);
}

TEST_F(Staging, LeapSecondsAreAddedToTimesOnlyWithoutTheFlag) {
    leap_flag_ = false;
    echo(100);
    cut();
    const auto k7 = finished();
    EXPECT_THAT(k7->read("OPP", "GPSTime", 0).values, testing::ElementsAre(118));
    EXPECT_THAT(k7->read("OPP", "Range", 0).values, testing::ElementsAre(100));
    EXPECT_EQ(k7->leap_seconds_added("OPP"), 1);
}

TEST_F(Staging, StoringAFragmentAgesTheTimeField) {
    shot(1);
    const auto field = writer().shots().column<"GPSTime">().field;
    const auto before = Holdfast::Ageable::GlobalTime.load();
    cut();
    EXPECT_EQ(field->age, before + 1);
    EXPECT_EQ(Holdfast::Ageable::GlobalTime.load(), before + 1);
}

TEST_F(Staging, ObjectsAreNumberedAndMadeAnewForEachFragment) {
    const auto first = writer().shots().instance;
    cut();
    EXPECT_GT(writer().shots().instance, first);
}

TEST_F(Staging, AbandonedFileWithoutRowsLeavesNothing) {
    cut();
    writer().abandon();
    writer_.reset();
    EXPECT_TRUE(std::filesystem::is_empty(folder_));
}

TEST_F(Staging, AbandonedFileWithRowsStaysAsPart) {
    shot(1);
    cut();
    writer().abandon();
    writer_.reset();
    EXPECT_FALSE(std::filesystem::exists(folder_ / "190209_124210_a.k7"));
    const BundleReader part(folder_ / "190209_124210_a.k7.part");
    EXPECT_THAT(part.read("Shots", "GPSTime", 0).values, testing::ElementsAre(1));
}

TEST_F(Staging, ColumnsDescribeTheirElements) {
    const auto& position = writer().shots().column<"Positions">().description;
    EXPECT_EQ(position.components, 3U);
    EXPECT_EQ(position.element_size, 24U);
    EXPECT_EQ(position.component_size, 8U);
    EXPECT_EQ(position.element, "Tern::PhysicalSpace::point");
    EXPECT_EQ(position.component, "double");
    EXPECT_EQ(position.chart, "Tern::Cartesian3D");
    EXPECT_EQ(writer().opp().column<"Channel">().description.chart, "void");
}

} // namespace
