#include "recording_pointcloud.hpp"
#include "scanlib/gimbalmountmirror.hpp"
#include "scanlib/mirrorwheel_biaxial.hpp"
#include "scanlib/mirrorwheel_deflection_windowdistortion.hpp"
#include "scanlib/mirrorwheel_exitpane.hpp"
#include "scanlib/mirrorwheel_facetsurfacedistortion.hpp"
#include "scanlib/mirrorwheel_fanbeam.hpp"
#include "scanlib/mirrorwheel_nodding.hpp"
#include "scanlib/mirrorwheel_scanconedistortion.hpp"
#include "scanlib/mirrorwheel_windowdistortion.hpp"
#include "scanlib/scanlib_exception.hpp"
#include "scanlib/wedge_scanconedistortion.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

using namespace scanlib;
using namespace scanlib::testing;

namespace {

/// Writes a vector into a field of three, each entry one after the other.
template<class Set>
void put(Set&& set, const vector3& v) {
    for (std::size_t i = 0; i < 3; ++i) {
        set(i, static_cast<float>(v[i]));
    }
}

/// Fields of a wheel with facets `normal` (0, 0, 1) and distances 0.5, 1.5, ...
template<class Writer>
void put_wheel(Writer& w, std::size_t facets) {
    put([&](auto i, float v) { w.laser_origin(i, v); }, {1, 2, 3});
    put([&](auto i, float v) { w.laser_direction(i, v); }, {0, 0.5, 0.25});
    put([&](auto i, float v) { w.mirror_axis_origin(i, v); }, {4, 5, 6});
    put([&](auto i, float v) { w.mirror_axis_direction(i, v); }, {0.5, 0, 0.125});
    for (std::size_t f = 0; f < facets; ++f) {
        w.element(f).normal(2, 1.0F);
        w.element(f).dist(0.5F + static_cast<float>(f));
    }
}

template<class Writer>
void put_nodes(Writer& w, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        w.element(i).s_rot_angle(0.25F * static_cast<float>(i));
        w.element(i).t_rot_angle(-0.5F * static_cast<float>(i));
    }
}

void expect_wheel(const mirrorwheel& wheel, std::size_t facets) {
    EXPECT_EQ(wheel.laser_origin, (vector3{1, 2, 3}));
    EXPECT_EQ(wheel.laser_direction, (vector3{0, 0.5, 0.25}));
    EXPECT_EQ(wheel.mirror_axis_origin, (vector3{4, 5, 6}));
    EXPECT_EQ(wheel.mirror_axis_direction, (vector3{0.5, 0, 0.125}));
    ASSERT_EQ(wheel.facets.size(), facets);
    for (std::size_t f = 0; f < facets; ++f) {
        EXPECT_EQ(wheel.facets[f].normal, (vector3{0, 0, 1}));
        EXPECT_EQ(wheel.facets[f].dist, 0.5 + static_cast<double>(f));
    }
}

template<class Node>
void expect_nodes(const std::vector<Node>& nodes, std::size_t n) {
    ASSERT_EQ(nodes.size(), n);
    for (std::size_t i = 0; i < n; ++i) {
        EXPECT_EQ(nodes[i].s_rot_angle, 0.25 * static_cast<double>(i));
        EXPECT_EQ(nodes[i].t_rot_angle, -0.5 * static_cast<double>(i));
    }
}

void feed_wheel(fed_pointcloud& cloud) {
    cloud.feed<packets::device_geometry_writer>(
        [](auto& w) {
            put_wheel(w, 2);
            w.line_angle_0(-77);
        },
        2);
}

void feed_deflection(fed_pointcloud& cloud) {
    cloud.feed<packets::device_geometry_3_writer>(
        [](auto& w) {
            put_wheel(w, 1);
            put([&](auto i, float v) { w.deflection_mirror_origin(i, v); }, {7, 8, 9});
            put([&](auto i, float v) { w.deflection_mirror_direction(i, v); }, {0, 0, -1});
        },
        1);
}

void feed_wedge(fed_pointcloud& cloud) {
    cloud.feed<packets::device_geometry_2_writer>([](auto& w) {
        put([&](auto i, float v) { w.laser_origin(i, v); }, {1, 2, 3});
        put([&](auto i, float v) { w.laser_direction(i, v); }, {0, 0, 1});
        put([&](auto i, float v) { w.wedge_axis_origin(i, v); }, {4, 5, 6});
        put([&](auto i, float v) { w.wedge_axis_direction(i, v); }, {0, 0.5, 1});
        put([&](auto i, float v) { w.facet1_direction(i, v); }, {0, 0, -1});
        put([&](auto i, float v) { w.facet2_direction(i, v); }, {0, 0.25, 1});
        w.dist(-0.125F);
        w.refraction_index(1.5F);
    });
}

void feed_pane(fed_pointcloud& cloud) {
    cloud.feed<packets::device_geometry_1_writer>([](auto& w) {
        w.exit_pane_thickness(0.25F);
        w.exit_pane_index(1.5F);
        put([&](auto i, float v) { w.exit_pane_direction(i, v); }, {0, 0, 1});
    });
}

void feed_window(fed_pointcloud& cloud) {
    cloud.feed<packets::device_geometry_6_writer>(
        [](auto& w) {
            put([&](auto i, float v) { w.t_axis(i, v); }, {1, 0, 0});
            put([&](auto i, float v) { w.s_axis(i, v); }, {0, 1, 0});
            w.angle_sin_min(-0.75F);
            w.angle_sin_inc(0.125F);
            put_nodes(w, 3);
        },
        3);
}

void feed_cone(fed_pointcloud& cloud, std::size_t nodes = 5) {
    cloud.feed<packets::device_geometry_7_writer>(
        [&](auto& w) {
            put([&](auto i, float v) { w.cone_axis_direction(i, v); }, {1, 0, 0});
            put([&](auto i, float v) { w.beam_direction_0(i, v); }, {0, 0, 1});
            put_nodes(w, nodes);
        },
        nodes);
}

template<class Writer>
void feed_surface(fed_pointcloud& cloud) {
    cloud.feed<Writer>(
        [](auto& w) {
            put([&](auto i, float v) { w.rotation_axis_for_s_t_axes(i, v); }, {1, 0, 0});
            w.facet_distance(0.375F);
            put_nodes(w, 6);
        },
        6);
}

void feed_fan(fed_pointcloud& cloud) {
    cloud.feed<packets::device_geometry_laser_direction_writer>(
        [](auto& w) {
            w.num_angles_0(2);
            w.num_angles_1(1);
            put([&](auto i, float v) { w.rotation_axis_0(i, v); }, {1, 0, 0});
            put([&](auto i, float v) { w.rotation_axis_1(i, v); }, {0, 1, 0});
            for (std::size_t i = 0; i < 2; ++i) {
                w.element(i).alpha_0(0.5F * static_cast<float>(i));
                w.element(i).alpha_1(-0.25F * static_cast<float>(i));
            }
        },
        2);
}

void feed_shifts(fed_pointcloud& cloud) {
    cloud.feed<packets::biaxial_geometry_writer>(
        [](auto& w) {
            put([&](auto i, float v) { w.aperture_direction(i, v); }, {0, 1, 0});
            for (std::size_t i = 0; i < 2; ++i) {
                w.element(i).range(2.0F + static_cast<float>(i));
                w.element(i).shift(0.5F * static_cast<float>(i));
            }
        },
        2);
}

/// The newest model, which must be of exactly this class.
template<class Model>
const Model& newest(const fed_pointcloud& cloud) {
    const scanmech& mech = *cloud.mechs.back();
    EXPECT_EQ(typeid(mech), typeid(Model));
    return dynamic_cast<const Model&>(mech);
}

/// All packets that refine, and what each says where the model before it is missing.
struct refiner {
    void (*feed)(fed_pointcloud&);
    std::string complaint;
    bool takes_wedge;
};

const refiner refiners[] = {
    {feed_pane, "pointcloud::on_device_geometry_1: device_geometry missing?", false},
    {feed_window, "pointcloud::on_device_geometry_6: device_geometry or device_geometry_3 missing?",
     false},
    {[](fed_pointcloud& cloud) { feed_cone(cloud); },
     "pointcloud::on_device_geometry_7: device_geometry or device_geometry_2 missing?", true},
    {feed_surface<packets::device_geometry_7N_writer>,
     "pointcloud::on_device_geometry_7N: device_geometry missing?", false},
    {feed_surface<packets::device_geometry_7D_writer>,
     "pointcloud::on_device_geometry_7D: device_geometry missing?", false},
    {feed_fan, "pointcloud::on_device_geometry_laser_direction: device_geometry missing?", false},
    {feed_shifts, "pointcloud::on_biaxial_geometry: device_geometry missing?", false},
};

} // namespace

TEST(pointcloud_geometry, exit_pane_with_no_mirror_wheel_before_it_fails) {
    fed_pointcloud cloud;
    EXPECT_THROW(feed_pane(cloud), scanlib_exception);
    EXPECT_EQ(cloud.mechs.size(), 0U);
}

TEST(pointcloud_geometry, every_refining_packet_says_which_packet_is_missing_before_it) {
    for (const refiner& r : refiners) {
        fed_pointcloud cloud;
        EXPECT_EQ(failure_of([&] { r.feed(cloud); }), r.complaint);
        EXPECT_EQ(cloud.mechs.size(), 0U);
    }
}

TEST(pointcloud_geometry, refining_packets_refuse_a_model_of_another_class_and_leave_it) {
    for (const refiner& r : refiners) {
        fed_pointcloud cloud;
        feed_wheel(cloud);
        feed_wedge(cloud);
        EXPECT_EQ(failure_of([&] { r.feed(cloud); }), r.takes_wedge ? "no failure" : r.complaint);
        ASSERT_EQ(cloud.mechs.size(), 2U);
        EXPECT_EQ(cloud.mechs[0]->kind(), kind_mirrorwheel);
        EXPECT_EQ(cloud.mechs[1]->kind(),
                  r.takes_wedge ? kind_wedge_scanconedistortion : kind_wedge);
        fed_pointcloud other;
        other.feed<packets::device_geometry_5_writer>([](auto&) {});
        EXPECT_EQ(failure_of([&] { r.feed(other); }), r.complaint);
        EXPECT_EQ(other.mechs[0]->kind(), kind_gimbalmountmirror);
    }
}

TEST(pointcloud_geometry, refining_packets_replace_the_newest_model_only_and_take_derived_wheels) {
    for (const refiner& r : refiners) {
        fed_pointcloud cloud;
        feed_wheel(cloud);
        feed_wheel(cloud);
        feed_pane(cloud);
        r.feed(cloud);
        ASSERT_EQ(cloud.mechs.size(), 2U);
        EXPECT_EQ(cloud.mechs[0]->kind(), kind_mirrorwheel);
        const auto& wheel = dynamic_cast<const mirrorwheel&>(*cloud.mechs[1]);
        expect_wheel(wheel, 2);
        EXPECT_EQ(wheel.line_angle_0, -77) << "what the wheel was told stays";
    }
}

TEST(pointcloud_geometry, exit_pane_replaces_the_wheel) {
    fed_pointcloud cloud;
    feed_wheel(cloud);
    feed_pane(cloud);
    const auto& mech = newest<mirrorwheel_exitpane>(cloud);
    EXPECT_EQ(mech.exit_pane_thickness, 0.25);
    EXPECT_EQ(mech.exit_pane_index, 1.5);
    EXPECT_EQ(mech.exit_pane_direction, (vector3{0, 0, 1}));
}

TEST(pointcloud_geometry, wedge_takes_all_its_fields) {
    fed_pointcloud cloud;
    feed_wedge(cloud);
    const auto& mech = newest<wedge>(cloud);
    EXPECT_EQ(mech.laser_origin, (vector3{1, 2, 3}));
    EXPECT_EQ(mech.laser_direction, (vector3{0, 0, 1}));
    EXPECT_EQ(mech.wedge_axis_origin, (vector3{4, 5, 6}));
    EXPECT_EQ(mech.wedge_axis_direction, (vector3{0, 0.5, 1}));
    EXPECT_EQ(mech.facet1_direction, (vector3{0, 0, -1}));
    EXPECT_EQ(mech.facet2_direction, (vector3{0, 0.25, 1}));
    EXPECT_EQ(mech.dist, -0.125);
    EXPECT_EQ(mech.refraction_index, 1.5);
}

TEST(pointcloud_geometry, deflection_is_a_wheel_without_a_line_angle_and_with_a_second_mirror) {
    fed_pointcloud cloud;
    feed_deflection(cloud);
    const auto& mech = newest<mirrorwheel_deflection>(cloud);
    expect_wheel(mech, 1);
    EXPECT_EQ(mech.line_angle_0, 0);
    EXPECT_EQ(mech.deflection_mirror_origin, (vector3{7, 8, 9}));
    EXPECT_EQ(mech.deflection_mirror_direction, (vector3{0, 0, -1}));
    EXPECT_EQ(cloud.facet_count, 1U);
}

TEST(pointcloud_geometry, nodding_wheel_is_one_entry_with_both_mirrors) {
    fed_pointcloud cloud;
    cloud.feed<packets::device_geometry_4_writer>(
        [](auto& w) {
            put_wheel(w, 3);
            w.line_angle_0(5);
            put([&](auto i, float v) { w.nodding_axis_origin(i, v); }, {7, 8, 9});
            put([&](auto i, float v) { w.nodding_axis_direction(i, v); }, {0, 1, 0});
            put([&](auto i, float v) { w.nodding_normal(i, v); }, {0.5, 0, 0.5});
            w.nodding_dist(0.75F);
        },
        3);
    ASSERT_EQ(cloud.mechs.size(), 1U);
    const auto& mech = newest<mirrorwheel_nodding>(cloud);
    expect_wheel(mech, 3);
    EXPECT_EQ(mech.line_angle_0, 5);
    EXPECT_EQ(mech.nodding_axis_origin, (vector3{7, 8, 9}));
    EXPECT_EQ(mech.nodding_axis_direction, (vector3{0, 1, 0}));
    EXPECT_EQ(mech.nodding_facet.normal, (vector3{0.5, 0, 0.5}));
    EXPECT_EQ(mech.nodding_facet.dist, 0.75);
    EXPECT_EQ(cloud.facet_count, 3U);
}

TEST(pointcloud_geometry, gimbal_mount_takes_all_its_fields) {
    fed_pointcloud cloud;
    cloud.feed<packets::device_geometry_5_writer>([](auto& w) {
        put([&](auto i, float v) { w.laser_origin(i, v); }, {1, 2, 3});
        put([&](auto i, float v) { w.laser_direction(i, v); }, {0, 0, 1});
        put([&](auto i, float v) { w.line_mirror_axis_origin(i, v); }, {4, 5, 6});
        put([&](auto i, float v) { w.line_mirror_axis_direction(i, v); }, {1, 0, 0});
        put([&](auto i, float v) { w.frame_mirror_axis_origin(i, v); }, {7, 8, 9});
        put([&](auto i, float v) { w.frame_mirror_axis_direction(i, v); }, {0, 1, 0});
        put([&](auto i, float v) { w.facet_direction(i, v); }, {0, 0.5, 0.5});
        w.dist(0.25F);
    });
    const auto& mech = newest<gimbalmountmirror>(cloud);
    EXPECT_EQ(mech.laser_origin, (vector3{1, 2, 3}));
    EXPECT_EQ(mech.laser_direction, (vector3{0, 0, 1}));
    EXPECT_EQ(mech.line_mirror_axis_origin, (vector3{4, 5, 6}));
    EXPECT_EQ(mech.line_mirror_axis_direction, (vector3{1, 0, 0}));
    EXPECT_EQ(mech.frame_mirror_axis_origin, (vector3{7, 8, 9}));
    EXPECT_EQ(mech.frame_mirror_axis_direction, (vector3{0, 1, 0}));
    EXPECT_EQ(mech.facet_direction, (vector3{0, 0.5, 0.5}));
    EXPECT_EQ(mech.dist, 0.25);
}

TEST(pointcloud_geometry, window_replaces_a_wheel_by_one_class_and_a_deflection_by_another) {
    const auto expect_window = [](const window_distortion& window) {
        EXPECT_EQ(window.t_axis, (vector3{1, 0, 0}));
        EXPECT_EQ(window.s_axis, (vector3{0, 1, 0}));
        EXPECT_EQ(window.angle_sin_min, -0.75);
        EXPECT_EQ(window.angle_sin_inc, 0.125);
        expect_nodes(window.nodes, 3);
    };
    fed_pointcloud cloud;
    feed_wheel(cloud);
    feed_window(cloud);
    expect_window(newest<mirrorwheel_windowdistortion>(cloud));
    feed_deflection(cloud);
    feed_window(cloud);
    const auto& second = newest<mirrorwheel_deflection_windowdistortion>(cloud);
    expect_window(second);
    EXPECT_EQ(second.deflection_mirror_origin, (vector3{7, 8, 9}));
    EXPECT_EQ(cloud.mechs.size(), 2U);
}

TEST(pointcloud_geometry, cone_replaces_a_wheel_or_a_wedge) {
    fed_pointcloud cloud;
    feed_wheel(cloud);
    feed_cone(cloud);
    const auto& first = newest<mirrorwheel_scanconedistortion>(cloud);
    EXPECT_EQ(first.cone_axis_direction, (vector3{1, 0, 0}));
    EXPECT_EQ(first.beam_direction_0, (vector3{0, 0, 1}));
    expect_nodes(first.nodes, 5);
    feed_wedge(cloud);
    feed_cone(cloud);
    const auto& second = newest<wedge_scanconedistortion>(cloud);
    EXPECT_EQ(second.cone_axis_direction, (vector3{1, 0, 0}));
    EXPECT_EQ(second.beam_direction_0, (vector3{0, 0, 1}));
    expect_nodes(second.nodes, 5);
    EXPECT_EQ(second.refraction_index, 1.5);
}

TEST(pointcloud_geometry, a_refusal_of_the_new_model_leaves_the_one_before) {
    fed_pointcloud cloud;
    feed_wheel(cloud);
    EXPECT_THROW(feed_cone(cloud, 3), std::runtime_error) << "a spline takes four nodes";
    ASSERT_EQ(cloud.mechs.size(), 1U);
    expect_wheel(newest<mirrorwheel>(cloud), 2);
}

TEST(pointcloud_geometry, facet_surface_replaces_a_wheel) {
    fed_pointcloud cloud;
    feed_wheel(cloud);
    feed_surface<packets::device_geometry_7N_writer>(cloud);
    const auto& first = newest<mirrorwheel_facetsurfacedistortion>(cloud);
    EXPECT_EQ(first.rotation_axis_for_s_t_axes, (vector3{1, 0, 0}));
    EXPECT_EQ(first.facet_distance, 0.375);
    expect_nodes(first.nodes, 6);
    feed_wheel(cloud);
    feed_surface<packets::device_geometry_7D_writer>(cloud);
    const auto& second = newest<mirrorwheel_facetsurfacedistortion_D>(cloud);
    EXPECT_EQ(second.rotation_axis_for_s_t_axes, (vector3{1, 0, 0}));
    EXPECT_EQ(second.facet_distance, 0.375);
    expect_nodes(second.nodes, 6);
}

TEST(pointcloud_geometry, fan_takes_its_grid_and_the_laser_of_the_wheel) {
    fed_pointcloud cloud;
    feed_wheel(cloud);
    feed_fan(cloud);
    const auto& mech = newest<mirrorwheel_fanbeam>(cloud);
    EXPECT_EQ(mech.num_angles_0, 2U);
    EXPECT_EQ(mech.num_angles_1, 1U);
    EXPECT_EQ(mech.rotation_axis_0, (vector3{1, 0, 0}));
    EXPECT_EQ(mech.rotation_axis_1, (vector3{0, 1, 0}));
    ASSERT_EQ(mech.rotation_angles.size(), 2U);
    EXPECT_EQ(mech.rotation_angles[1].alpha_0, 0.5);
    EXPECT_EQ(mech.rotation_angles[1].alpha_1, -0.25);
    EXPECT_EQ(mech.laser_direction, (vector3{0, 0.5, 0.25}));
}

TEST(pointcloud_geometry, refining_a_fan_in_use_begins_at_the_laser_told) {
    fed_pointcloud cloud;
    feed_wheel(cloud);
    feed_fan(cloud);
    auto& used = dynamic_cast<mirrorwheel_fanbeam&>(*cloud.mechs.back());
    used.select_beam(1, 0);
    ASSERT_NE(used.laser_direction, (vector3{0, 0.5, 0.25}));
    feed_fan(cloud);
    EXPECT_EQ(newest<mirrorwheel_fanbeam>(cloud).laser_direction, (vector3{0, 0.5, 0.25}));
}

TEST(pointcloud_geometry, biaxial_takes_its_shifts) {
    fed_pointcloud cloud;
    feed_wheel(cloud);
    feed_shifts(cloud);
    const auto& mech = newest<mirrorwheel_biaxial>(cloud);
    EXPECT_EQ(mech.aperture_direction, (vector3{0, 1, 0}));
    ASSERT_EQ(mech.biaxial_shift.size(), 2U);
    EXPECT_EQ(mech.biaxial_shift[1].range, 3.0);
    EXPECT_EQ(mech.biaxial_shift[1].shift, 0.5);
}

TEST(pointcloud_geometry, every_packet_gives_the_beam_of_the_present_counts) {
    void (*const all[])(fed_pointcloud&) = {feed_wheel,
                                            feed_deflection,
                                            feed_wedge,
                                            feed_pane,
                                            feed_window,
                                            [](fed_pointcloud& cloud) { feed_cone(cloud); },
                                            feed_surface<packets::device_geometry_7N_writer>,
                                            feed_surface<packets::device_geometry_7D_writer>,
                                            feed_fan,
                                            feed_shifts};
    for (const auto feed : all) {
        fed_pointcloud cloud;
        cloud.units(0.001F, 3600);
        cloud.shot(1, 300, 500);
        cloud.frame_stop();
        feed_wheel(cloud);
        cloud.beam_direction = {};
        feed(cloud);
        const vector3 beam = cloud.beam_direction;
        EXPECT_NE(beam, (vector3{}));
        cloud.mechs.back()->set_counts(300, 500, 0);
        EXPECT_EQ(cloud.beam_direction, beam);
    }
}

TEST(pointcloud_geometry, models_keep_the_units_they_were_made_with_when_refined) {
    fed_pointcloud cloud;
    cloud.units(0.5F, 1000);
    feed_wheel(cloud);
    cloud.units(0.25F, 2000);
    feed_pane(cloud);
    EXPECT_EQ(cloud.mechs[0]->range_unit, 0.5);
    EXPECT_EQ(cloud.mechs[0]->line_circle_count, 1000U);
    feed_wedge(cloud);
    EXPECT_EQ(cloud.mechs[1]->range_unit, 0.25);
    EXPECT_EQ(cloud.mechs[1]->frame_circle_count, 2000U);
}

TEST(pointcloud_geometry, header_empties_the_list_and_the_plain_model_takes_over) {
    fed_pointcloud cloud;
    cloud.units(0.001F, 4);
    feed_wheel(cloud);
    feed_wedge(cloud);
    cloud.feed<packets::header_writer>();
    EXPECT_EQ(cloud.mechs.size(), 0U);
    EXPECT_THROW(feed_pane(cloud), scanlib_exception);
    cloud.shot(1, 1, 1);
    EXPECT_NEAR(cloud.shots[0].direction[1], 1.0, 1e-12) << "a quarter of a turn in both";
    EXPECT_EQ(cloud.shots[0].origin, (vector3{0, 0, 0}));
}
