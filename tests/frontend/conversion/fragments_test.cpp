// What the extractor makes of shots and echoes: rows, fragments and scan attributes.
#include "conversion_fixture.hpp"

#include <gmock/gmock.h>

#include "scanlib/loss_log.hpp"
#include "support/file_size_limit.hpp"

namespace {

using frontend_test::BundleReader;
using frontend_test::StreamBuilder;
using frontend_test::whole_stream;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr int many = 100;
constexpr std::uint32_t bytes_per_shot = 7 * sizeof(double); // time, direction, position

class Fragments : public frontend_test::ConversionTest {
  protected:
    void set_time_range(double min, double max) {
        input_.TimeRange =
            Holdfast::StrongPtr<Skein::DataRange<double>>(new Skein::DataRange<double>(min, max));
    }
};

TEST_F(Fragments, SizeZeroMakesEveryPacketAFragmentAndEmptyOnesTakeANumber) {
    input_.FragSize = 0;
    EXPECT_EQ(convert(whole_stream(3)), "");
    const BundleReader k7(k7_);
    constexpr int first = StreamBuilder::leading_packets;
    EXPECT_THAT(k7.fragments("Shots", "GPSTime", many), ElementsAre(first, first + 2, first + 4));
    // An echo is told when the next shot or the line's end shows that it was the last.
    EXPECT_THAT(k7.fragments("OPP", "GPSTime", many), ElementsAre(first + 2, first + 4, first + 6));
    EXPECT_EQ(summary().shots, 3U);
}

TEST_F(Fragments, OnlyRowsThatReachedTheDiskBeforeItWasFullAreCounted) {
    constexpr std::uint32_t rows = 10000;
    input_.FragSize = rows;
    input_.ExportOPP = false;
    const auto bytes = whole_stream(3 * rows).bytes();
    // The disk is full while the second fragment's columns or its last structure are written.
    constexpr std::uint32_t two_fragments = 2 * rows * bytes_per_shot;
    for (const std::uint32_t room : {two_fragments * 3 / 4, two_fragments, two_fragments + 1024}) {
        {
            const test_support::file_size_limit limit(room);
            EXPECT_THROW(convert(bytes), std::runtime_error);
        }
        EXPECT_TRUE(summary().store_failed);
        EXPECT_EQ(summary().fragments, 1U) << room;
        EXPECT_EQ(summary().shots, rows);
        EXPECT_THAT(BundleReader(k7_.string() + ".part").fragments("Shots", "GPSTime", many),
                    ElementsAre(0));
    }
}

TEST_F(Fragments, WithoutTimeRangeAllFragmentsAreStored) {
    input_.FragSize = 5;
    EXPECT_EQ(convert(whole_stream(23)), "");
    EXPECT_THAT(BundleReader(k7_).fragments("Shots", "GPSTime", many), ElementsAre(0, 1, 2, 3, 4));
    EXPECT_EQ(summary().shots, 23U);
}

TEST_F(Fragments, WhollyInsideTheTimeRangeIsSkippedAndReachingOutsideIsStoredInFull) {
    input_.FragSize = 5;
    // Fragments of 5 shots a hundredth of a second apart: only the second and third lie inside.
    set_time_range(2.025, 2.1451);
    EXPECT_EQ(convert(whole_stream(20)), "");
    const BundleReader k7(k7_);
    EXPECT_THAT(k7.fragments("Shots", "GPSTime", many), ElementsAre(0, 3));
    EXPECT_THAT(k7.read("Shots", "GPSTime", 0).values, SizeIs(5));
    // The last echo is told after the fourth cut: no shot is staged with it, so no time either.
    EXPECT_THAT(k7.fragments("OPP", "GPSTime", many), ElementsAre(0, 3, 4));
}

TEST_F(Fragments, BoundsOfTheTimeRangeCountAsInside) {
    convert(whole_stream(5));
    const auto times = BundleReader(k7_).read("Shots", "GPSTime", 0).values;
    set_time_range(times.front(), times.back());
    EXPECT_EQ(convert(whole_stream(5)), "");
    EXPECT_THAT(BundleReader(k7_).fragments("Shots", "GPSTime", many), IsEmpty());
    set_time_range(times.front(), times[3]);
    EXPECT_EQ(convert(whole_stream(5)), "");
    EXPECT_THAT(BundleReader(k7_).fragments("Shots", "GPSTime", many), ElementsAre(0));
}

TEST_F(Fragments, GridThatIsFullCutsAllGridsTogether) {
    input_.FragSize = 4;
    StreamBuilder stream;
    stream.describe().synchronise();
    for (std::uint32_t i = 0; i < 4; ++i) {
        stream.shot(i).echo(1000).echo(2000);
    }
    EXPECT_EQ(convert(stream.end()), "");
    const BundleReader k7(k7_);
    const auto rows = [&](const char* grid, int fragment) {
        return k7.read(grid, "GPSTime", fragment).values.size();
    };
    // The fourth echo is told by the packet of the third shot.
    EXPECT_EQ(rows("OPP", 0), 4U);
    EXPECT_EQ(rows("Shots", 0), 3U);
    EXPECT_EQ(rows("Shots", 0) + rows("Shots", 1), 4U);
    EXPECT_EQ(rows("OPP", 0) + rows("OPP", 1), 8U);
}

TEST_F(Fragments, WithoutOppThereAreNoEchoRowsAndNoGrid) {
    input_.ExportOPP = false;
    input_.FragSize = 5;
    EXPECT_EQ(convert(whole_stream(7)), "");
    EXPECT_FALSE(BundleReader(k7_).has_grid("OPP"));
    EXPECT_EQ(summary().echoes, 0U);
    EXPECT_EQ(summary().shots, 7U);
    EXPECT_EQ(summary().fragments, 2U);
    // Echoes that are not asked for are not lost.
    EXPECT_EQ(loss_count(scanlib::info_of(scanlib::loss::echo_without_position).name), 0U);
}

TEST_F(Fragments, ShotsAheadOfTheFirstSynchronisationGiveNoRows) {
    StreamBuilder stream;
    stream.describe().shots(3).add<scanlib::packets::line_stop_writer>();
    stream.synchronise().shots(2).end();
    EXPECT_EQ(convert(stream), "");
    EXPECT_EQ(summary().shots, 2U);
    EXPECT_EQ(summary().echoes, 2U);
    EXPECT_EQ(loss_count(scanlib::info_of(scanlib::loss::shot_without_time).name), 3U);
}

TEST_F(Fragments, EchoIsAsFarFromItsShotAsItsRangeTells) {
    EXPECT_EQ(convert(whole_stream(3)), "");
    const BundleReader k7(k7_);
    EXPECT_EQ(k7.read("OPP", "GPSTime", 0).values, k7.read("Shots", "GPSTime", 0).values);
    EXPECT_THAT(k7.read("OPP", "Positions", 0).values, testing::Each(0));
}

TEST_F(Fragments, AttributesTakeTheWavelengthInNanometres) {
    StreamBuilder stream;
    stream.describe();
    stream.add<scanlib::packets::atmosphere_4_writer>([](auto& w) {
        w.group_velocity(2.5e8F);
        w.wavelength(1550.0F);
    });
    EXPECT_EQ(convert(stream.synchronise().shots(2).end()), "");
    const BundleReader k7(k7_);
    for (const char* grid : {"Shots", "Waveforms"}) {
        EXPECT_EQ(k7.number(grid, "wavelength"), 1550) << grid;
        EXPECT_EQ(k7.number(grid, "group_velocity"), 2.5e8) << grid;
        EXPECT_EQ(k7.number(grid, "ampl_unit"), 0.01) << grid;
    }
}

} // namespace
