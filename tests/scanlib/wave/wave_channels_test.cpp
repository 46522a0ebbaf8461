// What the stream tells of channels, pulse models and the reference pulse.
#include "recording_wave.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace scanlib;
using namespace scanlib::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

namespace {

std::vector<std::string> names_of(const fed_wave& w) {
    std::vector<std::string> names;
    for (const wave_channel& c : w.channels) {
        names.push_back(c.name);
    }
    return names;
}

void parameters(fed_wave& w) {
    w.feed<packets::sbl_dg_parameters_writer>([](auto& p) {
        p.group_velocity(299702560.0F);
        p.sampling_time(0x1p-29F);
        p.delta_st(0x1p-25F);
    });
}

/// A table of `kind`; entry i is (i, values[i]).
void calibration(fed_wave& w, std::uint16_t kind, const std::vector<std::int16_t>& values) {
    w.feed<packets::calib_table_writer>(
        [&](auto& p) {
            p.table_id(kind);
            p.x_factor(0.5);
            p.x_offset(0.25);
            p.y_factor(0.125);
            p.y_offset(2);
            for (std::size_t i = 0; i < values.size(); ++i) {
                p.element(i).x(static_cast<std::uint16_t>(i));
                p.element(i).y(static_cast<std::uint16_t>(values[i]));
            }
        },
        values.size());
}

template<class Writer>
void pulse_model(fed_wave& w, std::uint8_t channel, std::size_t terms) {
    w.feed<Writer>(
        [&](auto& p) {
            if constexpr (requires { p.channel(channel); }) {
                p.channel(channel);
            }
            if constexpr (requires { p.a_lin(0.75); }) {
                p.a_lin(0.75);
            }
            p.delay(1.5e-9);
            p.scale(3.25);
            for (std::size_t i = 0; i < terms; ++i) {
                const double d = static_cast<double>(i);
                p.element(i).A(1 + d);
                p.element(i).B(-2 - d);
                p.element(i).gamma(4e8 + d);
                p.element(i).omega(-8e8 - d);
            }
        },
        terms);
}

} // namespace

TEST(wave_channels, at_first_there_are_none) {
    const fed_wave w;
    EXPECT_THAT(w.channels, IsEmpty());
    EXPECT_EQ(w.reference_channel_index, 3U);
    EXPECT_EQ(w.t_null_pdae, 0);
    EXPECT_FALSE(w.have_wave_data);
    EXPECT_FALSE(w.default_channels_in_use);
    EXPECT_TRUE(w.channel_mask.all());
    EXPECT_EQ(wave_channel{}.a_lin, 0.4);
}

TEST(wave_channels, parameters_alone_make_the_four_channels_reference_last) {
    fed_wave w;
    w.feed<packets::atmosphere_4_writer>([](auto& p) { p.wavelength(1550); });
    parameters(w);
    EXPECT_THAT(names_of(w),
                ElementsAre("high_power", "low_power", "super_high_power", "reference"));
    for (const wave_channel& c : w.channels) {
        EXPECT_EQ(c.sampling_time, 0x1p-29);
        EXPECT_EQ(c.adc_resolution_bits, 12U);
        EXPECT_EQ(c.wavelength, w.wavelength);
        EXPECT_NEAR(c.wavelength, 1550e-9, 1e-15);
        EXPECT_EQ(c.delta_st, 0x1p-25);
        EXPECT_EQ(c.a_lin, 0.4);
        EXPECT_THAT(c.expsum_ab, IsEmpty());
    }
    EXPECT_EQ(w.reference_channel_index, 3U);
    EXPECT_EQ(w.t_null_pdae, 0x1p-25);
    EXPECT_EQ(w.group_velocity, 299702560.0);
    EXPECT_EQ(w.sampling_time, 0x1p-29);
    EXPECT_TRUE(w.have_wave_data);
    EXPECT_TRUE(w.default_channels_in_use);
}

TEST(wave_channels, first_channel_packet_replaces_the_default_channels_the_next_one_adds) {
    fed_wave w;
    parameters(w);
    w.channel(0, "high_power");
    EXPECT_FALSE(w.default_channels_in_use);
    EXPECT_THAT(names_of(w), ElementsAre("high_power"));
    w.channel(2, "reference");
    EXPECT_THAT(names_of(w), ElementsAre("high_power", "", "reference"));
}

TEST(wave_channels, packet_gives_rate_in_hertz_and_wavelength_in_nanometres) {
    fed_wave w;
    w.channel(1, "low_power", 0x1p-24F, 5e8);
    ASSERT_THAT(w.channels, SizeIs(2));
    const wave_channel& c = w.channels[1];
    EXPECT_EQ(c.name, "low_power");
    EXPECT_EQ(c.adc_resolution_bits, 10U);
    EXPECT_EQ(c.sampling_time, 2e-9);
    EXPECT_EQ(w.sampling_time, 2e-9);
    EXPECT_EQ(c.delta_st, 0x1p-24);
    EXPECT_NEAR(c.wavelength, 1064e-9, 1e-20);
    EXPECT_EQ(c.a_lin, 0.4);
    EXPECT_EQ(w.t_null_pdae, 0x1p-24);
}

TEST(wave_channels, fields_off_the_byte_grid_are_read_where_they_lie) {
    // Channel 2, "ab", 12 bits, 2^29 Hz, 0.5 s, 1064 nm; each field begins 4 bits into a byte.
    std::vector<std::uint32_t> payload(13);
    payload[0] = 2U | std::uint32_t{'a'} << 4 | std::uint32_t{'b'} << 12;
    payload[8] = 12U << 4; // bit 260
    // 2^29 is 0x41C00000'00000000; of its bits the upper half begins at bit 300.
    payload[9] = 0x41C00000U << 12;
    payload[10] = 0x41C00000U >> 20 | 0x3F000000U << 12; // 0.5F at bit 332
    payload[11] = 0x3F000000U >> 20 | 0x44850000U << 12; // 1064.0F at bit 364
    payload[12] = 0x44850000U >> 20;
    fed_wave w;
    w.raw(87, payload);
    ASSERT_THAT(w.channels, SizeIs(3));
    EXPECT_EQ(w.channels[2].name, "ab");
    EXPECT_EQ(w.channels[2].adc_resolution_bits, 12U);
    EXPECT_EQ(w.channels[2].sampling_time, 0x1p-29);
    EXPECT_EQ(w.channels[2].delta_st, 0.5);
    EXPECT_NEAR(w.channels[2].wavelength, 1064e-9, 1e-20);
}

TEST(wave_channels, name_may_take_all_its_32_bytes) {
    fed_wave w;
    const std::string name(32, 'x');
    w.channel(0, name);
    EXPECT_EQ(w.channels[0].name, name);
}

TEST(wave_channels, packet_leaves_the_pulse_model_as_it_was) {
    fed_wave w;
    w.describe();
    pulse_model<packets::sbl_dg_channel_expsum_writer>(w, 0, 2);
    w.channel(0, "renamed");
    EXPECT_EQ(w.channels[0].name, "renamed");
    EXPECT_THAT(w.channels[0].expsum_ab, SizeIs(2));
    EXPECT_EQ(w.channels[0].scale, 3.25);
}

TEST(wave_channels, reference_is_where_the_name_stands) {
    fed_wave w;
    w.channel(0, "reference");
    EXPECT_EQ(w.reference_channel_index, 0U);
    w.channel(5, "reference");
    EXPECT_EQ(w.reference_channel_index, 5U);
}

TEST(wave_channels, only_low_power_tells_the_reference_time) {
    fed_wave w;
    w.channel(0, "high_power", 1);
    EXPECT_EQ(w.t_null_pdae, 0);
    w.channel(1, "low_power", 2);
    EXPECT_EQ(w.t_null_pdae, 2);
    w.channel(3, "reference", 3);
    EXPECT_EQ(w.t_null_pdae, 2);
}

// Completion at the start of the measurement.

TEST(wave_channels, sampling_time_in_ticks_is_rounded) {
    fed_wave w;
    w.units();
    w.channel(0, "high_power", 0, 0x1p40 / 100.4);
    w.channel(1, "low_power", 0, 0x1p40 / 100.6);
    w.channel(2, "reference");
    w.meas_start();
    EXPECT_EQ(w.channels[0].ticks_per_sample, 100U);
    EXPECT_EQ(w.channels[1].ticks_per_sample, 101U);
    EXPECT_EQ(w.channels[2].ticks_per_sample, 2048U);
}

TEST(wave_channels, without_a_reference_channel_0_is_copied_to_index_3) {
    fed_wave w;
    w.units();
    w.channel(0, "high_power", 0x1p-22F);
    w.channel(1, "low_power", 0x1p-23F);
    w.meas_start();
    EXPECT_THAT(names_of(w), ElementsAre("high_power", "low_power", "", "reference"));
    EXPECT_EQ(w.reference_channel_index, 3U);
    EXPECT_EQ(w.channels[3].delta_st, 0x1p-22);
    EXPECT_EQ(w.channels[3].sampling_time, 0x1p-29);
    EXPECT_EQ(w.channels[3].ticks_per_sample, 2048U);
    EXPECT_EQ(w.channels[3].adc_resolution_bits, 10U);
    EXPECT_EQ(w.t_null_pdae, 0x1p-22);
}

TEST(wave_channels, fourth_channel_without_a_name_gives_place_to_the_reference) {
    fed_wave w;
    w.units();
    w.channel(0, "high_power");
    w.channel(4, "far");
    w.meas_start();
    EXPECT_THAT(names_of(w), ElementsAre("high_power", "", "", "reference", "far"));
}

TEST(wave_channels, fourth_channel_of_another_name_has_no_place_for_the_reference) {
    fed_wave w;
    w.units();
    w.channel(0, "high_power");
    w.channel(3, "odd one");
    try {
        w.meas_start();
        ADD_FAILURE();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "wave: illegal name for channel 3 found: odd one");
    }
}

TEST(wave_channels, none_need_no_reference) {
    fed_wave w;
    w.units();
    w.meas_start();
    EXPECT_THAT(w.channels, IsEmpty());
    EXPECT_EQ(w.t_null_pdae, 0);
}

// Pulse models.

TEST(pulse_model, first_form_has_the_default_linearity) {
    fed_wave w;
    w.describe();
    w.channels[2].a_lin = 9;
    pulse_model<packets::sbl_dg_channel_expsum_writer>(w, 2, 2);
    const wave_channel& c = w.channels[2];
    EXPECT_EQ(c.a_lin, 0.4);
    EXPECT_EQ(c.delay, 1.5e-9);
    EXPECT_EQ(c.scale, 3.25);
    EXPECT_THAT(c.expsum_ab, ElementsAre(Pair(1, -2), Pair(2, -3)));
    EXPECT_THAT(c.expsum_gw, ElementsAre(Pair(4e8, -8e8), Pair(4e8 + 1, -8e8 - 1)));
}

TEST(pulse_model, second_form_tells_the_linearity) {
    fed_wave w;
    w.describe();
    pulse_model<packets::sbl_dg_channel_expsum_1_writer>(w, 0, 1);
    EXPECT_EQ(w.channels[0].a_lin, 0.75);
    EXPECT_THAT(w.channels[0].expsum_ab, ElementsAre(Pair(1, -2)));
    EXPECT_THAT(w.channels[0].expsum_gw, ElementsAre(Pair(4e8, -8e8)));
}

TEST(pulse_model, new_lists_replace_the_old_ones) {
    fed_wave w;
    w.describe();
    pulse_model<packets::sbl_dg_channel_expsum_1_writer>(w, 1, 5);
    EXPECT_THAT(w.channels[1].expsum_ab, SizeIs(5));
    pulse_model<packets::sbl_dg_channel_expsum_writer>(w, 1, 0);
    EXPECT_THAT(w.channels[1].expsum_ab, IsEmpty());
    EXPECT_THAT(w.channels[1].expsum_gw, IsEmpty());
}

TEST(pulse_model, channel_beyond_the_list_is_left_out) {
    fed_wave w;
    w.describe();
    pulse_model<packets::sbl_dg_channel_expsum_writer>(w, 4, 2);
    pulse_model<packets::sbl_dg_channel_expsum_1_writer>(w, 15, 2);
    EXPECT_THAT(w.channels, SizeIs(4));
    for (const wave_channel& c : w.channels) {
        EXPECT_THAT(c.expsum_ab, IsEmpty());
        EXPECT_EQ(c.scale, 0);
    }
}

TEST(pulse_model, form_without_a_channel_is_for_channel_1) {
    fed_wave w;
    w.describe();
    w.channels[1].a_lin = 9;
    pulse_model<packets::pulse_model_expsum_writer>(w, 0, 2);
    EXPECT_EQ(w.channels[1].a_lin, 0.4);
    EXPECT_EQ(w.channels[1].delay, 1.5e-9);
    EXPECT_EQ(w.channels[1].scale, 3.25);
    EXPECT_THAT(w.channels[1].expsum_ab, ElementsAre(Pair(1, -2), Pair(2, -3)));
    EXPECT_THAT(w.channels[1].expsum_gw, SizeIs(2));
    EXPECT_THAT(w.channels[0].expsum_ab, IsEmpty());
}

TEST(pulse_model, form_without_a_channel_needs_two_channels) {
    fed_wave w;
    w.channel(0, "high_power");
    pulse_model<packets::pulse_model_expsum_writer>(w, 0, 2);
    EXPECT_THAT(w.channels, SizeIs(1));
    EXPECT_THAT(w.channels[0].expsum_ab, IsEmpty());
}

// Calibration tables.

TEST(wave_calibration, each_kind_has_its_slot) {
    const std::vector<std::pair<std::uint16_t, std::size_t>> slots = {
        {0, 0}, {10, 0}, {1, 1}, {11, 1}, {2, 2}, {12, 2}, {3, 3}, {13, 4}};
    for (const auto& [kind, slot] : slots) {
        fed_wave w;
        calibration(w, kind, {7, 6, -5});
        for (std::size_t i = 0; i < w.wave_calibration.size(); ++i) {
            EXPECT_THAT(w.wave_calibration[i].first, SizeIs(i == slot ? 3 : 0)) << kind;
        }
        const wave::calibration_slot& s = w.wave_calibration[slot];
        EXPECT_EQ(s.x_factor, 0.5);
        EXPECT_EQ(s.x_offset, 0.25);
        EXPECT_EQ(s.y_factor, 0.125);
        EXPECT_EQ(s.y_offset, 2);
        EXPECT_THAT(s.first, ElementsAre(0, 1, 2));
        EXPECT_THAT(s.second, ElementsAre(7, 6, 0xFFFB));
    }
}

TEST(wave_calibration, lists_begin_in_the_midst_of_a_word) {
    // Kind 1, 1.0 four times from bit 16 on, then (1, 2), (3, 4) from bit 272 on.
    std::vector<std::uint32_t> payload(11);
    payload[0] = 1;
    for (std::size_t i = 0; i < 4; ++i) {
        payload[2 * i + 2] = 0x3FF0; // the upper 16 bits of 1.0 end there
    }
    payload[8] |= 1U << 16;
    payload[9] = 2U | 3U << 16;
    payload[10] = 4U;
    fed_wave w;
    w.raw(82, payload);
    EXPECT_EQ(w.wave_calibration[1].x_factor, 1);
    EXPECT_EQ(w.wave_calibration[1].y_offset, 1);
    ASSERT_GE(w.wave_calibration[1].first.size(), 2U);
    EXPECT_EQ(w.wave_calibration[1].first[0], 1);
    EXPECT_EQ(w.wave_calibration[1].second[0], 2);
    EXPECT_EQ(w.wave_calibration[1].first[1], 3);
    EXPECT_EQ(w.wave_calibration[1].second[1], 4);
}

TEST(wave_calibration, other_kinds_are_not_for_waveforms) {
    fed_wave w;
    calibration(w, 4, {1, 2, 3});
    calibration(w, 14, {1, 2, 3});
    for (const auto& s : w.wave_calibration) {
        EXPECT_THAT(s.first, IsEmpty());
    }
}

TEST(wave_calibration, reference_time_is_the_upper_median_of_the_first_eight_values) {
    fed_wave w;
    // Sorted: -30 -20 -10 0 | 8 20 30 40; what follows the eight does not count.
    calibration(w, 13, {40, -30, 8, 20, -20, 0, 30, -10, 9999, 9999});
    EXPECT_EQ(w.t_null_pdae, -2 - 0.125 * 8);
    calibration(w, 13, {-40, -30, -8, -20, -20, -1, -30, -10});
    EXPECT_EQ(w.t_null_pdae, -2 + 0.125 * 20);
}

TEST(wave_calibration, reference_time_of_fewer_than_eight_values_is_from_the_first) {
    fed_wave w;
    calibration(w, 13, {-24, 1, 2, 3, 4, 5, 6});
    EXPECT_EQ(w.t_null_pdae, -2 + 0.125 * 24);
}

TEST(wave_calibration, empty_reference_table_sets_no_time) {
    fed_wave w;
    w.t_null_pdae = 5;
    calibration(w, 13, {});
    EXPECT_EQ(w.t_null_pdae, 5);
    w.channel(1, "low_power", 7);
    EXPECT_EQ(w.t_null_pdae, 7); // and does not hold it
}

TEST(wave_calibration, only_kind_13_sets_the_reference_time) {
    fed_wave w;
    for (const std::uint16_t kind : std::vector<std::uint16_t>{0, 1, 2, 3, 10, 11, 12}) {
        calibration(w, kind, {1, 2, 3, 4, 5, 6, 7, 8});
    }
    EXPECT_EQ(w.t_null_pdae, 0);
}

TEST(wave_calibration, reference_time_told_by_a_table_stays) {
    fed_wave w;
    w.units();
    calibration(w, 13, {8});
    parameters(w);
    EXPECT_EQ(w.t_null_pdae, -3);
    w.channel(0, "high_power", 6);
    w.channel(1, "low_power", 7);
    EXPECT_EQ(w.t_null_pdae, -3);
    w.meas_start(); // copies channel 0 as the reference
    EXPECT_EQ(w.reference_channel_index, 3U);
    EXPECT_EQ(w.t_null_pdae, -3);
}
