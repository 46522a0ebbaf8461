#include "scan_attributes.hpp"

#include "frontend/recorded_console.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Riegl::ReflectanceAmplitudeAttributes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string in_parser = "[parse_reflectance_amplitude_attributes] ";

class MetadataParser : public testing::Test {
  protected:
    ReflectanceAmplitudeAttributes parse(const std::string& json) {
        return Riegl::parse_reflectance_amplitude_attributes(json, input_);
    }
    static std::string table_of(std::size_t entries) {
        std::string json = "{\"pointcloud\": {\"refltab\": [";
        for (std::size_t i = 0; i < entries; ++i) {
            if (i != 0) {
                json += ',';
            }
            json += std::to_string(i % 100);
        }
        return json + "]}}";
    }
    static std::vector<float> entries(const ReflectanceAmplitudeAttributes& parsed) {
        return {parsed.refltab->data(), parsed.refltab->data() + parsed.refltab->size()};
    }
    void expect_nothing(const ReflectanceAmplitudeAttributes& parsed, const std::string& message) {
        EXPECT_EQ(parsed.ampl_unit, 0);
        EXPECT_EQ(parsed.refltab_delta, 0);
        EXPECT_FALSE(parsed.refltab.available());
        EXPECT_THAT(console_.messages, ElementsAre(testing::StartsWith(in_parser + message)));
        EXPECT_EQ(input_.Errors, "");
    }

    Riegl::Input input_;
    frontend_test::RecordedConsole console_;
};

TEST_F(MetadataParser, ReadsNumbersAndTable) {
    const auto parsed = parse(
        R"({"pointcloud": {"ampl_unit": 0.25, "refltab_delta": 0.125, "refltab": [1, -2.5]}})");
    EXPECT_EQ(parsed.ampl_unit, 0.25);
    EXPECT_EQ(parsed.refltab_delta, 0.125);
    EXPECT_THAT(entries(parsed), ElementsAre(1.0F, -2.5F));
    EXPECT_THAT(console_.messages, IsEmpty());
}

TEST_F(MetadataParser, NumbersGivenAsStringsAreRead) {
    const auto parsed = parse(
        R"({"pointcloud": {"ampl_unit": "0.01", "refltab_delta": "1e-1", "refltab": ["3", 4]}})");
    EXPECT_EQ(parsed.ampl_unit, 0.01);
    EXPECT_EQ(parsed.refltab_delta, 0.1);
    EXPECT_THAT(entries(parsed), ElementsAre(3.0F, 4.0F));
}

TEST_F(MetadataParser, NumberThatIsAbsentOrNoNumberIsZero) {
    const auto parsed =
        parse(R"({"pointcloud": {"ampl_unit": "wide", "refltab_delta": [1], "refltab": [1]}})");
    EXPECT_EQ(parsed.ampl_unit, 0);
    EXPECT_EQ(parsed.refltab_delta, 0);
    EXPECT_EQ(parse(R"({"pointcloud": {"refltab": [1]}})").ampl_unit, 0);
}

TEST_F(MetadataParser, TableElementThatIsNeitherNumberNorStringIsZero) {
    const auto parsed = parse(R"({"pointcloud": {"refltab": [1, null, true, {}, [2], "x", "5"]}})");
    EXPECT_THAT(entries(parsed), ElementsAre(1.0F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F, 5.0F));
}

TEST_F(MetadataParser, EmptyTextSaysSo) {
    expect_nothing(parse(""), "JSON string is empty.");
}

TEST_F(MetadataParser, TextThatIsNoJsonTellsTheParsersReason) {
    expect_nothing(parse("{\"pointcloud\": "), "JSON parse error: ");
    EXPECT_GT(console_.messages.at(0).size(), (in_parser + "JSON parse error: ").size());
}

TEST_F(MetadataParser, DocumentWithoutPointcloudSaysSo) {
    expect_nothing(parse("{\"cloud\": {}}"), "No 'pointcloud' found in metadata.");
}

TEST_F(MetadataParser, DocumentThatIsAnArrayHasNoPointcloud) {
    expect_nothing(parse("[1, 2]"), "No 'pointcloud' found in metadata.");
}

TEST_F(MetadataParser, MissingTableKeepsTheNumbers) {
    const auto parsed = parse(R"({"pointcloud": {"ampl_unit": 2, "refltab_delta": 3}})");
    EXPECT_EQ(parsed.ampl_unit, 2);
    EXPECT_EQ(parsed.refltab_delta, 3);
    EXPECT_FALSE(parsed.refltab.available());
    EXPECT_THAT(console_.messages, ElementsAre(in_parser + "No 'refltab' found in pointcloud."));
}

TEST_F(MetadataParser, EmptyTableIsThereWithoutEntries) {
    const auto parsed = parse(table_of(0));
    ASSERT_TRUE(parsed.refltab.available());
    EXPECT_EQ(parsed.refltab->size(), 0U);
    EXPECT_THAT(console_.messages, IsEmpty());
}

TEST_F(MetadataParser, TableThatIsNoArrayHasNoEntries) {
    EXPECT_EQ(parse(R"({"pointcloud": {"refltab": "12"}})").refltab->size(), 0U);
}

TEST_F(MetadataParser, TableOf16383EntriesGivesNoWarning) {
    EXPECT_EQ(parse(table_of(16383)).refltab->size(), 16383U);
    EXPECT_THAT(console_.messages, IsEmpty());
    EXPECT_EQ(input_.Errors, "");
}

TEST_F(MetadataParser, TableOf16384EntriesGivesTheWarningThoughItIsComplete) {
    const auto parsed = parse(table_of(16384));
    ASSERT_EQ(parsed.refltab->size(), 16384U);
    EXPECT_EQ((*parsed.refltab)[16383], 83.0F);
    const std::string warning =
        in_parser + "Warning: refl_table truncated to 16384 entries (64 KB limit).";
    EXPECT_THAT(console_.messages, ElementsAre(warning));
    EXPECT_EQ(input_.Errors, warning);
}

class TRef : public testing::Test {
  protected:
    static constexpr double measured = 2.5e-7;

    double after_override(const std::string& serial, const std::string& file) {
        Riegl::AttributesForFWFProcessing attributes;
        attributes.serial = serial;
        attributes.t_ref = measured;
        Riegl::override_t_ref(attributes, file, input_);
        return attributes.t_ref;
    }
    void expect_silence() {
        EXPECT_THAT(console_.messages, IsEmpty());
        EXPECT_EQ(input_.Errors, "");
    }

    Riegl::Input input_;
    frontend_test::RecordedConsole console_;
};

TEST_F(TRef, ThreeRecordingsOfOneInstrumentAreOverridden) {
    EXPECT_EQ(after_override("S2220213", "/x/190209_124210_Scanner_1.rxp"), 1.58875e-07);
    EXPECT_EQ(after_override("S2220213", "170822_103808_Scanner_1.rxp"), 1.494e-07);
    EXPECT_EQ(after_override("S2220213", "200318_093330_Scanner_1.rxp"), 1.85e-07);
    EXPECT_THAT(console_.messages,
                ElementsAre("Warning: Overwrite t_ref 1.58875e-7 based on date: 09.02.2019",
                            "Warning: Overwrite t_ref 1.494e-7 based on date: 22.08.2017",
                            "Warning: Overwrite t_ref 1.85e-7 based on date: 18.03.2020"));
    EXPECT_EQ(input_.Errors, console_.messages[0] + console_.messages[1] + console_.messages[2]);
}

TEST_F(TRef, OnlyDateAndTimeOfTheNameCount) {
    EXPECT_EQ(after_override("S2220213", "190209_124210_other.rdbx"), 1.58875e-07);
}

TEST_F(TRef, FileOfAnotherDateOrTimeStaysAsMeasured) {
    for (const char* file : {"190210_124210_Scanner_1.rxp", "190209_124211_Scanner_1.rxp",
                             "scan.rxp", "", "190209_124210/scan.rxp"}) {
        EXPECT_EQ(after_override("S2220213", file), measured) << file;
    }
    expect_silence();
}

TEST_F(TRef, AnotherInstrumentWithSuchAFileIsNotOverridden) {
    for (const char* serial : {"S2220214", "", "S222021", "S22202130", "s2220213"}) {
        EXPECT_EQ(after_override(serial, "190209_124210_Scanner_1.rxp"), measured) << serial;
    }
    expect_silence();
}

} // namespace
