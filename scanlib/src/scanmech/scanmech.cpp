#include "scanlib/scanmech.hpp"

#include "scanlib/mirrorwheel.hpp"

#include <cmath>
#include <numbers>
#include <stdexcept>

namespace scanlib {

namespace {

constexpr double pi = std::numbers::pi;

/// Angle of one count; a circle without counts gives 0.
double angle_unit(std::uint32_t circle_count) {
    return circle_count == 0 ? 0.0 : 2 * pi / circle_count;
}

/// The word under which a class stands in JSON.
const char* word_of(std::uint32_t kind) {
    switch (kind) {
    case 1:
        return "mirrorwheel";
    default:
        return "unknown";
    }
}

} // namespace

void half_angle_sine_cosine(double angle, double& sine, double& cosine) noexcept {
    if (angle == 0) {
        sine = 0;
        cosine = 1;
        return;
    }
    // Half the angle stays clear of the poles of the tangent by turning to the supplement around
    // pi.
    const bool near_zero = angle < pi / 2 || angle > 3 * pi / 2;
    const double t = std::tan((near_zero ? angle : pi - angle) / 2);
    const double tt = t * t;
    sine = 2 * t / (1 + tt);
    cosine = (near_zero ? 1 - tt : tt - 1) / (1 + tt);
}

scanmech::scanmech(vector3* beam_origin_out, vector3* beam_direction_out)
    : beam_origin_out_(beam_origin_out), beam_direction_out_(beam_direction_out) {
    *beam_origin_out_ = {};
    *beam_direction_out_ = {};
}

scanmech::~scanmech() = default;

std::uint32_t scanmech::kind() const {
    return 0;
}

std::uint32_t scanmech::facet_count() const {
    return 0;
}

void scanmech::initialise() {
    line_unit_ = angle_unit(line_circle_count);
    frame_unit_ = angle_unit(frame_circle_count);
}

void scanmech::set_counts(std::uint32_t line, std::uint32_t frame, std::uint32_t segment) {
    line_angle = line * line_unit_;
    frame_angle = frame * frame_unit_;
    facet = segment;
    set_angles(facet, line_angle, frame_angle);
}

void scanmech::set_angles(std::uint32_t /*facet_index*/, double line, double frame) {
    turn(line, frame);
    *beam_origin_out_ = {};
    *beam_direction_out_ = {sin_line_ * cos_frame_, sin_line_ * sin_frame_, cos_line_};
}

void scanmech::position(vector3& out, double range) const {
    out = range * *beam_direction_out_ + *beam_origin_out_;
}

void scanmech::write(json_writer& out) const {
    out.begin_object().member("kind", std::string_view(word_of(kind())));
    write_members(out);
    out.end_object();
}

void scanmech::write_members(json_writer& out) const {
    out.member("range_unit", range_unit)
        .member("line_circle_count", line_circle_count)
        .member("frame_circle_count", frame_circle_count);
}

std::unique_ptr<scanmech> scanmech::create(std::uint32_t kind, vector3* beam_origin_out,
                                           vector3* beam_direction_out) {
    switch (kind) {
    case 1:
        return std::make_unique<mirrorwheel>(beam_origin_out, beam_direction_out);
    default:
        throw std::runtime_error("scanmech::create: unknown kind");
    }
}

} // namespace scanlib
