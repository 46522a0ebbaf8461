#include "recording_pointcloud.hpp"
#include "scanlib/scanlib_exception.hpp"

#define BOOST_BIND_GLOBAL_PLACEHOLDERS // the parser still uses them, and says so at length without
                                       // this
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

using namespace scanlib;
using namespace scanlib::testing;

namespace {

std::string meta_of(const fed_pointcloud& cloud, bool pretty) {
    std::ostringstream out;
    cloud.get_meta(out, pretty);
    return out.str();
}

boost::property_tree::ptree tree_of(const std::string& text) {
    std::istringstream in(text);
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(in, tree);
    return tree;
}

std::vector<std::string> keys_of(const boost::property_tree::ptree& tree) {
    std::vector<std::string> keys;
    for (const auto& [key, child] : tree) {
        keys.push_back(key);
    }
    return keys;
}

} // namespace

TEST(pointcloud_meta, is_refused_before_the_measurement_starts) {
    fed_pointcloud cloud;
    std::ostringstream out;
    try {
        cloud.get_meta(out, true);
        ADD_FAILURE();
    } catch (const scanlib_exception& e) {
        EXPECT_NE(std::string(e.what()).find(
                      "pointcloud::get_meta: meta information not available (yet)"),
                  std::string::npos);
    }
    EXPECT_EQ(out.str(), "");
}

TEST(pointcloud_meta, keys_stand_in_order_and_ident_is_left_out_when_empty) {
    fed_pointcloud cloud;
    cloud.shot(1);
    const auto tree = tree_of(meta_of(cloud, false)).get_child("pointcloud");
    EXPECT_THAT(keys_of(tree),
                ::testing::ElementsAre("type_id", "serial", "build", "unambiguous_range",
                                       "attenuation", "pressure", "pressure_sl", "rel_humidity",
                                       "rng_scale", "delta_rg", "temperature", "group_velocity",
                                       "wavelength", "sampling_time", "pulse_repetition_rate",
                                       "ampl_unit", "refl_unit", "systime_unit", "systime_hr_unit",
                                       "systime_hr_bits"));
    EXPECT_EQ(tree.get<std::string>("serial"), "");
    EXPECT_EQ(tree.get<std::string>("build"), "");
}

TEST(pointcloud_meta, identity_tables_and_geometry_stand_when_present) {
    fed_pointcloud cloud;
    cloud.units(0.001F);
    cloud.feed<packets::header_device_writer>([](auto& w) {
        w.minor(1);
        w.major(2);
        w.letter('C');
    });
    cloud.feed<packets::reftab_table_writer>(
        [](auto& w) {
            w.step_counter(1000);
            w.element(0, 10);
            w.element(1, -20);
            w.element(2, 30);
        },
        3);
    cloud.geometry();
    cloud.feed<packets::meas_start_writer>();
    const auto tree = tree_of(meta_of(cloud, false)).get_child("pointcloud");
    EXPECT_EQ(tree.get<std::string>("ident"), "2.1-C");
    EXPECT_EQ(keys_of(tree)[1], "ident");
    EXPECT_EQ(tree.get_child("refltab").size(), 3U);
    EXPECT_EQ(tree.get_child("refltab").front().second.data(), "-0.100000001");
    EXPECT_EQ(tree.get_child("scanmech").size(), 1U);
    EXPECT_EQ(tree.get_child("scanmech").front().second.get<std::string>("kind"), "mirrorwheel");
    EXPECT_EQ(tree.get_child("scanmech").front().second.get_child("facets").size(), 2U);
    EXPECT_EQ(keys_of(tree).back(), "scanmech");
}

TEST(pointcloud_meta, plain_form_has_numbers_and_pretty_form_has_strings) {
    fed_pointcloud cloud;
    cloud.shot(1);
    EXPECT_THAT(meta_of(cloud, false), ::testing::HasSubstr("\"ampl_unit\":0.01,"));
    EXPECT_THAT(meta_of(cloud, false), ::testing::HasSubstr("\"systime_hr_bits\":49"));
    EXPECT_THAT(meta_of(cloud, true), ::testing::HasSubstr("        \"ampl_unit\": \"0.01\","));
    EXPECT_THAT(meta_of(cloud, true), ::testing::HasSubstr("\"systime_hr_bits\": \"49\""));
}

TEST(pointcloud_meta, unknown_values_are_strings_that_every_reader_takes) {
    fed_pointcloud cloud;
    cloud.temperature = std::numeric_limits<double>::infinity();
    cloud.shot(1);
    EXPECT_THAT(meta_of(cloud, false), ::testing::HasSubstr("\"wavelength\":\"nan\""));
    EXPECT_THAT(meta_of(cloud, false), ::testing::HasSubstr("\"temperature\":\"inf\""));
    EXPECT_EQ(tree_of(meta_of(cloud, true)).get<std::string>("pointcloud.wavelength"), "nan");
}

TEST(pointcloud_meta, identity_with_odd_bytes_still_gives_valid_json) {
    fed_pointcloud cloud;
    cloud.feed<packets::header_writer>([](auto& w) {
        w.type_id("a\"\\\x01\xFF\xC3\xA4");
        w.serial("\xE2\x82");
    });
    cloud.shot(1);
    for (const bool pretty : {false, true}) {
        const auto tree = tree_of(meta_of(cloud, pretty));
        EXPECT_EQ(tree.get<std::string>("pointcloud.type_id"), "a\"\\\x01\xC3\xBF\xC3\xA4");
        EXPECT_EQ(tree.get<std::string>("pointcloud.serial"), "\xC3\xA2\xC2\x82");
    }
}
