// The channels as metadata, both ways.
#include "recording_wave.hpp"
#include "scanlib/scanlib_exception.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

using namespace scanlib;
using namespace scanlib::testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

namespace {

/// What is written behind the member of the points.
std::string added_by_wave(const fed_wave& w) {
    std::ostringstream base;
    w.pointcloud::write_meta(base);
    std::ostringstream whole;
    w.write_meta(whole);
    EXPECT_EQ(whole.str().substr(0, base.str().size()), base.str());
    return whole.str().substr(base.str().size());
}

wave_channel channel_of(std::string name, double number) {
    wave_channel c;
    c.name = std::move(name);
    c.sampling_time = number;
    c.adc_resolution_bits = 12;
    c.wavelength = 0.5;
    c.delta_st = 0.125;
    return c;
}

/// A wave that has read stored parameters with `wave_json` under "wave".
fed_wave& reading(fed_wave& w, const std::string& wave_json) {
    w.stored_parameters("{\"wave\":" + wave_json + "}");
    w.meas_start();
    return w;
}

std::string failure_of(const std::string& wave_json) {
    fed_wave w;
    try {
        reading(w, wave_json);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "none";
}

} // namespace

TEST(wave_meta, without_channels_there_is_no_member) {
    const fed_wave w;
    EXPECT_EQ(added_by_wave(w), "");
}

TEST(wave_meta, whole_text) {
    fed_wave w;
    w.channels = {channel_of("high_power", 0.25), channel_of("low_power", 2)};
    w.channels[1].a_lin = 0.75;
    w.channels[1].delay = 0.0625;
    w.channels[1].scale = 3.25;
    w.channels[1].expsum_ab = {{1, -2}, {3, -4}};
    w.channels[1].expsum_gw = {{5, -6}, {7.5, -8.5}};
    w.reference_channel_index = 3;
    w.t_null_pdae = 1.5;
    EXPECT_EQ(added_by_wave(w),
              ",\"wave\":{\"channel_properties\":["
              "{\"name\":\"high_power\",\"sampling_time\":0.25,\"adc_resolution_bits\":12,"
              "\"wavelength\":0.5,\"delta_st\":0.125},"
              "{\"name\":\"low_power\",\"sampling_time\":2,\"adc_resolution_bits\":12,"
              "\"wavelength\":0.5,\"delta_st\":0.125,"
              "\"expsum\":[{\"A\":1,\"B\":-2,\"gamma\":5,\"omega\":-6},"
              "{\"A\":3,\"B\":-4,\"gamma\":7.5,\"omega\":-8.5}],"
              "\"a_lin\":0.75,\"delay\":0.0625,\"scale\":3.25}],"
              "\"reference_channel_index\":3,\"t_null_pdae\":1.5}");
}

TEST(wave_meta, lists_of_a_pulse_model_that_differ_in_length_are_left_out) {
    fed_wave w;
    w.channels = {channel_of("a", 1)};
    w.channels[0].expsum_ab = {{1, 2}, {3, 4}};
    w.channels[0].expsum_gw = {{5, 6}};
    EXPECT_THAT(added_by_wave(w), ::testing::Not(HasSubstr("expsum")));
    EXPECT_THAT(added_by_wave(w), ::testing::Not(HasSubstr("a_lin")));
}

TEST(wave_meta, stands_beside_the_points_in_the_object) {
    fed_wave w;
    w.describe();
    w.meas_start();
    std::ostringstream out;
    w.get_meta(out, false);
    EXPECT_THAT(out.str(), ::testing::StartsWith("{\"pointcloud\":{"));
    EXPECT_THAT(out.str(),
                HasSubstr("},\"wave\":{\"channel_properties\":[{\"name\":\"high_power\""));
}

TEST(wave_meta, each_key_is_read) {
    fed_wave w;
    reading(w, R"({"channel_properties":[
        {"name":"first","sampling_time":0.25,"adc_resolution_bits":14,"wavelength":0.5,
         "delta_st":0.125,"a_lin":0.75,"delay":0.0625,"scale":3.25,
         "expsum":[{"A":1,"B":2,"gamma":3,"omega":4},{"A":5,"B":6,"gamma":7,"omega":8}]},
        {"name":"second"}],
        "reference_channel_index":1,"t_null_pdae":-2.5})");
    ASSERT_THAT(w.channels, SizeIs(2));
    const wave_channel& c = w.channels[0];
    EXPECT_EQ(c.name, "first");
    EXPECT_EQ(c.sampling_time, 0.25);
    EXPECT_EQ(c.adc_resolution_bits, 14U);
    EXPECT_EQ(c.wavelength, 0.5);
    EXPECT_EQ(c.delta_st, 0.125);
    EXPECT_EQ(c.a_lin, 0.75);
    EXPECT_EQ(c.delay, 0.0625);
    EXPECT_EQ(c.scale, 3.25);
    EXPECT_THAT(c.expsum_ab, ElementsAre(Pair(1, 2), Pair(5, 6)));
    EXPECT_THAT(c.expsum_gw, ElementsAre(Pair(3, 4), Pair(7, 8)));
    EXPECT_EQ(w.channels[1].name, "second");
    EXPECT_EQ(w.channels[1].a_lin, 0.4);
    EXPECT_EQ(w.reference_channel_index, 1U);
    EXPECT_EQ(w.t_null_pdae, -2.5);
}

TEST(wave_meta, absent_keys_leave_what_the_stream_told) {
    fed_wave w;
    w.describe();
    w.channels[1].expsum_ab = {{1, 2}};
    w.channels[1].expsum_gw = {{3, 4}};
    const auto before = w.channels;
    reading(w, R"({"channel_properties":[{},{},{},{},{"name":"fifth"}]})");
    ASSERT_THAT(w.channels, SizeIs(5));
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(w.channels[i].name, before[i].name);
        EXPECT_EQ(w.channels[i].sampling_time, before[i].sampling_time);
        EXPECT_EQ(w.channels[i].adc_resolution_bits, before[i].adc_resolution_bits);
        EXPECT_EQ(w.channels[i].wavelength, before[i].wavelength);
        EXPECT_EQ(w.channels[i].delta_st, before[i].delta_st);
        EXPECT_EQ(w.channels[i].expsum_ab, before[i].expsum_ab);
    }
    EXPECT_EQ(w.channels[4].name, "fifth");
    EXPECT_EQ(w.reference_channel_index, 3U);
    EXPECT_EQ(w.t_null_pdae, 0x1p-20);
    fed_wave untouched;
    untouched.describe();
    reading(untouched, "{}");
    EXPECT_THAT(untouched.channels, SizeIs(4));
}

TEST(wave_meta, low_power_tells_the_reference_time) {
    fed_wave w;
    reading(w, R"({"channel_properties":[{"name":"low_power","delta_st":0.5}]})");
    EXPECT_EQ(w.t_null_pdae, 0.5);
    fed_wave named_before;
    named_before.describe();
    reading(named_before, R"({"channel_properties":[{},{"delta_st":0.25}]})");
    EXPECT_EQ(named_before.t_null_pdae, 0.25);
    fed_wave other;
    reading(other, R"({"channel_properties":[{"name":"high_power","delta_st":0.5}]})");
    EXPECT_EQ(other.t_null_pdae, 0);
}

TEST(wave_meta, reference_time_of_its_own_wins_and_stays) {
    fed_wave w;
    reading(w, R"({"channel_properties":[{"name":"low_power","delta_st":0.5}],"t_null_pdae":2})");
    EXPECT_EQ(w.t_null_pdae, 2);
    w.channel(1, "low_power", 3);
    EXPECT_EQ(w.t_null_pdae, 2);
}

TEST(wave_meta, reference_time_of_a_calibration_yields_to_the_key_only) {
    const auto calibrated = [](fed_wave& w) {
        w.feed<packets::calib_table_writer>(
            [](auto& p) {
                p.table_id(13);
                p.y_offset(4);
            },
            1);
    };
    fed_wave low_power;
    calibrated(low_power);
    reading(low_power, R"({"channel_properties":[{"name":"low_power","delta_st":0.5}]})");
    EXPECT_EQ(low_power.t_null_pdae, -4);
    fed_wave key;
    calibrated(key);
    reading(key, R"({"t_null_pdae":2})");
    EXPECT_EQ(key.t_null_pdae, 2);
}

TEST(wave_meta, empty_pulse_model_clears_the_one_told) {
    fed_wave w;
    w.describe();
    w.channels[0].expsum_ab = {{1, 2}};
    w.channels[0].expsum_gw = {{3, 4}};
    reading(w, R"({"channel_properties":[{"expsum":""}]})");
    EXPECT_THAT(w.channels[0].expsum_ab, IsEmpty());
    EXPECT_THAT(w.channels[0].expsum_gw, IsEmpty());
}

TEST(wave_meta, what_was_written_comes_back_in_either_style) {
    for (const bool pretty : {false, true}) {
        fed_wave told;
        told.describe();
        told.channels[1].expsum_ab = {{0.1, 1e300}};
        told.channels[1].expsum_gw = {{-1e-300, 1.0 / 3}};
        told.channels[1].delay = 1.1e-9;
        told.channels[2].name = "quote \" slash \\ line\n";
        told.meas_start();
        std::ostringstream out;
        told.get_meta(out, pretty);
        fed_wave w;
        w.stored_parameters(out.str());
        w.meas_start();
        ASSERT_EQ(w.channels.size(), told.channels.size());
        EXPECT_EQ(added_by_wave(w), added_by_wave(told));
        EXPECT_EQ(w.channels[2].name, told.channels[2].name);
        EXPECT_EQ(w.channels[1].expsum_gw, told.channels[1].expsum_gw);
    }
}

TEST(wave_meta, malformed_members_are_named) {
    EXPECT_THAT(failure_of(R"({"t_null_pdae":"soon"})"), HasSubstr("t_null_pdae"));
    EXPECT_THAT(failure_of(R"({"reference_channel_index":[]})"),
                HasSubstr("reference_channel_index"));
    EXPECT_THAT(failure_of(R"({"channel_properties":7})"), HasSubstr("channel_properties"));
    EXPECT_THAT(failure_of(R"({"channel_properties":[{"delta_st":"x"}]})"), HasSubstr("delta_st"));
    EXPECT_THAT(failure_of(R"({"channel_properties":[{"expsum":[{"A":1,"B":2,"gamma":3}]}]})"),
                HasSubstr("omega"));
    EXPECT_THAT(failure_of(R"({"channel_properties":[{"expsum":3}]})"), HasSubstr("expsum"));
}

TEST(wave_meta, more_than_sixteen_channels_are_refused) {
    std::string list = "{}";
    for (int i = 1; i < 16; ++i) {
        list += ",{}";
    }
    EXPECT_EQ(failure_of("{\"channel_properties\":[" + list + "]}"), "none");
    EXPECT_THAT(failure_of("{\"channel_properties\":[" + list + ",{}]}"),
                HasSubstr("channel_properties"));
}
