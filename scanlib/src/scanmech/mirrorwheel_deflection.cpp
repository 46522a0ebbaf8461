#include "scanlib/mirrorwheel_deflection.hpp"

#include "scanlib/json_members.hpp"
#include "scanlib/saturate.hpp"

#include <cmath>
#include <numbers>

namespace scanlib {

namespace {

constexpr double pi = std::numbers::pi;

/// fmod(angle, 2 pi), to the last bit. The differences are exact.
double within_turn(double angle) noexcept {
    if (!(angle >= 0 && angle < 8 * pi)) {
        return std::fmod(angle, 2 * pi);
    }
    if (angle >= 4 * pi) {
        angle -= 4 * pi;
    }
    return angle >= 2 * pi ? angle - 2 * pi : angle;
}

} // namespace

mirrorwheel_deflection::mirrorwheel_deflection(vector3* beam_origin_out,
                                               vector3* beam_direction_out)
    : mirrorwheel(beam_origin_out, beam_direction_out) {}

mirrorwheel_deflection::mirrorwheel_deflection(const mirrorwheel& wheel) : mirrorwheel(wheel) {}

std::uint32_t mirrorwheel_deflection::kind() const {
    return kind_mirrorwheel_deflection;
}

void mirrorwheel_deflection::initialise() {
    mirrorwheel::initialise();
    const vector3& m = deflection_mirror_direction;
    phase_ = std::atan2(-m[1], -m[2]) + pi / facet_count() + 4 * pi;
    facets_per_turn_ = facet_count() / (2 * pi);
    image_shift_ = 2 * dot(deflection_mirror_origin, m) * m;
}

void mirrorwheel_deflection::set_counts(std::uint32_t line, std::uint32_t frame,
                                        std::uint32_t /*segment*/) {
    line_angle = line * line_unit_;
    frame_angle = frame * frame_unit_;
    facet = saturate<std::uint32_t>(within_turn(phase_ - line_angle) * facets_per_turn_);
    set_angles(facet, line_angle, frame_angle);
}

void mirrorwheel_deflection::set_angles(std::uint32_t facet_index, double line, double frame) {
    reflect(facet_index, line, frame);
    const vector3& m = deflection_mirror_direction;
    const vector3 direction = reflected_direction_ - 2 * dot(reflected_direction_, m) * m;
    const vector3 origin = reflected_origin_ - 2 * dot(reflected_origin_, m) * m + image_shift_;
    send_turned(origin, direction);
}

void mirrorwheel_deflection::write_deflection(json_writer& out) const {
    out.array("deflection_mirror_origin", deflection_mirror_origin)
        .array("deflection_mirror_direction", deflection_mirror_direction);
}

void mirrorwheel_deflection::write_members(json_writer& out) const {
    mirrorwheel::write_members(out);
    write_deflection(out);
}

void mirrorwheel_deflection::read_members(const boost::property_tree::ptree& tree) {
    mirrorwheel::read_members(tree);
    members::read(tree, "deflection_mirror_origin", deflection_mirror_origin);
    members::read(tree, "deflection_mirror_direction", deflection_mirror_direction);
}

} // namespace scanlib
