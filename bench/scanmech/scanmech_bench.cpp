/// Beams for encoder counts, and points along them: one figure a scanner model.

#include "scanlib/gimbalmountmirror.hpp"
#include "scanlib/mirrorwheel_biaxial.hpp"
#include "scanlib/mirrorwheel_deflection_windowdistortion.hpp"
#include "scanlib/mirrorwheel_exitpane.hpp"
#include "scanlib/mirrorwheel_facetsurfacedistortion.hpp"
#include "scanlib/mirrorwheel_fanbeam.hpp"
#include "scanlib/mirrorwheel_nodding.hpp"
#include "scanlib/mirrorwheel_windowdistortion.hpp"
#include "scanlib/wedge_scanconedistortion.hpp"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <type_traits>

using namespace scanlib;

namespace {

constexpr std::uint32_t circle = 4'000'000;

/// A model with parameters of a plausible instrument.
template<class Model>
struct instrument {
    vector3 origin{};
    vector3 direction{};
    Model mech{&origin, &direction};

    instrument() {
        mech.line_circle_count = circle;
        mech.frame_circle_count = circle;
        if constexpr (std::is_base_of_v<mirrorwheel, Model>) {
            mech.laser_origin = {0.01, 0, 0.1};
            mech.mirror_axis_direction = {1, 0, 0};
            mech.line_angle_0 = 1000;
            mech.facets.clear();
            for (int i = 0; i < 3; ++i) {
                const double tilt = 0.002 * i;
                mech.facets.push_back({{std::sin(tilt), 0, std::cos(tilt)}, -0.03});
            }
        }
        if constexpr (std::is_base_of_v<wedge, Model>) {
            mech.facet1_direction = {std::sin(0.1), 0, -std::cos(0.1)};
            mech.dist = -0.01;
            mech.refraction_index = 1.5;
        }
        if constexpr (requires { mech.frame_mirror_axis_direction; }) {
            mech.frame_mirror_axis_direction = {0, 1, 0};
        }
        if constexpr (requires { mech.exit_pane_index; }) {
            mech.exit_pane_thickness = 0.004;
            mech.exit_pane_index = 1.5;
        }
        if constexpr (requires { mech.biaxial_shift; }) {
            mech.biaxial_shift = {{2, 0.02}, {10, 0.005}, {200, 0}};
        }
        if constexpr (requires { mech.nodes; }) {
            for (int i = 0; i < 64; ++i) {
                mech.nodes.push_back({1e-4 * std::sin(i), 1e-4 * std::cos(i)});
            }
        }
        if constexpr (requires { mech.angle_sin_min; }) {
            mech.angle_sin_min = -1;
            mech.angle_sin_inc = 2.0 / 60;
        }
        if constexpr (requires { mech.cone_axis_direction; }) {
            mech.cone_axis_direction = {1, 0, 0};
        }
        mech.initialise();
    }
};

void check(benchmark::State& state, const vector3& direction) {
    if (!(std::fabs(dot(direction, direction) - 1) < 1e-12)) {
        state.SkipWithError("the beam has no unit length");
    }
}

/// Lines of a scan: the line count moves with every shot, the frame count with every second line.
/// Called through the base, as an engine does.
template<class Model>
void shots(benchmark::State& state) {
    instrument<Model> i;
    scanmech* mech = &i.mech;
    benchmark::DoNotOptimize(mech);
    std::uint32_t line = 0;
    std::uint32_t frame = 1'000'000;
    double sum = 0;
    for (auto _ : state) {
        mech->set_counts(line, frame, 0);
        sum += i.direction[2] + i.origin[0];
        line += 797;
        if (line >= circle) {
            line -= circle;
            frame += 300;
            check(state, i.direction);
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations());
}

/// Points of echoes along one beam.
template<class Model>
void points(benchmark::State& state) {
    instrument<Model> i;
    const scanmech* mech = &i.mech;
    benchmark::DoNotOptimize(mech);
    i.mech.set_counts(12345, 6789, 0);
    double range = 0;
    double sum = 0;
    for (auto _ : state) {
        vector3 point;
        mech->position(point, range);
        sum += point[0] + point[2];
        range += range < 150 ? 0.37 : -149.9;
    }
    benchmark::DoNotOptimize(sum);
    check(state, i.direction);
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(shots<scanmech>)->Name("beam/scanmech");
BENCHMARK(shots<mirrorwheel>)->Name("beam/mirrorwheel");
BENCHMARK(shots<mirrorwheel_exitpane>)->Name("beam/mirrorwheel_exitpane");
BENCHMARK(shots<mirrorwheel_deflection>)->Name("beam/mirrorwheel_deflection");
BENCHMARK(shots<mirrorwheel_biaxial>)->Name("beam/mirrorwheel_biaxial");
BENCHMARK(shots<mirrorwheel_nodding>)->Name("beam/mirrorwheel_nodding");
BENCHMARK(shots<mirrorwheel_windowdistortion>)->Name("beam/mirrorwheel_windowdistortion");
BENCHMARK(shots<mirrorwheel_deflection_windowdistortion>)
    ->Name("beam/mirrorwheel_deflection_windowdistortion");
BENCHMARK(shots<mirrorwheel_scanconedistortion>)->Name("beam/mirrorwheel_scanconedistortion");
BENCHMARK(shots<mirrorwheel_facetsurfacedistortion>)
    ->Name("beam/mirrorwheel_facetsurfacedistortion");
BENCHMARK(shots<mirrorwheel_fanbeam>)->Name("beam/mirrorwheel_fanbeam");
BENCHMARK(shots<wedge>)->Name("beam/wedge");
BENCHMARK(shots<wedge_scanconedistortion>)->Name("beam/wedge_scanconedistortion");
BENCHMARK(shots<gimbalmountmirror>)->Name("beam/gimbalmountmirror");
BENCHMARK(points<mirrorwheel>)->Name("point/mirrorwheel");
BENCHMARK(points<mirrorwheel_biaxial>)->Name("point/mirrorwheel_biaxial");

} // namespace
