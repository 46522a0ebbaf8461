#include "scanlib/mirrorwheel_biaxial.hpp"

#include "scanlib/json_members.hpp"

#include <cmath>

namespace scanlib {

mirrorwheel_biaxial::mirrorwheel_biaxial(vector3* beam_origin_out, vector3* beam_direction_out)
    : mirrorwheel(beam_origin_out, beam_direction_out) {}

mirrorwheel_biaxial::mirrorwheel_biaxial(const mirrorwheel& wheel) : mirrorwheel(wheel) {}

std::uint32_t mirrorwheel_biaxial::kind() const {
    return kind_mirrorwheel_biaxial;
}

void mirrorwheel_biaxial::initialise() {
    mirrorwheel::initialise();
    shifts_.clear();
    max_range_ = 0;
    step_ = 0;
    if (biaxial_shift.empty()) {
        return;
    }
    max_range_ = biaxial_shift.back().range;
    step_ = max_range_ / 1000.0;

    shifts_.reserve(entries);
    biaxial_node from{0, biaxial_shift.front().shift};
    std::size_t next = 0;
    const auto to = [&] {
        return next < biaxial_shift.size() ? biaxial_shift[next]
                                           : biaxial_node{from.range + 1.0, 0};
    };
    for (std::size_t i = 0; i < entries; ++i) {
        const double range = static_cast<double>(i) * step_;
        while (next < biaxial_shift.size() && range > biaxial_shift[next].range) {
            from = biaxial_shift[next++];
        }
        const double way = to().range - from.range;
        const double f = way > 0 ? (range - from.range) / way : 1;
        shifts_.push_back((1 - f) * from.shift + f * to().shift);
    }
}

void mirrorwheel_biaxial::set_angles(std::uint32_t facet_index, double line, double frame) {
    mirrorwheel::set_angles(facet_index, line, frame);
    const vector3& n = rotated_normal_;
    const double c = -2 * dot(n, aperture_direction);
    shift_direction_ =
        turned_about_z(aperture_direction + c * n, frame_turn_.sine, frame_turn_.cosine);
}

double mirrorwheel_biaxial::shift_at(double range) const noexcept {
    const double i = std::floor(range / step_);
    if (!(i + 1 < static_cast<double>(shifts_.size()))) {
        return 0;
    }
    // The remainder is exact as fmod gives it: where the quotient was rounded up, it comes out
    // negative and takes the last step back.
    double rest = std::fma(-i, step_, range);
    if (rest < 0) {
        rest += step_;
    }
    const double f = rest / step_;
    const double* entry = shifts_.data() + static_cast<std::size_t>(i);
    return (1 - f) * entry[0] + f * entry[1];
}

void mirrorwheel_biaxial::position(vector3& out, double range) const {
    mirrorwheel::position(out, range);
    if (range > 0 && range < max_range_) {
        out = out + shift_at(range) * shift_direction_;
    }
}

void mirrorwheel_biaxial::write_members(json_writer& out) const {
    mirrorwheel::write_members(out);
    out.array("aperture_direction", aperture_direction).key("biaxial_shift").begin_array();
    for (const biaxial_node& node : biaxial_shift) {
        out.begin_object().member("range", node.range).member("shift", node.shift).end_object();
    }
    out.end_array();
}

void mirrorwheel_biaxial::read_members(const boost::property_tree::ptree& tree) {
    mirrorwheel::read_members(tree);
    members::read(tree, "aperture_direction", aperture_direction);
    members::read_list(tree, "biaxial_shift", biaxial_shift, [](const members::ptree& element) {
        biaxial_node node;
        members::require(element, "range", node.range);
        members::require(element, "shift", node.shift);
        return node;
    });
}

} // namespace scanlib
