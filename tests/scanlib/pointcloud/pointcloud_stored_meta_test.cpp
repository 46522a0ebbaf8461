#include "recording_pointcloud.hpp"
#include "scanlib/mirrorwheel.hpp"
#include "scanlib/mirrorwheel_scanconedistortion.hpp"
#include "valid_streams.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

using namespace scanlib;
using namespace scanlib::testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

struct meta_cloud : fed_pointcloud {
    void store(std::string_view json) {
        feed<packets::rxp_parameters_writer>(
            [&](auto& w) {
                for (std::size_t i = 0; i < json.size(); ++i) {
                    w.element(i, static_cast<std::uint8_t>(json[i]));
                }
            },
            json.size());
    }
    /// The same under the one key that counts.
    void store_members(const std::string& members) { store("{\"pointcloud\":{" + members + "}}"); }
    void start() { feed<packets::meas_start_writer>(); }
    std::string meta(bool pretty = false) const {
        std::ostringstream out;
        get_meta(out, pretty);
        return out.str();
    }
    /// Its member of this name, up to the next one.
    std::string member(const std::string& from, const std::string& to) const {
        const std::string text = meta();
        const std::size_t begin = text.find("\"" + from + "\":");
        const std::size_t end = to.empty() ? text.size() : text.find("\"" + to + "\":", begin);
        return begin == std::string::npos ? "" : text.substr(begin, end - begin);
    }
    void take(const packet_list& packets) {
        for (const stream_packet& p : packets) {
            std::vector<std::uint32_t> words{0xFFFFFFFF, p.id.id << 16 | p.id.version};
            words.insert(words.end(), p.payload.begin(), p.payload.end());
            dispatch(words.data(), words.data() + words.size());
        }
    }
};

/// A cloud that was told something for every key.
void populate(meta_cloud& cloud) {
    cloud.feed<packets::header_writer>([](auto& w) {
        w.type_id("T-1");
        w.build("B\"2");
        w.serial("S3");
    });
    cloud.feed<packets::header_device_writer>([](auto& w) {
        w.minor(1);
        w.major(2);
        w.letter('C');
    });
    cloud.feed<packets::units_4_writer>([](auto& w) {
        w.range_unit(0.5F);
        w.line_circle_count(3600);
        w.frame_circle_count(7200);
        w.systime_unit(0.0009765625F);
        w.ampl_refl_unit(0.25F);
        w.systime_hr_unit(0.0001220703125F);
        w.systime_hr_bits(48);
        w.utc_unit(1.0F);
    });
    cloud.feed<packets::atmosphere_4_writer>([](auto& w) {
        w.temperature(20.5F);
        w.pressure(990.25F);
        w.rel_humidity(50.0F);
        w.rng_scale(1.125F);
        w.pressure_sl(1013.5F);
        w.group_velocity(299700000.0F);
        w.attenuation(500.0F);
        w.wavelength(1e9F);
    });
    cloud.feed<packets::mta_settings_writer>([](auto& w) {
        w.gate_low(-1.5F);
        w.gate_high(900.25F);
        w.unambiguous_range(300.0F);
    });
    cloud.feed<packets::range_finder_debug_laser_writer>(
        [](auto& w) { w.pulse_repetition_rate(300000.0F); });
    cloud.feed<packets::pulse_position_modulation_1_writer>(
        [](auto& w) {
            w.pulse_num_mod_ampl(3);
            w.pulse_code_phase_mode(4);
            w.pulse_phase_step(5);
            w.element(0, 0.5F);
            w.element(1, 0.25F);
        },
        2);
    cloud.feed<packets::nrange_table_writer>(
        [](auto& w) {
            w.element(0, 2);
            w.element(1, -5);
        },
        2);
    cloud.feed<packets::reftab_table_writer>(
        [](auto& w) {
            w.step_counter(4096);
            w.element(0, 4);
            w.element(1, -7);
            w.element(2, 12);
        },
        3);
    cloud.geometry();
    cloud.feed<packets::device_geometry_1_writer>([](auto& w) {
        w.exit_pane_thickness(0.0078125F);
        w.exit_pane_index(1.5F);
        w.exit_pane_direction(2, 1.0F);
    });
    cloud.feed<packets::dyntrig_writer>(
        [](auto& w) {
            w.offset(0.5F);
            w.scale(2.0F);
            w.element(0).thra1(1.0F);
            w.element(0).del1(2.0F);
            w.element(0).dec1(3.0F);
            w.element(0).thra2(4.0F);
            w.element(0).del2(5.5F);
            w.element(0).dec2(-6.0F);
        },
        1);
    cloud.store_members("\"delta_rg\":0.125");
    cloud.start();
}

} // namespace

TEST(pointcloud_stored_meta, whole_text_of_an_object_that_knows_everything) {
    meta_cloud cloud;
    populate(cloud);
    EXPECT_EQ(
        cloud.meta(),
        "{\"pointcloud\":{"
        "\"type_id\":\"T-1\","
        "\"ident\":\"2.1-C\","
        "\"serial\":\"S3\","
        "\"build\":\"B\\\"2\","
        "\"unambiguous_range\":300,"
        "\"gate_low\":-1.5,"
        "\"gate_high\":900.25,"
        "\"attenuation\":0.5,"
        "\"pressure\":990.25,"
        "\"pressure_sl\":1013.5,"
        "\"rel_humidity\":50,"
        "\"rng_scale\":1.125,"
        "\"delta_rg\":0.125,"
        "\"temperature\":20.5,"
        "\"group_velocity\":299700000,"
        "\"wavelength\":1,"
        "\"sampling_time\":\"nan\","
        "\"pulse_repetition_rate\":300000,"
        "\"ampl_unit\":0.25,"
        "\"refl_unit\":0.25,"
        "\"systime_unit\":0.0009765625,"
        "\"systime_hr_unit\":0.0001220703125,"
        "\"systime_hr_bits\":48,"
        "\"pulse_position_modulation\":{"
        "\"pulse_num_mod_ampl\":3,"
        "\"pulse_code_phase_mode\":4,"
        "\"pulse_phase_step\":5,"
        "\"intervals\":[0.5,0.25]},"
        "\"nrange_delta\":1024,"
        "\"nrange\":[1,-2.5],"
        "\"refltab_delta\":2048,"
        "\"refltab\":[-1,1.75,-3],"
        "\"scanmech\":[{"
        "\"kind\":\"mirrorwheel_exitpane\","
        "\"range_unit\":0.5,"
        "\"line_circle_count\":3600,"
        "\"frame_circle_count\":7200,"
        "\"laser_origin\":[0.25,0,0],"
        "\"laser_direction\":[0,0,1],"
        "\"mirror_axis_origin\":[0,0,0],"
        "\"mirror_axis_direction\":[1,0,0],"
        "\"line_angle_0\":10,"
        "\"facets\":[{\"normal\":[0,0,1],\"dist\":0.5},{\"normal\":[0,0,1],\"dist\":0.125}],"
        "\"exit_pane_thickness\":0.0078125,"
        "\"exit_pane_index\":1.5,"
        "\"exit_pane_direction\":[0,0,1]}],"
        "\"dyntrig\":{"
        "\"offset\":0.5,"
        "\"scale\":2,"
        "\"table\":[{\"thra1\":1,\"del1\":2,\"dec1\":3,\"thra2\":4,\"del2\":5.5,\"dec2\":-6}]}"
        "}}");
}

TEST(pointcloud_stored_meta, gates_stand_only_where_the_zone_is_searched) {
    meta_cloud cloud;
    cloud.feed<packets::mta_settings_writer>([](auto& w) { w.mta_zones(2); });
    cloud.start();
    EXPECT_EQ(cloud.meta().find("gate_low"), std::string::npos);
    meta_cloud off;
    off.set_mta_ambiguity(nullptr, 0, 1, 2);
    off.start();
    EXPECT_EQ(off.meta().find("gate_low"), std::string::npos);
}

TEST(pointcloud_stored_meta,
     trigger_stands_only_in_its_first_form_and_empty_tables_as_empty_texts) {
    meta_cloud cloud;
    cloud.feed<packets::dyntrig_writer>([](auto&) {}, 0);
    cloud.start();
    EXPECT_THAT(cloud.meta(), HasSubstr("\"table\":\"\""));
    cloud.feed<packets::dyntrig_pre_writer>(
        [](auto& w) {
            w.pairs(2);
            w.element(5, 1.0F);
        },
        10);
    EXPECT_EQ(cloud.meta().find("dyntrig"), std::string::npos);
}

TEST(pointcloud_stored_meta, what_one_object_tells_another_takes_over) {
    for (const bool pretty : {false, true}) {
        meta_cloud source;
        populate(source);
        meta_cloud cloud;
        cloud.store(source.meta(pretty));
        cloud.start();
        EXPECT_EQ(cloud.delta_rg, 0.125);
        EXPECT_EQ(cloud.nrange_table.step, 1024.0F);
        EXPECT_THAT(cloud.nrange_table.entries, ElementsAre(1.0F, -2.5F));
        EXPECT_EQ(cloud.reftab_table.step, 2048.0F);
        EXPECT_THAT(cloud.reftab_table.entries, ElementsAre(-1.0F, 1.75F, -3.0F));
        EXPECT_TRUE(cloud.dyntrig.present());
        for (const char* key : {"scanmech", "dyntrig", "nrange_delta", "refltab_delta"}) {
            const std::string next = std::string(key) == "scanmech"       ? "dyntrig"
                                     : std::string(key) == "nrange_delta" ? "refltab_delta"
                                                                          : "";
            EXPECT_EQ(cloud.member(key, next), source.member(key, next));
        }
        // What only packets tell stays unknown.
        EXPECT_EQ(cloud.type_id, "");
        EXPECT_TRUE(std::isnan(cloud.temperature));
        EXPECT_EQ(cloud.group_velocity, 3e8);
    }
}

TEST(pointcloud_stored_meta, every_scanner_model_comes_back_but_for_the_axis_of_a_cone) {
    const packet_list stream = geometry_stream();
    std::size_t models = 0;
    const std::regex axis("\"cone_axis_directio\":\\[[^\\]]*\\]");
    for (const bool second_half : {false, true}) {
        meta_cloud source;
        std::size_t headers = 0;
        for (const stream_packet& p : stream) {
            headers += p.id == packet_id{1, 0} ? 1 : 0;
            if (headers == (second_half ? 2U : 1U) || p.id.id == 2) {
                source.take({p});
            }
        }
        meta_cloud cloud;
        cloud.store(source.meta());
        cloud.start();
        ASSERT_EQ(cloud.mechs.size(), source.mechs.size());
        for (std::size_t i = 0; i < source.mechs.size(); ++i) {
            const auto text_of = [&](const meta_cloud& c) {
                json_writer json;
                c.mechs[i]->write(json);
                return std::regex_replace(std::string(json.text()), axis, "the axis");
            };
            EXPECT_EQ(text_of(cloud), text_of(source));
            ++models;
            const auto kind = source.mechs[i]->kind();
            if (kind == kind_mirrorwheel_scanconedistortion ||
                kind == kind_wedge_scanconedistortion) {
                continue;
            }
            source.mechs[i]->set_counts(1234, 567, 0);
            cloud.mechs[i]->set_counts(1234, 567, 0);
            EXPECT_EQ(cloud.beam_direction, source.beam_direction);
            EXPECT_EQ(cloud.beam_origin, source.beam_origin);
        }
    }
    EXPECT_EQ(models, 13U);
}

TEST(pointcloud_stored_meta, cone_axis_is_read_under_its_right_name) {
    meta_cloud cloud;
    cloud.store_members(
        "\"scanmech\":[{\"kind\":\"mirrorwheel_scanconedistortion\","
        "\"cone_axis_direction\":[0,1,0],\"cone_axis_directio\":[1,0,0],"
        "\"beam_direction_0\":[0,0,1],\"nodes\":["
        "{\"s_rot_angle\":0,\"t_rot_angle\":0},{\"s_rot_angle\":0,\"t_rot_angle\":0},"
        "{\"s_rot_angle\":0,\"t_rot_angle\":0},{\"s_rot_angle\":0,\"t_rot_angle\":0}]}]");
    cloud.start();
    ASSERT_EQ(cloud.mechs.size(), 1U);
    EXPECT_EQ(
        dynamic_cast<const mirrorwheel_scanconedistortion&>(*cloud.mechs[0]).cone_axis_direction,
        (vector3{0, 1, 0}));
}

TEST(pointcloud_stored_meta, tree_without_scanner_models_leaves_those_of_the_packets_alone) {
    meta_cloud cloud;
    cloud.units(0.5F, 3600);
    cloud.geometry();
    cloud.store_members("\"delta_rg\":1");
    const scanmech* before = cloud.mechs[0].get();
    cloud.start();
    ASSERT_EQ(cloud.mechs.size(), 1U);
    EXPECT_EQ(cloud.mechs[0].get(), before);
    EXPECT_EQ(dynamic_cast<const mirrorwheel&>(*before).laser_origin, (vector3{0.25, 0, 0}));
    EXPECT_EQ(cloud.delta_rg, 1.0);
}

TEST(pointcloud_stored_meta,
     existing_model_takes_the_members_that_stand_there_and_new_ones_follow) {
    meta_cloud cloud;
    cloud.units(0.5F, 3600);
    cloud.geometry();
    cloud.store_members("\"scanmech\":[{\"kind\":\"wedge\",\"line_angle_0\":99},"
                        "{\"kind\":\"wedge\",\"refraction_index\":1.25}]");
    cloud.start();
    ASSERT_EQ(cloud.mechs.size(), 2U);
    const auto& wheel = dynamic_cast<const mirrorwheel&>(*cloud.mechs[0]);
    EXPECT_EQ(wheel.line_angle_0, 99) << "the class stays what the packets made it";
    EXPECT_EQ(wheel.laser_origin, (vector3{0.25, 0, 0}));
    EXPECT_EQ(wheel.range_unit, 0.5);
    EXPECT_EQ(cloud.mechs[1]->kind(), kind_wedge);
}

TEST(pointcloud_stored_meta, tables_come_one_by_one_and_win_over_those_of_packets) {
    meta_cloud cloud;
    populate(cloud);
    meta_cloud other;
    other.units(1.0F);
    other.feed<packets::nrange_table_writer>([](auto& w) { w.element(0, 9); }, 2);
    other.store_members("\"nrange\":[4,5,6]");
    other.start();
    EXPECT_THAT(other.nrange_table.entries, ElementsAre(4.0F, 5.0F, 6.0F));
    EXPECT_EQ(other.nrange_table.step, 2048.0F) << "that of the packet";
    EXPECT_TRUE(other.reftab_table.empty());
    EXPECT_FALSE(other.dyntrig.present());
}

TEST(pointcloud_stored_meta, the_newest_parameters_count_and_none_without_their_object) {
    meta_cloud cloud;
    cloud.store_members("\"delta_rg\":1");
    cloud.store_members("\"delta_rg\":2");
    cloud.start();
    EXPECT_EQ(cloud.delta_rg, 2.0);
    for (const char* other :
         {"{}", "{\"wave\":{\"delta_rg\":3}}", "{\"pointcloud\":\"text\"}", "[1]"}) {
        meta_cloud none;
        none.store_members("\"delta_rg\":1");
        none.store(other);
        none.start();
        EXPECT_EQ(none.delta_rg, 0.0) << other;
    }
    meta_cloud late;
    late.start();
    late.store_members("\"delta_rg\":1");
    late.shot(1);
    EXPECT_EQ(late.delta_rg, 0.0) << "behind the start nothing is taken over";
}

TEST(pointcloud_stored_meta, broken_text_is_refused_and_what_was_stored_stays) {
    for (const char* broken : {"", "{", "{\"pointcloud\":", "{\"pointcloud\":{\"delta_rg\":}}",
                               "pointcloud", "{\"pointcloud\":{}}}", "\"\\u12\"", "{'a':1}"}) {
        meta_cloud cloud;
        cloud.store_members("\"delta_rg\":1");
        EXPECT_THROW(cloud.store(broken), std::runtime_error) << broken;
        cloud.start();
        EXPECT_EQ(cloud.delta_rg, 1.0);
    }
}

TEST(pointcloud_stored_meta, text_ends_at_its_first_zero_byte) {
    meta_cloud cloud;
    cloud.store(std::string("{\"pointcloud\":{\"delta_rg\":1}}") + '\0' + "}}}");
    cloud.start();
    EXPECT_EQ(cloud.delta_rg, 1.0);
}

TEST(pointcloud_stored_meta, nesting_of_256_levels_is_read_and_of_257_is_refused) {
    const auto nested = [](std::size_t levels) {
        return "{\"pointcloud\":" + std::string(levels - 1, '[') + std::string(levels - 1, ']') +
               "}";
    };
    meta_cloud cloud;
    EXPECT_NO_THROW(cloud.store(nested(256)));
    EXPECT_EQ(failure_of([&] { cloud.store(nested(257)); }),
              "rxp_parameters: JSON is nested deeper than 256 levels");
    EXPECT_EQ(failure_of([&] { cloud.store(std::string(1000000, '[')); }),
              "rxp_parameters: JSON is nested deeper than 256 levels");
    EXPECT_NO_THROW(cloud.store("{\"a\":\"" + std::string(300, '[') + "\\\"[[\"}"))
        << "brackets of a text nest nothing";
}

TEST(pointcloud_stored_meta, huge_parameters_are_refused_before_they_become_a_tree) {
    std::string many = "{\"pointcloud\":{\"nrange\":[0";
    for (int i = 0; i < 300000; ++i) {
        many += ",0";
    }
    meta_cloud cloud;
    EXPECT_EQ(failure_of([&] { cloud.store(many + "]}}"); }),
              "rxp_parameters: JSON holds more than 262144 values");
    std::string list = "\"nrange\":[0";
    for (int i = 0; i < 70000; ++i) {
        list += ",0";
    }
    cloud.store_members(list + "]");
    EXPECT_THAT(failure_of([&] { cloud.start(); }), HasSubstr("65536"));
}

TEST(pointcloud_stored_meta, wrong_types_are_named_and_the_measurement_goes_on) {
    const struct {
        const char* members;
        const char* named;
    } cases[] = {
        {"\"delta_rg\":{}", ""},
        {"\"delta_rg\":\"far\"", "delta_rg"},
        {"\"delta_rg\":{\"a\":1}", "delta_rg"},
        {"\"nrange\":5", "nrange"},
        {"\"nrange\":{\"a\":1}", "nrange"},
        {"\"nrange\":[\"x\"]", "nrange"},
        {"\"nrange\":[[1]]", "nrange"},
        {"\"nrange_delta\":[1]", "nrange_delta"},
        {"\"refltab\":[1,null]", "refltab"},
        {"\"refltab_delta\":true", "refltab_delta"},
        {"\"scanmech\":5", "scanmech"},
        {"\"scanmech\":{\"kind\":\"wedge\"}", "scanmech"},
        {"\"scanmech\":[{\"kind\":\"toaster\"}]", "unknown kind"},
        {"\"scanmech\":[{}]", "unknown kind"},
        {"\"scanmech\":[7]", "unknown kind"},
        {"\"scanmech\":[{\"kind\":\"mirrorwheel\",\"facets\":\"\"}]", "no facets"},
        {"\"scanmech\":[{\"kind\":\"mirrorwheel\",\"facets\":[{\"dist\":1}]}]", "normal"},
        {"\"scanmech\":[{\"kind\":\"wedge\",\"laser_origin\":[1,2]}]", "laser_origin"},
        {"\"dyntrig\":{\"table\":[{\"thra1\":1}]}", "del1"},
        {"\"dyntrig\":{\"table\":7}", "table"},
        {"\"dyntrig\":{\"offset\":[1,2]}", "offset"},
    };
    for (const auto& c : cases) {
        meta_cloud cloud;
        cloud.store_members(c.members);
        if (*c.named == '\0') {
            // An object without members reads as an empty text.
            EXPECT_NE(failure_of([&] { cloud.shot(1); }), "no failure") << c.members;
        } else {
            EXPECT_THAT(failure_of([&] { cloud.shot(1); }), HasSubstr(c.named)) << c.members;
        }
        EXPECT_TRUE(cloud.measurement_started);
        cloud.shot(2);
        cloud.echo(1000);
        cloud.frame_stop();
        EXPECT_EQ(cloud.reported.size(), 1U) << c.members;
        EXPECT_NO_THROW(cloud.meta(true));
    }
}

TEST(pointcloud_stored_meta, numbers_that_are_no_numbers_come_back_as_they_went) {
    meta_cloud source;
    source.nrange_table.entries = {std::numeric_limits<float>::quiet_NaN(),
                                   std::numeric_limits<float>::infinity(),
                                   -std::numeric_limits<float>::infinity()};
    source.start();
    meta_cloud cloud;
    cloud.store(source.meta());
    cloud.start();
    ASSERT_EQ(cloud.nrange_table.entries.size(), 3U);
    EXPECT_TRUE(std::isnan(cloud.nrange_table.entries[0]));
    EXPECT_EQ(cloud.nrange_table.entries[1], std::numeric_limits<float>::infinity());
    EXPECT_EQ(cloud.nrange_table.entries[2], -std::numeric_limits<float>::infinity());
}

TEST(pointcloud_stored_meta, too_many_scanner_models_are_refused) {
    std::string list = "\"scanmech\":[";
    for (std::size_t i = 0; i <= pointcloud::geometry_limit; ++i) {
        list += i == 0 ? "{\"kind\":\"wedge\"}" : ",{\"kind\":\"wedge\"}";
    }
    meta_cloud cloud;
    cloud.store_members(list + "]");
    EXPECT_THAT(failure_of([&] { cloud.start(); }), HasSubstr("4096"));
    EXPECT_EQ(cloud.mechs.size(), pointcloud::geometry_limit);
}
