#include "bundle_interface/loompdf.hpp"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "canvas.hpp"
#include "frontend/inspect/pdf_reader.hpp"

namespace {

using frontend_test::ask;
using frontend_test::bytes_of;
using frontend_test::texts_of;
using LoomPDF::VectorToPDF;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double huge = std::numeric_limits<double>::max();

VectorToPDF::Range range(double min, double max) {
    return VectorToPDF::Range(new Skein::DataRange<double>(min, max));
}

class Plot : public testing::Test {
  protected:
    Plot() {
        std::string name = testing::TempDir() + "plotXXXXXX";
        folder_ = mkdtemp(name.data());
        file_ = folder_ / "plot.pdf";
    }
    ~Plot() override { std::filesystem::remove_all(folder_); }

    VectorToPDF page(const std::string& title = "A title",
                     std::pair<VectorToPDF::Range, VectorToPDF::Range> ranges = {},
                     std::pair<unsigned int, unsigned int> size = {30, 8}) const {
        return {file_.string(), false, title, {"Abscissa", "Ordinate"}, std::move(ranges), size};
    }
    /// The page could be written, and a reader has no complaint about it.
    void expect_written(const VectorToPDF& plot) const {
        EXPECT_EQ(plot.write2Pdf(false), "");
        EXPECT_THAT(ask("pdfinfo", file_), HasSubstr("Pages:           1\n"));
        EXPECT_THAT(ask("pdftocairo -svg", file_, "/dev/null"), "");
    }

    std::filesystem::path folder_;
    std::filesystem::path file_;
};

TEST_F(Plot, ShowsTitleLabelsAndNumbers) {
    VectorToPDF plot = page("Pulse 17", {{}, range(0, 2600)});
    EXPECT_EQ(plot.addVector({0, 1, 2, 3}, {5, 2000, 100, 7}, "n"), "");
    expect_written(plot);
    const std::string texts = texts_of(file_);
    for (const char* text : {"Pulse 17", "Abscissa", "Ordinate", "500", "1000", "2500", "3"}) {
        EXPECT_THAT(texts, HasSubstr(text));
    }
}

TEST_F(Plot, PageHasTheSizeInCentimetres) {
    expect_written(page());
    EXPECT_THAT(ask("pdfinfo", file_), HasSubstr("850.394 x 226.772 pts"));
}

TEST_F(Plot, EveryFontIsEmbedded) {
    expect_written(page("Umlaut \xC3\xA4, Greek \xCE\xBB"));
    std::istringstream fonts(ask("pdffonts", file_));
    std::string line;
    std::getline(fonts, line);
    const std::size_t column = line.find("emb");
    ASSERT_NE(column, std::string::npos);
    std::getline(fonts, line);
    int count = 0;
    while (std::getline(fonts, line)) {
        EXPECT_EQ(line.substr(column, 3), "yes") << line;
        ++count;
    }
    EXPECT_GT(count, 0);
}

TEST_F(Plot, HoldsNoPixelImage) {
    VectorToPDF plot = page();
    plot.addVector({0, 1, 2}, {1, 3, 2}, "n");
    expect_written(plot);
    EXPECT_THAT(ask("pdfimages -list", file_), Not(HasSubstr("image ")));
    EXPECT_THAT(bytes_of(file_), Not(HasSubstr("/Subtype /Image")));
}

TEST_F(Plot, RepeatsToTheByteAtAnotherTime) {
    VectorToPDF plot = page();
    plot.addVector({0, 1, 2}, {1, 3, 2}, "n");
    expect_written(plot);
    const std::string first = bytes_of(file_);
    ask("sleep 1.1; true", file_);
    expect_written(plot);
    EXPECT_EQ(bytes_of(file_), first);
}

TEST_F(Plot, RefusesBrokenDataAndDrawsTheAxesAlone) {
    VectorToPDF plot = page();
    EXPECT_EQ(plot.addVector({}, {}, "n"), "VectorToPDF::addVector: broken data");
    EXPECT_EQ(plot.addVector({1, 2}, {1}, "n"), "VectorToPDF::addVector: broken data");
    EXPECT_TRUE(plot.series.empty());
    expect_written(plot);
    EXPECT_THAT(texts_of(file_), HasSubstr("no samples"));
}

TEST_F(Plot, SeriesKnowsItsLeastAndGreatestValue) {
    VectorToPDF plot = page();
    plot.addVector({0, 1, 2}, {4, -3, nan}, "Nr#");
    ASSERT_EQ(plot.series.size(), 1U);
    EXPECT_EQ(plot.series[0].name, "Nr#");
    EXPECT_EQ(plot.series[0].range->min, -3);
    EXPECT_EQ(plot.series[0].range->max, 4);
    plot.addVector({0}, {nan}, "none");
    EXPECT_FALSE(plot.series[1].range.available());
}

TEST_F(Plot, NamesStandBesideTheLinesWhereThereAreSeveral) {
    VectorToPDF plot = page();
    plot.addVector({0, 1}, {1, 2}, "alone");
    expect_written(plot);
    EXPECT_THAT(texts_of(file_), Not(HasSubstr("alone")));
    plot.addVector({0, 1}, {2, 1}, "second");
    expect_written(plot);
    EXPECT_THAT(texts_of(file_), HasSubstr("alone"));
    EXPECT_THAT(texts_of(file_), HasSubstr("second"));
}

TEST_F(Plot, AnyNumbersGiveAPage) {
    const std::vector<double> odd{0, nan, inf, -inf, huge, -huge, 1e-310, -0.0, 1e15, 3};
    const std::vector<VectorToPDF::Range> ranges{{},
                                                 range(0, 2600),
                                                 range(5, 5),
                                                 range(9, -9),
                                                 range(nan, 1),
                                                 range(-inf, inf),
                                                 range(-huge, huge),
                                                 range(0, 1e-320),
                                                 range(1e15, 1e15 + 0.25)};
    for (const auto& x : ranges) {
        for (const auto& y : ranges) {
            VectorToPDF plot = page("odd", {x, y});
            plot.addVector(odd, {odd.rbegin(), odd.rend()}, "a");
            plot.addVector(odd, odd, "b");
            ASSERT_EQ(plot.write2Pdf(false), "");
            ASSERT_THAT(bytes_of(file_), StartsWith("%PDF-"));
        }
    }
    expect_written(page("odd", {range(nan, nan), range(inf, inf)}));
}

TEST_F(Plot, SeriesPutTogetherByHandMayBeIncomplete) {
    VectorToPDF plot = page();
    plot.series.push_back({{0, 1, 2}, {1, 2}, "", {}});
    plot.series.push_back({{}, {1, 2}, "", range(nan, inf)});
    plot.series.push_back({});
    expect_written(plot);
}

TEST_F(Plot, MillionsOfPointsGiveASmallFile) {
    std::vector<double> x(2000000);
    std::vector<double> y(x.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
        x[i] = static_cast<double>(i);
        y[i] = static_cast<double>(i * 7919 % 2600);
    }
    VectorToPDF plot = page();
    plot.addVector(std::move(x), std::move(y), "n");
    expect_written(plot);
    EXPECT_LT(std::filesystem::file_size(file_), 1000000U);
}

TEST_F(Plot, LongTextsAreMadeToFit) {
    VectorToPDF plot(file_.string(), false, std::string(100000, 'W'),
                     {std::string(500, 'x'), std::string(500, 'y')}, {}, {30, 8});
    expect_written(plot);
    EXPECT_THAT(texts_of(file_), HasSubstr("WWW"));
    EXPECT_THAT(texts_of(file_), Not(HasSubstr(std::string(401, 'W'))));
}

TEST_F(Plot, BytesThatAreNoTextAreShownAsSuch) {
    const std::string title("a\xFF\xC0\x80\xED\xA0\x80\xF5\x00\n\xC3z", 13);
    expect_written(page(title));
    EXPECT_THAT(texts_of(file_), HasSubstr("a\xEF\xBF\xBD"));
    EXPECT_EQ(LoomPDF::presentable("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", 9),
              "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(LoomPDF::presentable("a\n\xC3", 9), "a \xEF\xBF\xBD");
    EXPECT_EQ(LoomPDF::presentable("\xC3\xA4\xC3\xA4\xC3\xA4", 2), "\xC3\xA4\xC3\xA4");
}

TEST_F(Plot, PagesWithoutRoomForAPlotAreToldAndNotWritten) {
    for (const std::pair<unsigned int, unsigned int>& size :
         {std::pair<unsigned int, unsigned int>{0, 0},
          {0, 8},
          {30, 0},
          {1, 8},
          {30, 1},
          {501, 8},
          {30, 4294967295U}}) {
        EXPECT_THAT(page("t", {}, size).write2Pdf(false),
                    StartsWith("VectorToPDF::write2Pdf: cannot write \"" + file_.string() +
                               "\": the page is "));
        EXPECT_FALSE(std::filesystem::exists(file_));
    }
    EXPECT_EQ(page("t", {}, {500, 500}).write2Pdf(false), "");
    EXPECT_THAT(ask("pdfinfo", file_), HasSubstr("14173.2 x 14173.2 pts"));
}

TEST_F(Plot, FolderThatIsMissingIsToldByText) {
    const std::string name = (folder_ / "no" / "plot.pdf").string();
    const VectorToPDF plot(name, false, "t", {"x", "y"}, {}, {30, 8});
    EXPECT_EQ(plot.write2Pdf(false),
              "VectorToPDF::write2Pdf: cannot write \"" + name + "\": No such file or directory");
}

TEST_F(Plot, FullDiskIsToldByText) {
    const VectorToPDF plot("/dev/full", false, "t", {"x", "y"}, {}, {30, 8});
    EXPECT_EQ(plot.write2Pdf(false),
              "VectorToPDF::write2Pdf: cannot write \"/dev/full\": No space left on device");
    EXPECT_TRUE(std::filesystem::exists("/dev/full"));
}

TEST_F(Plot, ReplacesAnEarlierFile) {
    std::ofstream(file_) << std::string(100000, 'x');
    expect_written(page());
    EXPECT_THAT(bytes_of(file_), StartsWith("%PDF-"));
    EXPECT_LT(std::filesystem::file_size(file_), 100000U);
}

} // namespace
