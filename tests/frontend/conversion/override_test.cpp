// Recordings with an override text: what the conversion does where the text cannot be applied.
#include "conversion_fixture.hpp"

#include <gmock/gmock.h>

namespace {

using frontend_test::BundleReader;
using frontend_test::StreamBuilder;
using frontend_test::whole_stream;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* wrong_serial =
    R"({"packets":[{"existing_packet_identification":{"ID":[1,0],"contentID":[[2,"\"S1\""]]},
                    "new_packet":{"ID":[1,0],"content":["\"T1\"","\"B1\"","\"S2\"","[]"]}}]})";

class OverriddenConversion : public frontend_test::ConversionTest {
  protected:
    std::string convert(const StreamBuilder& stream, const std::string& pxp) {
        return Riegl::convert_stream(stream_, input_, [&](const std::string&) {
            auto* const connection = new frontend_test::PlannedConnection(stream.bytes(), plan_);
            connection->pxp(pxp);
            return connection;
        });
    }
    /// An interruption at the very start, whose final write has no metadata to write.
    void expect_stopped_at_the_first_header(const std::string& text, const std::string& cause) {
        EXPECT_EQ(text, no_table);
        EXPECT_EQ(input_.Errors, "");
        EXPECT_TRUE(summary().interrupted);
        EXPECT_THAT(summary().cause, HasSubstr(cause));
        EXPECT_EQ(summary().shots, 0u);
        EXPECT_FALSE(std::filesystem::exists(folder_ / "errors.log"));
        for (const std::string& message : console_.messages) {
            EXPECT_THAT(message, testing::Not(HasSubstr("Export interrupted")));
        }
    }
};

TEST_F(OverriddenConversion, ReplacementThatFailsAtTheFirstHeaderIsTheReturnedText) {
    input_.ErrorLog = folder_ / "errors.log";
    expect_stopped_at_the_first_header(convert(whole_stream(3), wrong_serial),
                                       "error: cannot modify serial number or instrument type");
}

TEST_F(OverriddenConversion, MalformedTextEndsTheSameWay) {
    input_.ErrorLog = folder_ / "errors.log";
    expect_stopped_at_the_first_header(convert(whole_stream(3), "{\"packets\""), "expected");
}

TEST_F(OverriddenConversion, ReplacementThatFailsLaterKeepsWhatCameBefore) {
    StreamBuilder stream;
    stream.describe().synchronise().shots(2000);
    stream.add<scanlib::packets::header_writer>([](auto& w) {
        w.serial("S2");
        w.type_id("T1");
        w.build("B1");
    });
    stream.shots(3).end();
    EXPECT_EQ(convert(stream, R"({"packets":[{"existing_packet_identification":{"ID":[1,0]},
                  "new_packet":{"ID":[1,0],"content":["\"T1\"","\"B2\"","\"S1\"","[]"]}}]})"),
              "");
    EXPECT_THAT(input_.Errors, HasSubstr("Error: error: cannot modify serial number"));
    EXPECT_TRUE(summary().interrupted);
    EXPECT_GT(summary().shots, 0u);
    EXPECT_EQ(plan_.closes, 1);
}

TEST_F(OverriddenConversion, ReplacedUnitsShowInTheColumns) {
    EXPECT_EQ(convert(whole_stream(2),
                      R"({"packets":[{"existing_packet_identification":{"ID":[2,0]},
                          "new_packet":{"ID":[2,0],
                                        "content":["0.002","3600","3600","1e-07","0.01"]}}]})"),
              "");
    EXPECT_THAT(BundleReader(k7_).read("OPP", "Range", 0).values,
                ElementsAre(testing::DoubleNear(2.0, 1e-6), testing::DoubleNear(2.002, 1e-6)));
}

TEST_F(OverriddenConversion, VerificationThatFailsLeavesTheConversionAsItIs) {
    EXPECT_EQ(convert(whole_stream(2), ""), "");
    const std::string plain = bytes_of(k7_);
    EXPECT_EQ(convert(whole_stream(2),
                      R"({"file_verification":[{"ID":[1,0],"contentID":[[2,"\"S9\""]]}],
                          "packets":[{"existing_packet_identification":{"ID":[2,0]}}]})"),
              "");
    EXPECT_EQ(bytes_of(k7_), plain);
    EXPECT_EQ(input_.Errors, "");
}

} // namespace
