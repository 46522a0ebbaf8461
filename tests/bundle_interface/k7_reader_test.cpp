#include "bundle_interface/k7_reader.hpp"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "bundle_interface/bundle_builder.hpp"

namespace {

using bundle_test::counting;
using bundle_test::counting_rows;
using bundle_test::field_of;
using bundle_test::shots_of;
using Skein::K7Reader;
using Skein::K7ReadError;
using Skein::K7Type;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string chart = "/Slice_0/Shots/StandardCartesianChart3D";

class K7ReaderTest : public testing::Test {
  protected:
    void SetUp() override {
        Skein::Bundle bundle;
        bundle.bindToNew(path, {});
        const auto grid = shots_of(bundle);
        grid->attributes.setAttribute("t_ref", 1.5);
        grid->attributes.setAttribute("serial", std::string("S1"));
        bundle_test::store(field_of(grid, "GPSTime"), 10, counting(3, 100));
        bundle_test::store(field_of(grid, "GPSTime"), 2, counting(5));
        bundle_test::store(field_of(grid, "Waveforms"), 2, counting_rows(4, 3));
    }
    void TearDown() override { std::filesystem::remove(path); }

    /// The text with which reading fails.
    template<class Read>
    std::string failure(Read&& read) {
        try {
            read();
        } catch (const K7ReadError& e) {
            return e.what();
        }
        return {};
    }

    const std::string path = testing::TempDir() + "k7_reader_" + std::to_string(getpid()) + ".k7";
};

TEST_F(K7ReaderTest, ListsSlicesGridsFieldsAndFragmentsByRisingNumber) {
    const K7Reader file(path);
    EXPECT_EQ(file.size(), std::filesystem::file_size(path));
    EXPECT_THAT(file.slices(), ElementsAre("/Slice_0"));
    EXPECT_THAT(file.grids("/Slice_0"), ElementsAre("/Slice_0/Shots"));
    EXPECT_THAT(file.fields("/Slice_0/Shots"),
                ElementsAre(chart + "/GPSTime", chart + "/Waveforms"));
    const K7Reader::Fragments fragments = file.fragments(chart + "/GPSTime");
    EXPECT_THAT(fragments.numbers, ElementsAre(2, 10));
    EXPECT_TRUE(fragments.others.empty());
}

TEST_F(K7ReaderTest, ReadsRowsFromTheMiddleOfAnArray) {
    const K7Reader file(path);
    const Skein::K7Array time = file.open(K7Reader::fragmentPath(chart + "/GPSTime", 2));
    EXPECT_EQ(time.type(), K7Type::f64);
    EXPECT_THAT(time.shape(), ElementsAre(5));
    std::vector<double> two(2);
    time.read(3, 2, two.data());
    EXPECT_THAT(two, ElementsAre(3, 4));

    const Skein::K7Array samples = file.open(K7Reader::fragmentPath(chart + "/Waveforms", 2));
    EXPECT_EQ(samples.type(), K7Type::u16);
    EXPECT_EQ(samples.width(), 3U);
    EXPECT_EQ(samples.rowBytes(), 6U);
    std::vector<std::uint16_t> row(3);
    samples.read(1, 1, row.data());
    EXPECT_THAT(row, ElementsAre(3, 4, 5));
}

TEST_F(K7ReaderTest, ReadsAttributes) {
    const K7Reader file(path);
    const auto version = file.attribute("/", "FormatVersion");
    ASSERT_TRUE(version);
    EXPECT_EQ(version->type, K7Type::u32);
    EXPECT_TRUE(version->scalar);
    EXPECT_THAT(version->numbers, ElementsAre(1));
    const auto format = file.attribute("/", "Format");
    ASSERT_TRUE(format);
    EXPECT_EQ(format->type, K7Type::text);
    EXPECT_EQ(format->text, "K7");
    EXPECT_THAT(file.attribute("/Slice_0/Shots", "t_ref")->numbers, ElementsAre(1.5));
    EXPECT_EQ(file.attribute("/Slice_0/Shots", "serial")->text, "S1");
    EXPECT_FALSE(file.attribute("/Slice_0/Shots", "refltab"));
}

TEST_F(K7ReaderTest, AnArrayOutlivesItsReader) {
    auto file = std::make_unique<K7Reader>(path);
    const Skein::K7Array time = file->open(K7Reader::fragmentPath(chart + "/GPSTime", 10));
    file.reset();
    double first = 0;
    time.read(0, 1, &first);
    EXPECT_EQ(first, 100);
}

TEST_F(K7ReaderTest, RowsBeyondTheEndAndOtherTypesAreRefused) {
    const K7Reader file(path);
    const Skein::K7Array time = file.open(K7Reader::fragmentPath(chart + "/GPSTime", 2));
    std::vector<double> rows(8);
    EXPECT_THAT(failure([&] { time.read(4, 2, rows.data()); }), HasSubstr("only 5 rows"));
    EXPECT_THAT(failure([&] { time.read(~std::uint64_t{0}, 2, rows.data()); }),
                HasSubstr("only 5 rows"));
    std::vector<float> floats(8);
    EXPECT_THAT(failure([&] { time.read(0, 1, floats.data()); }),
                HasSubstr("it holds f64, not f32"));
}

TEST_F(K7ReaderTest, WhatIsMissingIsNamedWithFileAndPath) {
    const K7Reader file(path);
    EXPECT_EQ(file.kindOf("/Slice_0/Shots"), K7Reader::Kind::group);
    EXPECT_EQ(file.kindOf(chart + "/GPSTime/Fragment_2"), K7Reader::Kind::array);
    EXPECT_EQ(file.kindOf("/Slice_0/OPP"), K7Reader::Kind::none);
    EXPECT_EQ(file.kindOf("/Slice_7/OPP/Range"), K7Reader::Kind::none);
    for (const std::string& text : {failure([&] { file.open("/Slice_0/OPP/x"); }),
                                    failure([&] { file.members("/Slice_0/OPP/x"); }),
                                    failure([&] { file.attribute("/Slice_0/OPP/x", "a"); })}) {
        EXPECT_THAT(text, HasSubstr(path));
        EXPECT_THAT(text, HasSubstr("/Slice_0/OPP/x: it is missing"));
    }
    EXPECT_THAT(failure([&] { file.open("/Slice_0"); }), HasSubstr("not an array"));
    EXPECT_THAT(failure([&] { file.column("/Slice_0"); }), HasSubstr("not an array"));
    EXPECT_THAT(failure([&] { file.members(chart + "/GPSTime/Fragment_2"); }),
                HasSubstr("not a group"));
}

TEST_F(K7ReaderTest, PathsThatDoNotBeginAtTheRootOrHaveEmptyNamesAreMissing) {
    const K7Reader file(path);
    for (const char* const odd : {"", "x", "Slice_0", "xSlice_0/Shots", "/Slice_0/", "//Slice_0"}) {
        EXPECT_EQ(file.kindOf(odd), K7Reader::Kind::none) << odd;
        EXPECT_THAT(failure([&] { file.members(odd); }), HasSubstr("it is missing")) << odd;
        EXPECT_THAT(failure([&] { file.attribute(odd, "a"); }), HasSubstr("missing")) << odd;
    }
}

TEST_F(K7ReaderTest, FilesThatAreNoneOrCutAreRefused) {
    EXPECT_THAT(failure([&] { K7Reader file(path + ".no"); }),
                HasSubstr(path + ".no: no such file"));
    EXPECT_THAT(failure([] { K7Reader file(testing::TempDir()); }),
                HasSubstr("not a regular file"));
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    EXPECT_THAT(failure([&] { K7Reader file(path); }), HasSubstr(path));
    std::ofstream(path, std::ios::trunc) << "text";
    EXPECT_THAT(failure([&] { K7Reader file(path); }), HasSubstr(path));
}

} // namespace
