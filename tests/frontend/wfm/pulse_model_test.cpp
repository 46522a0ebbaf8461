// The pulse model: said on standard output, kept as scan attributes.
#include "waveform_stream.hpp"

#include <gmock/gmock.h>

namespace {

using frontend_test::WaveformStream;
using testing::ElementsAre;
using testing::IsEmpty;

/// Numbers of an array attribute of a grid; none if it is not there.
std::vector<double> array_attribute(const std::filesystem::path& k7, const std::string& grid,
                                    const std::string& name) {
    std::vector<double> values;
    const hid_t file = H5Fopen(k7.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    const std::string path = "/Slice_0/" + grid;
    if (H5Aexists_by_name(file, path.c_str(), name.c_str(), H5P_DEFAULT) > 0) {
        const hid_t attribute =
            H5Aopen_by_name(file, path.c_str(), name.c_str(), H5P_DEFAULT, H5P_DEFAULT);
        const hid_t space = H5Aget_space(attribute);
        values.resize(static_cast<std::size_t>(H5Sget_simple_extent_npoints(space)));
        H5Aread(attribute, H5T_NATIVE_DOUBLE, values.data());
        H5Sclose(space);
        H5Aclose(attribute);
    }
    H5Fclose(file);
    return values;
}

class PulseModel : public frontend_test::ConversionTest {
  protected:
    std::string converted_output(const WaveformStream& stream) {
        testing::internal::CaptureStdout();
        const std::string text = convert(stream);
        std::string output = testing::internal::GetCapturedStdout();
        EXPECT_EQ(text, "");
        return output;
    }
    std::vector<double> attribute(const char* name, const char* grid = "Shots") const {
        return array_attribute(k7_, grid, name);
    }
    void expect_none() const {
        for (const char* name : {"pulse_A_real", "pulse_A_imag", "pulse_B_real", "pulse_B_imag"}) {
            EXPECT_THAT(attribute(name), IsEmpty()) << name;
        }
    }
};

TEST_F(PulseModel, EachTermIsALineOfStandardOutput) {
    WaveformStream stream;
    stream.begin().pulse_model(1, {{1, -2, 3.5, 4e8}, {0.1234567, 6, -7, 1e-20}});
    stream.waveform(0, 3).end();
    EXPECT_EQ(
        converted_output(stream),
        "on_sbl_dg_channel_expsum_1: SysWave coefficient A: (1,-2) B: (3.5,4e+08) i: 0\n"
        "on_sbl_dg_channel_expsum_1: SysWave coefficient A: (0.123457,6) B: (-7,1e-20) i: 1\n");
}

TEST_F(PulseModel, PartsOfTheCoefficientsAreFourAttributesOfEachGrid) {
    WaveformStream stream;
    stream.begin().pulse_model(1, {{1, -2, 3.5, 4e8}, {5, 6, -7, 8}}).waveform(0, 3).end();
    converted_output(stream);
    for (const char* grid : {"Shots", "Waveforms"}) {
        EXPECT_THAT(attribute("pulse_A_real", grid), ElementsAre(1, 5));
        EXPECT_THAT(attribute("pulse_A_imag", grid), ElementsAre(-2, 6));
        EXPECT_THAT(attribute("pulse_B_real", grid), ElementsAre(3.5, -7));
        EXPECT_THAT(attribute("pulse_B_imag", grid), ElementsAre(4e8, 8));
    }
}

TEST_F(PulseModel, OfOtherChannelsIsDropped) {
    WaveformStream stream;
    stream.begin();
    for (const std::uint8_t channel : {std::uint8_t{0}, std::uint8_t{2}, std::uint8_t{15}}) {
        stream.pulse_model(channel, {{1, 2, 3, 4}});
    }
    stream.waveform(0, 3).end();
    EXPECT_EQ(converted_output(stream), "");
    expect_none();
}

TEST_F(PulseModel, WithoutASecondChannelIsDropped) {
    WaveformStream stream;
    stream.describe();
    stream.channel(0, "high_power").pulse_model(1, {{1, 2, 3, 4}}).synchronise();
    stream.waveform(0, 3).end();
    EXPECT_EQ(converted_output(stream), "");
    expect_none();
}

TEST_F(PulseModel, OfOldFormsMakesNoAttributes) {
    WaveformStream stream;
    stream.begin();
    stream.add<scanlib::packets::sbl_dg_channel_expsum_writer>(
        [](auto& w) {
            w.channel(1);
            w.element(0).A(1);
        },
        1);
    stream.add<scanlib::packets::pulse_model_expsum_writer>([](auto& w) { w.element(0).A(1); }, 1);
    stream.waveform(0, 3).end();
    EXPECT_EQ(converted_output(stream), "");
    expect_none();
}

TEST_F(PulseModel, LaterOneWithinTheFirstFragmentReplacesTheFormer) {
    WaveformStream stream;
    stream.begin().pulse_model(1, {{1, 2, 3, 4}, {5, 6, 7, 8}}).waveform(0, 3);
    stream.pulse_model(1, {{9, 10, 11, 12}}).end();
    converted_output(stream);
    EXPECT_THAT(attribute("pulse_A_real"), ElementsAre(9));
}

TEST_F(PulseModel, WithoutTermsTakesTheFormerAway) {
    WaveformStream stream;
    stream.begin().pulse_model(1, {{1, 2, 3, 4}}).pulse_model(1, {}).waveform(0, 3).end();
    converted_output(stream);
    expect_none();
}

TEST_F(PulseModel, OfTheFirstFragmentThatHasOneStays) {
    input_.FragSize = 2;
    WaveformStream stream;
    stream.begin();
    stream.waveform(0, 3).waveform(1, 3).waveform(2, 3); // a fragment ahead of any
    stream.pulse_model(1, {{1, 2, 3, 4}});
    stream.waveform(3, 3).waveform(4, 3).waveform(5, 3);
    stream.pulse_model(1, {{9, 10, 11, 12}, {13, 14, 15, 16}});
    stream.waveform(6, 3).end();
    converted_output(stream);
    EXPECT_GE(summary().fragments, 3U);
    EXPECT_THAT(attribute("pulse_A_real"), ElementsAre(1));
    EXPECT_THAT(attribute("pulse_B_imag"), ElementsAre(4));
}

} // namespace
