#include "scanlib/scanmech_meta.hpp"

#include "scanlib/scanlib_exception.hpp"
#include "scanlib/scanmech/models.hpp"

#include <rapidcheck.h>

#include <map>

using namespace optics;

namespace {

const std::string scan_keys = "kind range_unit line_circle_count frame_circle_count";
const std::string wheel_keys =
    scan_keys + " laser_origin laser_direction mirror_axis_origin mirror_axis_direction "
                "line_angle_0 facets";
const std::string wedge_head = scan_keys + " laser_origin laser_direction";
const std::string wedge_keys = " wedge_axis_origin wedge_axis_direction facet1_direction "
                               "facet2_direction dist refraction_index";
const std::string window_keys = " t_axis s_axis angle_sin_min angle_sin_inc";
const std::string deflection_keys = " deflection_mirror_origin deflection_mirror_direction";
const std::string surface_keys =
    wheel_keys + " facet_distance nodes beam_direction_0 rotation_axis_for_s_t_axes";

/// Members of each class's object, in order, by its word.
const std::map<std::string, std::string> keys_of_word = {
    {"mirrorwheel", wheel_keys},
    {"wedge", wedge_head + wedge_keys},
    {"mirrorwheel_exitpane",
     wheel_keys + " exit_pane_thickness exit_pane_index exit_pane_direction"},
    {"mirrorwheel_deflection", wheel_keys + deflection_keys},
    {"mirrorwheel_biaxial", wheel_keys + " aperture_direction biaxial_shift"},
    {"mirrorwheel_nodding",
     wheel_keys + " nodding_axis_origin nodding_axis_direction nodding_facet"},
    {"gimbalmountmirror", wedge_head + " line_mirror_axis_origin line_mirror_axis_direction "
                                       "frame_mirror_axis_origin frame_mirror_axis_direction "
                                       "facet_direction dist"},
    {"mirrorwheel_windowdistortion", wheel_keys + " nodes" + window_keys},
    {"mirrorwheel_deflection_windowdistortion",
     wheel_keys + " nodes" + deflection_keys + window_keys},
    {"wedge_scanconedistortion",
     wedge_head + " nodes beam_direction_0" + wedge_keys + " cone_axis_directio"},
    {"mirrorwheel_scanconedistortion", wheel_keys + " nodes beam_direction_0 cone_axis_directio"},
    {"mirrorwheel_facetsurfacedistortion", surface_keys},
    {"mirrorwheel_facetsurfacedistortion_D", surface_keys},
    {"mirrorwheel_fanbeam", wheel_keys + " num_angles_0 num_angles_1 rotation_axis_0 "
                                         "rotation_axis_1 rotation_angles"},
};

std::string keys_of(const boost::property_tree::ptree& tree) {
    std::string keys;
    for (const auto& member : tree) {
        keys += (keys.empty() ? "" : " ") + member.first;
    }
    return keys;
}

std::unique_ptr<scanmech> made_of(const std::string& json, vector3& origin, vector3& direction) {
    return scanmech_from_meta(tree_of(json), &origin, &direction);
}

/// The text with which a model cannot be made of a JSON object.
std::string refusal(const std::string& json) {
    vector3 origin{};
    vector3 direction{};
    try {
        made_of(json, origin, direction);
    } catch (const std::exception& e) {
        return e.what();
    }
    return "accepted";
}

template<class Model>
class meta_of_every_model : public testing::Test {};
TYPED_TEST_SUITE(meta_of_every_model, all_models);

} // namespace

TYPED_TEST(meta_of_every_model, object_has_the_word_first_and_the_keys_in_order) {
    std::mt19937 random(121);
    bench<TypeParam> b;
    fill_sanely(b.mech, random);
    const boost::property_tree::ptree tree = tree_of(json_of(b.mech));
    const auto keys = keys_of_word.find(tree.get<std::string>("kind"));
    ASSERT_NE(keys, keys_of_word.end());
    EXPECT_EQ(keys_of(tree), keys->second);
}

TYPED_TEST(meta_of_every_model, what_was_written_is_read_back_to_the_same_beams) {
    std::mt19937 random(122);
    bench<TypeParam> b;
    fill_sanely(b.mech, random);
    vector3 origin{};
    vector3 direction{};
    const auto again = made_of(json_of(b.mech), origin, direction);
    EXPECT_EQ(again->kind(), b.mech.kind());
    EXPECT_EQ(json_of(*again), json_of(b.mech));
    int beams = 0;
    for (std::uint32_t line = 0; line < 3600; line += 123) {
        b.mech.set_counts(line, 4 * line, 1);
        again->set_counts(line, 4 * line, 1);
        EXPECT_EQ(again->facet, b.mech.facet);
        for (std::size_t i = 0; i < 3; ++i) {
            if (!std::isnan(b.direction[i])) {
                ++beams;
                EXPECT_EQ(direction[i], b.direction[i]);
                EXPECT_EQ(origin[i], b.origin[i]);
            }
        }
        vector3 point{};
        vector3 point_again{};
        b.mech.position(point, 3.3);
        again->position(point_again, 3.3);
        if (!std::isnan(point[0])) {
            EXPECT_EQ(point_again, point);
        }
    }
    EXPECT_GT(beams, 0);
}

TYPED_TEST(meta_of_every_model, members_that_are_absent_stay) {
    std::mt19937 random(123);
    bench<TypeParam> b;
    fill_sanely(b.mech, random);
    const std::string before = json_of(b.mech);
    b.mech.set_counts(100, 200, 0);
    const vector3 direction = b.direction;
    read_meta(b.mech, tree_of("{\"kind\":\"anything\",\"unheard\":[1,2]}"));
    EXPECT_EQ(json_of(b.mech), before);
    b.mech.set_counts(100, 200, 0);
    if (!std::isnan(direction[0])) {
        EXPECT_EQ(b.direction, direction);
    }
}

TYPED_TEST(meta_of_every_model, members_that_are_present_take_effect) {
    std::mt19937 random(124);
    bench<TypeParam> b;
    fill_sanely(b.mech, random);
    read_meta(b.mech, tree_of("{\"frame_circle_count\":100,\"laser_direction\":[0.6,0,0.8]}"));
    EXPECT_EQ(b.mech.frame_circle_count, 100U);
    EXPECT_EQ(b.mech.laser_direction, (vector3{0.6, 0, 0.8}));
    b.mech.set_counts(0, 25, 0);
    const bool turning =
        b.mech.kind() != kind_wedge && b.mech.kind() != kind_wedge_scanconedistortion;
    EXPECT_DOUBLE_EQ(b.mech.frame_angle, turning ? pi / 2 : 0);
}

TYPED_TEST(meta_of_every_model, every_malformed_member_is_named) {
    std::mt19937 random(125);
    bench<TypeParam> b;
    fill_sanely(b.mech, random);
    for (auto& member : tree_of(json_of(b.mech))) {
        if (member.first == "kind" || member.first == "cone_axis_directio") {
            continue;
        }
        boost::property_tree::ptree tree;
        boost::property_tree::ptree bad("12x");
        tree.add_child(member.first, bad);
        TypeParam copy(b.mech);
        try {
            copy.read_members(tree);
            ADD_FAILURE() << member.first;
        } catch (const std::runtime_error& e) {
            const std::string text = e.what();
            const std::string inner = member.first == "nodding_facet" ? "normal" : member.first;
            EXPECT_NE(text.find('"' + inner + '"'), std::string::npos) << text;
        }
    }
}

TEST(scanmech_meta, cone_axis_is_written_under_a_key_that_is_not_read) {
    std::mt19937 random(126);
    bench<mirrorwheel_scanconedistortion> b;
    fill_sanely(b.mech, random);
    b.mech.cone_axis_direction = {0.6, 0, 0.8};
    b.mech.initialise();
    const std::string json = json_of(b.mech);
    EXPECT_NE(json.find("\"cone_axis_directio\":[0.5"), std::string::npos);
    bench<mirrorwheel_scanconedistortion> other;
    read_meta(other.mech, tree_of(json));
    EXPECT_EQ(other.mech.cone_axis_direction, (vector3{0, 1, 0}));
    read_meta(other.mech, tree_of("{\"cone_axis_direction\":[1,0,0]}"));
    EXPECT_EQ(other.mech.cone_axis_direction, (vector3{1, 0, 0}));

    bench<wedge_scanconedistortion> turning;
    turning.mech.nodes.resize(4);
    read_meta(turning.mech, tree_of("{\"cone_axis_directio\":[1,0,0]}"));
    EXPECT_EQ(turning.mech.cone_axis_direction, (vector3{0, 1, 0}));
    read_meta(turning.mech, tree_of("{\"cone_axis_direction\":[1,0,0]}"));
    EXPECT_EQ(turning.mech.cone_axis_direction, (vector3{1, 0, 0}));
}

TEST(scanmech_meta, class_outside_the_list_is_unknown) {
    bench<scanmech> plain;
    EXPECT_EQ(json_of(plain.mech), "{\"kind\":\"unknown\",\"range_unit\":1,"
                                   "\"line_circle_count\":4294967295,"
                                   "\"frame_circle_count\":4294967295}");
    read_meta(plain.mech, tree_of("{\"line_circle_count\":360}"));
    plain.mech.set_counts(90, 0, 0);
    EXPECT_DOUBLE_EQ(plain.mech.line_angle, pi / 2);
}

TEST(scanmech_meta, words_that_stand_for_no_class_are_refused) {
    for (const char* json : {"{\"kind\":\"unknown\"}", "{\"kind\":\"\"}", "{}", "{\"kind\":[1]}",
                             "{\"kind\":\"mirrorwheel_scan\"}", "{\"kind\":\"1\"}"}) {
        EXPECT_EQ(refusal(json), "scanmech::create: unknown kind") << json;
    }
}

TEST(scanmech_meta, word_alone_gives_the_defaults) {
    vector3 origin{};
    vector3 direction{};
    const auto mech = made_of("{\"kind\":\"mirrorwheel\"}", origin, direction);
    mech->set_angles(0, pi / 4, 0);
    expect_near(direction, {1, 0, 0}, 1e-15);
    EXPECT_EQ(refusal("{\"kind\":\"wedge_scanconedistortion\"}"),
              "scanconedistortion table too small");
}

TEST(scanmech_meta, empty_list_of_facets_is_told) {
    EXPECT_NE(refusal("{\"kind\":\"mirrorwheel\",\"facets\":\"\"}").find("no facets"),
              std::string::npos);
    EXPECT_NE(refusal("{\"kind\":\"mirrorwheel\",\"facets\":[]}").find("no facets"),
              std::string::npos);
}

TEST(scanmech_meta, empty_list_of_nodes_is_too_small) {
    EXPECT_EQ(refusal("{\"kind\":\"mirrorwheel_facetsurfacedistortion_D\",\"nodes\":\"\"}"),
              "facetsurfacedistortion table too small");
}

TEST(scanmech_meta, failed_reading_leaves_a_usable_object) {
    bench<mirrorwheel> b;
    EXPECT_THROW(read_meta(b.mech, tree_of("{\"facets\":[]}")), scanlib_exception);
    b.mech.set_counts(5, 5, 0);
    EXPECT_NEAR(length(b.direction), 1, 1e-14);
}

TEST(scanmech_meta, arrays_have_three_elements_without_names) {
    const std::string told = "metadata: \"laser_origin\" ought to be an array";
    EXPECT_EQ(refusal("{\"kind\":\"wedge\",\"laser_origin\":[1,2]}"), told + " of three");
    EXPECT_EQ(refusal("{\"kind\":\"wedge\",\"laser_origin\":[1,2,3,4]}"), told + " of three");
    EXPECT_EQ(refusal("{\"kind\":\"wedge\",\"laser_origin\":\"\"}"), told + " of three");
    EXPECT_EQ(refusal("{\"kind\":\"wedge\",\"laser_origin\":{\"x\":1,\"y\":2,\"z\":3}}"), told);
    EXPECT_EQ(refusal("{\"kind\":\"wedge\",\"laser_origin\":5}"), told);
    EXPECT_EQ(refusal("{\"kind\":\"wedge\",\"laser_origin\":[1,[2],3]}"),
              "metadata: \"laser_origin\" ought to be a number");
}

TEST(scanmech_meta, elements_of_lists_are_complete) {
    EXPECT_EQ(refusal("{\"kind\":\"mirrorwheel\",\"facets\":[{\"normal\":[1,0,0]}]}"),
              "metadata: \"dist\" ought to be there");
    EXPECT_EQ(refusal("{\"kind\":\"mirrorwheel\",\"facets\":[{\"dist\":1}]}"),
              "metadata: \"normal\" ought to be there");
    EXPECT_EQ(refusal("{\"kind\":\"mirrorwheel_biaxial\",\"biaxial_shift\":[{\"range\":1}]}"),
              "metadata: \"shift\" ought to be there");
}

TEST(scanmech_meta, lists_have_at_most_65536_elements) {
    std::string list = "{\"s_rot_angle\":0,\"t_rot_angle\":0}";
    std::string json = list;
    for (int i = 1; i < 65536; ++i) {
        json += ',' + list;
    }
    const std::string head = "{\"kind\":\"mirrorwheel_scanconedistortion\",\"nodes\":[";
    EXPECT_EQ(refusal(head + json + "]}"), "accepted");
    EXPECT_EQ(refusal(head + json + ',' + list + "]}"),
              "metadata: \"nodes\" ought to have at most 65536 elements");
}

TEST(scanmech_meta, integers_saturate) {
    vector3 origin{};
    vector3 direction{};
    const auto mech = made_of("{\"kind\":\"mirrorwheel\",\"line_circle_count\":-5,"
                              "\"frame_circle_count\":1e300,\"line_angle_0\":\"nan\"}",
                              origin, direction);
    EXPECT_EQ(mech->line_circle_count, 0U);
    EXPECT_EQ(mech->frame_circle_count, 4294967295U);
    EXPECT_EQ(dynamic_cast<mirrorwheel&>(*mech).line_angle_0, 0);
}

TEST(scanmech_meta, numbers_that_are_none_come_back) {
    bench<wedge> b;
    const double inf = std::numeric_limits<double>::infinity();
    b.mech.laser_origin = {inf, -inf, 1e-320};
    b.mech.dist = std::numeric_limits<double>::quiet_NaN();
    bench<wedge> again;
    read_meta(again.mech, tree_of(json_of(b.mech)));
    EXPECT_EQ(again.mech.laser_origin, b.mech.laser_origin);
    EXPECT_TRUE(std::isnan(again.mech.dist));
}
