#include "scanlib/gimbalmountmirror.hpp"
#include "scanlib/mirrorwheel_biaxial.hpp"
#include "scanlib/mirrorwheel_deflection_windowdistortion.hpp"
#include "scanlib/mirrorwheel_exitpane.hpp"
#include "scanlib/mirrorwheel_facetsurfacedistortion.hpp"
#include "scanlib/mirrorwheel_fanbeam.hpp"
#include "scanlib/mirrorwheel_nodding.hpp"
#include "scanlib/mirrorwheel_scanconedistortion.hpp"
#include "scanlib/mirrorwheel_windowdistortion.hpp"
#include "scanlib/pointcloud.hpp"
#include "scanlib/scanlib_exception.hpp"
#include "scanlib/wedge_scanconedistortion.hpp"

// The packets that tell the scanner's geometry: some make a model, others refine the newest one.
namespace scanlib {

namespace {

/// The vector that a fixed array of a packet holds.
template<class Numbers>
vector3 vector_of(const Numbers& numbers) {
    return {numbers[0], numbers[1], numbers[2]};
}

template<class Packet>
vector3 rotation_axis_of(const Packet& p) {
    return {p.rotation_axis_for_s_t_axes(0), p.rotation_axis_for_s_t_axes(1),
            p.rotation_axis_for_s_t_axes(2)};
}

template<class Packet>
std::vector<distortion_node> nodes_of(Packet& p) {
    std::vector<distortion_node> nodes(p.size());
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const auto e = p[i];
        nodes[i] = {e.s_rot_angle(), e.t_rot_angle()};
    }
    return nodes;
}

/// Fields that the two kinds for a distorted facet share.
template<class Model, class Packet>
void take_facet_surface(Model& model, const Packet& p) {
    model.rotation_axis_for_s_t_axes = rotation_axis_of(p);
    model.facet_distance = p.facet_distance();
    model.nodes.resize(p.tail_size());
    for (std::size_t i = 0; i < model.nodes.size(); ++i) {
        const auto e = p.tail(i);
        model.nodes[i] = {e.s_rot_angle(), e.t_rot_angle()};
    }
}

/// Fields of all kinds that tell a mirror wheel.
template<class Packet>
void take_wheel(mirrorwheel& wheel, Packet& p) {
    wheel.laser_origin = vector_of(p.laser_origin());
    wheel.laser_direction = vector_of(p.laser_direction());
    wheel.mirror_axis_origin = vector_of(p.mirror_axis_origin());
    wheel.mirror_axis_direction = vector_of(p.mirror_axis_direction());
    wheel.facets.clear();
    for (std::size_t i = 0; i < p.size(); ++i) {
        const auto e = p[i];
        wheel.facets.push_back({vector_of(e.normal()), e.dist()});
    }
}

template<class Packet>
void take_window(window_distortion& window, Packet& p) {
    window.t_axis = vector_of(p.t_axis());
    window.s_axis = vector_of(p.s_axis());
    window.angle_sin_min = p.angle_sin_min();
    window.angle_sin_inc = p.angle_sin_inc();
    window.nodes = nodes_of(p);
}

} // namespace

/// A model with the units of now.
template<class Model>
std::unique_ptr<Model> pointcloud::new_model() {
    if (mechs.size() == geometry_limit) {
        throw scanlib_exception("pointcloud: too many scanner geometries", "pointcloud", __LINE__);
    }
    auto mech = std::make_unique<Model>(&beam_origin, &beam_direction);
    mech->range_unit = embedded_mech.range_unit;
    mech->line_circle_count = embedded_mech.line_circle_count;
    mech->frame_circle_count = embedded_mech.frame_circle_count;
    return mech;
}

/// Takes a model whose parameters are set into the list, and its beam for the present counts.
template<class Model>
void pointcloud::add_geometry(std::unique_ptr<Model> mech) {
    mech->initialise();
    mech->set_counts(line_counter, frame_counter, 0);
    mechs.push_back(std::move(mech));
}

/// The same in place of the newest model.
template<class Model>
void pointcloud::replace_geometry(std::unique_ptr<Model> mech) {
    mech->initialise();
    mech->set_counts(line_counter, frame_counter, 0);
    mechs.back() = std::move(mech);
}

/// The newest model, which a packet refines. Throws where there is none of that class.
template<class Model>
const Model& pointcloud::predecessor(const char* complaint) const {
    const auto* model = mechs.empty() ? nullptr : dynamic_cast<const Model*>(mechs.back().get());
    if (model == nullptr) {
        throw scanlib_exception(complaint, "pointcloud", __LINE__);
    }
    // A fan may stand at one of its lasers; asking for the beam takes it back to the one told.
    mechs.back()->set_counts(line_counter, frame_counter, 0);
    return *model;
}

void pointcloud::on_device_geometry(packets::device_geometry& p, const std::uint32_t* /*end*/) {
    auto mech = new_model<mirrorwheel>();
    take_wheel(*mech, p);
    mech->line_angle_0 = p.line_angle_0();
    facet_count = mech->facet_count();
    add_geometry(std::move(mech));
}

void pointcloud::on_device_geometry_1(packets::device_geometry_1& p) {
    auto mech = std::make_unique<mirrorwheel_exitpane>(
        predecessor<mirrorwheel>("pointcloud::on_device_geometry_1: device_geometry missing?"));
    mech->exit_pane_thickness = p.exit_pane_thickness();
    mech->exit_pane_index = p.exit_pane_index();
    mech->exit_pane_direction = vector_of(p.exit_pane_direction());
    replace_geometry(std::move(mech));
}

void pointcloud::on_device_geometry_2(packets::device_geometry_2& p) {
    auto mech = new_model<wedge>();
    mech->laser_origin = vector_of(p.laser_origin());
    mech->laser_direction = vector_of(p.laser_direction());
    mech->wedge_axis_origin = vector_of(p.wedge_axis_origin());
    mech->wedge_axis_direction = vector_of(p.wedge_axis_direction());
    mech->facet1_direction = vector_of(p.facet1_direction());
    mech->facet2_direction = vector_of(p.facet2_direction());
    mech->dist = p.dist();
    mech->refraction_index = p.refraction_index();
    add_geometry(std::move(mech));
}

void pointcloud::on_device_geometry_3(packets::device_geometry_3& p, const std::uint32_t* /*end*/) {
    auto mech = new_model<mirrorwheel_deflection>();
    take_wheel(*mech, p);
    mech->deflection_mirror_origin = vector_of(p.deflection_mirror_origin());
    mech->deflection_mirror_direction = vector_of(p.deflection_mirror_direction());
    facet_count = mech->facet_count();
    add_geometry(std::move(mech));
}

void pointcloud::on_device_geometry_4(packets::device_geometry_4& p, const std::uint32_t* /*end*/) {
    auto mech = new_model<mirrorwheel_nodding>();
    take_wheel(*mech, p);
    mech->line_angle_0 = p.line_angle_0();
    mech->nodding_axis_origin = vector_of(p.nodding_axis_origin());
    mech->nodding_axis_direction = vector_of(p.nodding_axis_direction());
    mech->nodding_facet = {vector_of(p.nodding_normal()), p.nodding_dist()};
    facet_count = mech->facet_count();
    add_geometry(std::move(mech));
}

void pointcloud::on_device_geometry_5(packets::device_geometry_5& p) {
    auto mech = new_model<gimbalmountmirror>();
    mech->laser_origin = vector_of(p.laser_origin());
    mech->laser_direction = vector_of(p.laser_direction());
    mech->line_mirror_axis_origin = vector_of(p.line_mirror_axis_origin());
    mech->line_mirror_axis_direction = vector_of(p.line_mirror_axis_direction());
    mech->frame_mirror_axis_origin = vector_of(p.frame_mirror_axis_origin());
    mech->frame_mirror_axis_direction = vector_of(p.frame_mirror_axis_direction());
    mech->facet_direction = vector_of(p.facet_direction());
    mech->dist = p.dist();
    add_geometry(std::move(mech));
}

void pointcloud::on_device_geometry_6(packets::device_geometry_6& p, const std::uint32_t* /*end*/) {
    const auto& wheel = predecessor<mirrorwheel>(
        "pointcloud::on_device_geometry_6: device_geometry or device_geometry_3 missing?");
    if (const auto* deflection = dynamic_cast<const mirrorwheel_deflection*>(&wheel)) {
        auto mech = std::make_unique<mirrorwheel_deflection_windowdistortion>(*deflection);
        take_window(*mech, p);
        replace_geometry(std::move(mech));
    } else {
        auto mech = std::make_unique<mirrorwheel_windowdistortion>(wheel);
        take_window(*mech, p);
        replace_geometry(std::move(mech));
    }
}

void pointcloud::on_device_geometry_7(packets::device_geometry_7& p, const std::uint32_t* /*end*/) {
    const auto replace_by = [&](auto mech) {
        mech->cone_axis_direction = vector_of(p.cone_axis_direction());
        mech->beam_direction_0 = vector_of(p.beam_direction_0());
        mech->nodes = nodes_of(p);
        replace_geometry(std::move(mech));
    };
    const char* complaint =
        "pointcloud::on_device_geometry_7: device_geometry or device_geometry_2 missing?";
    const auto& newest = predecessor<scanmech>(complaint);
    if (const auto* lens = dynamic_cast<const wedge*>(&newest)) {
        replace_by(std::make_unique<wedge_scanconedistortion>(*lens));
    } else {
        replace_by(
            std::make_unique<mirrorwheel_scanconedistortion>(predecessor<mirrorwheel>(complaint)));
    }
}

void pointcloud::on_device_geometry_7N(packets::device_geometry_7N& p) {
    auto mech = std::make_unique<mirrorwheel_facetsurfacedistortion>(
        predecessor<mirrorwheel>("pointcloud::on_device_geometry_7N: device_geometry missing?"));
    take_facet_surface(*mech, p);
    replace_geometry(std::move(mech));
}

void pointcloud::on_device_geometry_7D(packets::device_geometry_7D& p) {
    auto mech = std::make_unique<mirrorwheel_facetsurfacedistortion_D>(
        predecessor<mirrorwheel>("pointcloud::on_device_geometry_7D: device_geometry missing?"));
    take_facet_surface(*mech, p);
    replace_geometry(std::move(mech));
}

void pointcloud::on_device_geometry_laser_direction(packets::device_geometry_laser_direction& p,
                                                    const std::uint32_t* /*end*/) {
    auto mech = std::make_unique<mirrorwheel_fanbeam>(predecessor<mirrorwheel>(
        "pointcloud::on_device_geometry_laser_direction: device_geometry missing?"));
    mech->num_angles_0 = p.num_angles_0();
    mech->num_angles_1 = p.num_angles_1();
    mech->rotation_axis_0 = vector_of(p.rotation_axis_0());
    mech->rotation_axis_1 = vector_of(p.rotation_axis_1());
    mech->rotation_angles.resize(p.size());
    for (std::size_t i = 0; i < p.size(); ++i) {
        const auto e = p[i];
        mech->rotation_angles[i] = {e.alpha_0(), e.alpha_1()};
    }
    replace_geometry(std::move(mech));
}

void pointcloud::on_biaxial_geometry(packets::biaxial_geometry& p, const std::uint32_t* /*end*/) {
    auto mech = std::make_unique<mirrorwheel_biaxial>(
        predecessor<mirrorwheel>("pointcloud::on_biaxial_geometry: device_geometry missing?"));
    mech->aperture_direction = vector_of(p.aperture_direction());
    for (std::size_t i = 0; i < p.size(); ++i) {
        const auto e = p[i];
        mech->biaxial_shift.push_back({e.range(), e.shift()});
    }
    replace_geometry(std::move(mech));
}

} // namespace scanlib
