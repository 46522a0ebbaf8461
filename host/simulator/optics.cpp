#include "simulator/optics.hpp"

#include "scanlib/gimbalmountmirror.hpp"
#include "scanlib/mirrorwheel_biaxial.hpp"
#include "scanlib/mirrorwheel_deflection_windowdistortion.hpp"
#include "scanlib/mirrorwheel_exitpane.hpp"
#include "scanlib/mirrorwheel_facetsurfacedistortion.hpp"
#include "scanlib/mirrorwheel_fanbeam.hpp"
#include "scanlib/mirrorwheel_nodding.hpp"
#include "scanlib/mirrorwheel_scanconedistortion.hpp"
#include "scanlib/mirrorwheel_windowdistortion.hpp"
#include "scanlib/packet_writers.hpp"
#include "scanlib/wedge_scanconedistortion.hpp"

#include <cmath>
#include <numbers>
#include <vector>

namespace simulator {

namespace {

namespace packets = scanlib::packets;
using scanlib::packet_emitter;

constexpr double pi = std::numbers::pi;

/// A number, and a vector, as a packet holds them.
double as_told(double x) {
    return static_cast<float>(x);
}
vector3 as_told(double x, double y, double z) {
    return {as_told(x), as_told(y), as_told(z)};
}

float narrow(double x) {
    return static_cast<float>(x); // was made by as_told
}

/// Where models are built: units, and the place of the beam.
struct bench {
    const optics_units& units;
    vector3* beam_origin;
    vector3* beam_direction;

    template<class Mech>
    std::unique_ptr<Mech> make() const {
        auto mech = std::make_unique<Mech>(beam_origin, beam_direction);
        mech->range_unit = units.range_unit;
        mech->line_circle_count = units.line_circle_count;
        mech->frame_circle_count = units.frame_circle_count;
        return mech;
    }
};

/// A few tenths of a milliradian, differently at each place of a turn.
std::vector<scanlib::distortion_node> small_distortions(std::size_t count) {
    std::vector<scanlib::distortion_node> nodes(count);
    for (std::size_t i = 0; i < count; ++i) {
        const double turn = 2 * pi * static_cast<double>(i) / static_cast<double>(count);
        nodes[i] = {as_told(8e-04 * std::sin(turn)), as_told(5e-04 * std::cos(2 * turn) + 2e-04)};
    }
    return nodes;
}

/// The parts of a packet that are the same in each kind that tells a wheel.
template<class Writer>
void write_wheel(Writer& p, const scanlib::mirrorwheel& wheel) {
    for (std::size_t i = 0; i < 3; ++i) {
        p.laser_origin(i, narrow(wheel.laser_origin[i]));
        p.laser_direction(i, narrow(wheel.laser_direction[i]));
        p.mirror_axis_origin(i, narrow(wheel.mirror_axis_origin[i]));
        p.mirror_axis_direction(i, narrow(wheel.mirror_axis_direction[i]));
    }
    for (std::size_t f = 0; f < wheel.facets.size(); ++f) {
        auto facet = p.element(f);
        for (std::size_t i = 0; i < 3; ++i) {
            facet.normal(i, narrow(wheel.facets[f].normal[i]));
        }
        facet.dist(narrow(wheel.facets[f].dist));
    }
}

template<class Writer>
void write_node(Writer&& element, const scanlib::distortion_node& node) {
    element.s_rot_angle(narrow(node.s_rot_angle));
    element.t_rot_angle(narrow(node.t_rot_angle));
}

/// A wheel whose axis lies level, under a laser that shines down. The facets are a little out of
/// true, each in its own way, as the calibration of a real wheel tells.
void set_up(scanlib::mirrorwheel& wheel) {
    wheel.laser_origin = as_told(0.035, 0.002, 0.16);
    wheel.laser_direction = {0, 0, -1};
    wheel.mirror_axis_origin = {0, 0, 0};
    wheel.mirror_axis_direction = {0, -1, 0};
    wheel.line_angle_0 = 1432;
    wheel.facets = {{as_told(1, 0, 0), as_told(0.03)},
                    {as_told(0.99999994, 3.0e-04, 0), as_told(0.0301)},
                    {as_told(0.99999994, -2.0e-04, 1.0e-04), as_told(0.0299)}};
}

void tell_wheel(packet_emitter& out, const scanlib::mirrorwheel& wheel) {
    out.emit<packets::device_geometry_writer>(
        [&](packets::device_geometry_writer& p) {
            write_wheel(p, wheel);
            p.line_angle_0(wheel.line_angle_0);
        },
        wheel.facets.size());
}

/// A model of class `Mech`: `fill` sets its parameters, `tell` writes the packets behind.
template<class Mech, class Fill, class Tell>
optics::model model_of(const bench& at, Fill fill, Tell tell) {
    auto mech = at.make<Mech>();
    fill(*mech);
    mech->initialise();
    const Mech* parameters = mech.get();
    return {std::move(mech), [parameters, tell](packet_emitter& out) { tell(out, *parameters); }};
}

/// A refined wheel: `fill` and `tell` deal with what is added.
template<class Mech, class Fill, class Tell>
optics::model refined_wheel(const bench& at, Fill fill, Tell tell) {
    return model_of<Mech>(
        at,
        [&](Mech& m) {
            set_up(m);
            fill(m);
        },
        [tell](packet_emitter& out, const Mech& m) {
            tell_wheel(out, m);
            tell(out, m);
        });
}

optics::model make_wheel(const bench& at) {
    return refined_wheel<scanlib::mirrorwheel>(
        at, [](auto&) {}, [](packet_emitter&, const auto&) {});
}

optics::model make_exitpane(const bench& at) {
    using mech = scanlib::mirrorwheel_exitpane;
    return refined_wheel<mech>(
        at,
        [](mech& m) {
            m.exit_pane_thickness = as_told(0.008);
            m.exit_pane_index = as_told(1.51);
            m.exit_pane_direction = as_told(0.96592583, 0, -0.25881905);
        },
        [](packet_emitter& out, const mech& m) {
            out.emit<packets::device_geometry_1_writer>([&](auto& p) {
                p.exit_pane_thickness(narrow(m.exit_pane_thickness));
                p.exit_pane_index(narrow(m.exit_pane_index));
                for (std::size_t i = 0; i < 3; ++i) {
                    p.exit_pane_direction(i, narrow(m.exit_pane_direction[i]));
                }
            });
        });
}

/// A wheel with a level axis along x, and beside it a mirror that folds its fan forward. The laser
/// comes from below, and the fan lies oblique.
void set_up_deflection(scanlib::mirrorwheel_deflection& m) {
    m.laser_origin = as_told(0.002, 0.12, -0.075);
    m.laser_direction = as_told(0, -0.76604444, 0.64278764);
    m.mirror_axis_direction = {-1, 0, 0};
    m.facets.clear();
    for (int f = 0; f < 3; ++f) {
        m.facets.push_back(
            {as_told(2.0e-04 * f, std::sin(f * 2 * pi / 3), std::cos(f * 2 * pi / 3)),
             as_told(0.03)});
    }
    m.deflection_mirror_origin = as_told(0, 0.06, -0.1);
    m.deflection_mirror_direction = as_told(0.70710678, -0.35355338, 0.61237246);
}

void tell_deflection(packet_emitter& out, const scanlib::mirrorwheel_deflection& m) {
    out.emit<packets::device_geometry_3_writer>(
        [&](packets::device_geometry_3_writer& p) {
            write_wheel(p, m);
            for (std::size_t i = 0; i < 3; ++i) {
                p.deflection_mirror_origin(i, narrow(m.deflection_mirror_origin[i]));
                p.deflection_mirror_direction(i, narrow(m.deflection_mirror_direction[i]));
            }
        },
        m.facets.size());
}

optics::model make_deflection(const bench& at) {
    return model_of<scanlib::mirrorwheel_deflection>(at, set_up_deflection, tell_deflection);
}

optics::model make_biaxial(const bench& at) {
    using mech = scanlib::mirrorwheel_biaxial;
    return refined_wheel<mech>(
        at,
        [](mech& m) {
            m.aperture_direction = {0, 1, 0};
            m.biaxial_shift = {
                {2, as_told(0.012)}, {5, as_told(0.006)}, {12, as_told(0.002)}, {30, 0}};
        },
        [](packet_emitter& out, const mech& m) {
            out.emit<packets::biaxial_geometry_writer>(
                [&](packets::biaxial_geometry_writer& p) {
                    for (std::size_t i = 0; i < 3; ++i) {
                        p.aperture_direction(i, narrow(m.aperture_direction[i]));
                    }
                    for (std::size_t n = 0; n < m.biaxial_shift.size(); ++n) {
                        auto node = p.element(n);
                        node.range(narrow(m.biaxial_shift[n].range));
                        node.shift(narrow(m.biaxial_shift[n].shift));
                    }
                },
                m.biaxial_shift.size());
        });
}

/// The second mirror stands upright and nods about the vertical.
optics::model make_nodding(const bench& at) {
    using mech = scanlib::mirrorwheel_nodding;
    return model_of<mech>(
        at,
        [](mech& m) {
            set_up(m);
            m.nodding_axis_origin = as_told(0.06, 0, 0);
            m.nodding_axis_direction = {0, 0, 1};
            m.nodding_facet = {as_told(-0.08715574, 0.9961947, 0), as_told(0.01)};
        },
        [](packet_emitter& out, const mech& m) {
            out.emit<packets::device_geometry_4_writer>(
                [&](packets::device_geometry_4_writer& p) {
                    write_wheel(p, m);
                    p.line_angle_0(m.line_angle_0);
                    for (std::size_t i = 0; i < 3; ++i) {
                        p.nodding_axis_origin(i, narrow(m.nodding_axis_origin[i]));
                        p.nodding_axis_direction(i, narrow(m.nodding_axis_direction[i]));
                        p.nodding_normal(i, narrow(m.nodding_facet.normal[i]));
                    }
                    p.nodding_dist(narrow(m.nodding_facet.dist));
                },
                m.facets.size());
        });
}

/// A mirror that looks out level, pitches with the line and turns about the vertical with the
/// frame.
optics::model make_gimbal(const bench& at) {
    using mech = scanlib::gimbalmountmirror;
    return model_of<mech>(
        at,
        [](mech& m) {
            m.laser_origin = as_told(0.14, 0.14, 0.002);
            m.laser_direction = as_told(-0.70710678, -0.70710678, 0);
            m.line_mirror_axis_origin = as_told(0.001, 0, 0);
            m.line_mirror_axis_direction = {0, 1, 0};
            m.frame_mirror_axis_origin = {0, 0, 0};
            m.frame_mirror_axis_direction = {0, 0, 1};
            m.facet_direction = as_told(0.9975641, 0, 0.06975647);
            m.dist = as_told(0.005);
        },
        [](packet_emitter& out, const mech& m) {
            out.emit<packets::device_geometry_5_writer>([&](packets::device_geometry_5_writer& p) {
                for (std::size_t i = 0; i < 3; ++i) {
                    p.laser_origin(i, narrow(m.laser_origin[i]));
                    p.laser_direction(i, narrow(m.laser_direction[i]));
                    p.line_mirror_axis_origin(i, narrow(m.line_mirror_axis_origin[i]));
                    p.line_mirror_axis_direction(i, narrow(m.line_mirror_axis_direction[i]));
                    p.frame_mirror_axis_origin(i, narrow(m.frame_mirror_axis_origin[i]));
                    p.frame_mirror_axis_direction(i, narrow(m.frame_mirror_axis_direction[i]));
                    p.facet_direction(i, narrow(m.facet_direction[i]));
                }
                p.dist(narrow(m.dist));
            });
        });
}

/// A laser that shines outward, a little down, through a wedge of glass that turns about the
/// laser's direction: the beam runs round a cone.
void set_up_wedge(scanlib::wedge& m) {
    m.laser_origin = {0, 0, 0};
    m.laser_direction = as_told(0.98480775, 0, -0.17364818);
    m.wedge_axis_origin = as_told(0.09848078, 0, -0.01736482);
    m.wedge_axis_direction = as_told(-0.98480775, 0, 0.17364818);
    m.facet1_direction = as_told(-0.98480775, 0, 0.17364818);
    // 26 degrees off the axis.
    m.facet2_direction = as_told(0.8090170, 0, -0.5877853);
    m.dist = as_told(0.02);
    m.refraction_index = as_told(1.7);
}

void tell_wedge(packet_emitter& out, const scanlib::wedge& m) {
    out.emit<packets::device_geometry_2_writer>([&](packets::device_geometry_2_writer& p) {
        for (std::size_t i = 0; i < 3; ++i) {
            p.laser_origin(i, narrow(m.laser_origin[i]));
            p.laser_direction(i, narrow(m.laser_direction[i]));
            p.wedge_axis_origin(i, narrow(m.wedge_axis_origin[i]));
            p.wedge_axis_direction(i, narrow(m.wedge_axis_direction[i]));
            p.facet1_direction(i, narrow(m.facet1_direction[i]));
            p.facet2_direction(i, narrow(m.facet2_direction[i]));
        }
        p.dist(narrow(m.dist));
        p.refraction_index(narrow(m.refraction_index));
    });
}

optics::model make_wedge(const bench& at) {
    return model_of<scanlib::wedge>(at, set_up_wedge, tell_wedge);
}

void set_up_window(scanlib::window_distortion& window) {
    window.t_axis = {0, 1, 0};
    window.s_axis = {0, 0, 1};
    window.angle_sin_min = as_told(-0.95);
    window.angle_sin_inc = as_told(0.1);
    window.nodes = small_distortions(17);
}

void tell_window(packet_emitter& out, const scanlib::window_distortion& window) {
    out.emit<packets::device_geometry_6_writer>(
        [&](packets::device_geometry_6_writer& p) {
            for (std::size_t i = 0; i < 3; ++i) {
                p.t_axis(i, narrow(window.t_axis[i]));
                p.s_axis(i, narrow(window.s_axis[i]));
            }
            p.angle_sin_min(narrow(window.angle_sin_min));
            p.angle_sin_inc(narrow(window.angle_sin_inc));
            for (std::size_t n = 0; n < window.nodes.size(); ++n) {
                write_node(p.element(n), window.nodes[n]);
            }
        },
        window.nodes.size());
}

optics::model make_window(const bench& at) {
    using mech = scanlib::mirrorwheel_windowdistortion;
    return refined_wheel<mech>(
        at, [](mech& m) { set_up_window(m); },
        [](packet_emitter& out, const mech& m) { tell_window(out, m); });
}

optics::model make_deflection_window(const bench& at) {
    using mech = scanlib::mirrorwheel_deflection_windowdistortion;
    return model_of<mech>(
        at,
        [](mech& m) {
            set_up_deflection(m);
            set_up_window(m);
        },
        [](packet_emitter& out, const mech& m) {
            tell_deflection(out, m);
            tell_window(out, m);
        });
}

template<class Mech>
void tell_cone(packet_emitter& out, const Mech& m) {
    out.emit<packets::device_geometry_7_writer>(
        [&](packets::device_geometry_7_writer& p) {
            for (std::size_t i = 0; i < 3; ++i) {
                p.cone_axis_direction(i, narrow(m.cone_axis_direction[i]));
                p.beam_direction_0(i, narrow(m.beam_direction_0[i]));
            }
            for (std::size_t n = 0; n < m.nodes.size(); ++n) {
                write_node(p.element(n), m.nodes[n]);
            }
        },
        m.nodes.size());
}

optics::model make_wedge_cone(const bench& at) {
    using mech = scanlib::wedge_scanconedistortion;
    return model_of<mech>(
        at,
        [](mech& m) {
            set_up_wedge(m);
            m.cone_axis_direction = m.wedge_axis_direction;
            m.beam_direction_0 = as_told(0.8460, 0, -0.5332);
            m.nodes = small_distortions(24);
        },
        [](packet_emitter& out, const mech& m) {
            tell_wedge(out, m);
            tell_cone(out, m);
        });
}

optics::model make_wheel_cone(const bench& at) {
    using mech = scanlib::mirrorwheel_scanconedistortion;
    return refined_wheel<mech>(
        at,
        [](mech& m) {
            m.cone_axis_direction = {0, -1, 0};
            m.beam_direction_0 = {0, 0, -1};
            m.nodes = small_distortions(24);
        },
        tell_cone<mech>);
}

/// A wheel with facets that are not quite plane, told by packets of the kind of `Writer`.
template<class Mech, class Writer>
optics::model make_facet_surface(const bench& at) {
    return refined_wheel<Mech>(
        at,
        [](Mech& m) {
            m.rotation_axis_for_s_t_axes = {0, -1, 0};
            m.facet_distance = as_told(0.03);
            m.nodes = small_distortions(12);
        },
        [](packet_emitter& out, const Mech& m) {
            out.emit<Writer>(
                [&](Writer& p) {
                    for (std::size_t i = 0; i < 3; ++i) {
                        p.rotation_axis_for_s_t_axes(i, narrow(m.rotation_axis_for_s_t_axes[i]));
                    }
                    p.facet_distance(narrow(m.facet_distance));
                    for (std::size_t n = 0; n < m.nodes.size(); ++n) {
                        write_node(p.element(n), m.nodes[n]);
                    }
                },
                m.nodes.size());
        });
}

/// Beams about a degree apart: columns beside, rows ahead of each other.
optics::model make_fan(const bench& at) {
    using mech = scanlib::mirrorwheel_fanbeam;
    return refined_wheel<mech>(
        at,
        [](mech& m) {
            m.num_angles_0 = optics::fan_columns;
            m.num_angles_1 = optics::fan_rows;
            m.rotation_axis_0 = {0, 1, 0};
            m.rotation_axis_1 = {1, 0, 0};
            for (std::uint32_t row = 0; row < optics::fan_rows; ++row) {
                for (std::uint32_t column = 0; column < optics::fan_columns; ++column) {
                    m.rotation_angles.push_back(
                        {as_told(0.012 * column - 0.006), as_told(0.02 * row - 0.03)});
                }
            }
        },
        [](packet_emitter& out, const mech& m) {
            out.emit<packets::device_geometry_laser_direction_writer>(
                [&](packets::device_geometry_laser_direction_writer& p) {
                    p.num_angles_0(m.num_angles_0);
                    p.num_angles_1(m.num_angles_1);
                    for (std::size_t i = 0; i < 3; ++i) {
                        p.rotation_axis_0(i, narrow(m.rotation_axis_0[i]));
                        p.rotation_axis_1(i, narrow(m.rotation_axis_1[i]));
                    }
                    for (std::size_t n = 0; n < m.rotation_angles.size(); ++n) {
                        auto pair = p.element(n);
                        pair.alpha_0(narrow(m.rotation_angles[n].alpha_0));
                        pair.alpha_1(narrow(m.rotation_angles[n].alpha_1));
                    }
                },
                m.rotation_angles.size());
        });
}

optics::model make(mechanics choice, const bench& at) {
    switch (choice) {
    case mechanics::mirrorwheel:
        return make_wheel(at);
    case mechanics::mirrorwheel_exitpane:
        return make_exitpane(at);
    case mechanics::mirrorwheel_deflection:
        return make_deflection(at);
    case mechanics::mirrorwheel_biaxial:
        return make_biaxial(at);
    case mechanics::mirrorwheel_nodding:
        return make_nodding(at);
    case mechanics::gimbalmountmirror:
        return make_gimbal(at);
    case mechanics::wedge:
        return make_wedge(at);
    case mechanics::mirrorwheel_windowdistortion:
        return make_window(at);
    case mechanics::mirrorwheel_deflection_windowdistortion:
        return make_deflection_window(at);
    case mechanics::wedge_scanconedistortion:
        return make_wedge_cone(at);
    case mechanics::mirrorwheel_scanconedistortion:
        return make_wheel_cone(at);
    case mechanics::mirrorwheel_facetsurfacedistortion:
        return make_facet_surface<scanlib::mirrorwheel_facetsurfacedistortion,
                                  packets::device_geometry_7N_writer>(at);
    case mechanics::mirrorwheel_facetsurfacedistortion_d:
        return make_facet_surface<scanlib::mirrorwheel_facetsurfacedistortion_D,
                                  packets::device_geometry_7D_writer>(at);
    case mechanics::mirrorwheel_fanbeam:
        return make_fan(at);
    }
    return make_wheel(at);
}

} // namespace

optics::optics(mechanics choice, const optics_units& units, vector3* beam_origin,
               vector3* beam_direction) {
    model made = make(choice, {units, beam_origin, beam_direction});
    mech_ = std::move(made.mech);
    tell_ = std::move(made.tell);
}

void optics::select_beam(std::uint32_t column, std::uint32_t row) {
    if (auto* fan = dynamic_cast<scanlib::mirrorwheel_fanbeam*>(mech_.get())) {
        fan->select_beam(column, row);
    }
}

bool line_swings(mechanics choice) noexcept {
    return choice == mechanics::gimbalmountmirror;
}

bool frame_swings(mechanics choice) noexcept {
    return choice == mechanics::gimbalmountmirror || choice == mechanics::mirrorwheel_nodding;
}

} // namespace simulator
