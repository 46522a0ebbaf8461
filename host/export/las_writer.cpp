#include "las_writer.hpp"

#include "scanlib/saturate.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>

namespace host {

namespace {

constexpr std::uint16_t header_bytes = 375;
constexpr std::size_t record_head_bytes = 54;
constexpr std::uint32_t records = 2;
constexpr std::size_t descriptor_bytes = 192;
constexpr std::size_t point_bytes = 34;
constexpr std::uint8_t point_format = 6;

// Of the global encoding: times are seconds of a week, and coordinates are told as a text.
constexpr std::uint16_t adjusted_standard_time = 0;
constexpr std::uint16_t well_known_text = 1U << 4U;

// 32767 ends the numbers of local datums: none in particular.
constexpr std::string_view coordinates =
    "LOCAL_CS[\"Scanner's own coordinates\",LOCAL_DATUM[\"Scanner\",32767],"
    "UNIT[\"metre\",1],AXIS[\"X\",OTHER],AXIS[\"Y\",OTHER],AXIS[\"Z\",OTHER]]";
constexpr std::size_t coordinates_bytes = coordinates.size() + 1;

constexpr std::size_t front_bytes =
    header_bytes + 2 * record_head_bytes + coordinates_bytes + descriptor_bytes;

void add_record(field_bytes& to, std::string_view user, std::uint16_t id, std::size_t size,
                std::string_view description) {
    to.zeros(2).text(user, 16).number(id).number(static_cast<std::uint16_t>(size));
    to.text(description, 32);
}

void add_records(field_bytes& to) {
    add_record(to, "LASF_Projection", 2112, coordinates_bytes, "coordinate system");
    to.text(coordinates, coordinates_bytes);
    add_record(to, "LASF_Spec", 4, descriptor_bytes, "extra bytes");
    constexpr std::uint8_t float_type = 9;
    to.zeros(2).number(float_type).zeros(1).text("Reflectance", 32);
    to.zeros(4 + 5 * 24).text("dB, NaN where it is not told", 32); // no bounds, no scale
}

/// The name of the system: plain characters alone.
std::string system_of(std::string instrument) {
    std::replace_if(
        instrument.begin(), instrument.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return instrument.empty() ? "OTHER" : instrument;
}

} // namespace

las_writer::las_writer(byte_output& to, std::string instrument)
    : to_(to), instrument_(system_of(std::move(instrument))) {
    to_.append(las_writer::head());
}

/// What stands before the points.
std::string las_writer::head() const {
    field_bytes to;
    to.text("LASF", 4).zeros(2).number<std::uint16_t>(adjusted_standard_time | well_known_text);
    to.zeros(16).number(std::uint8_t{1}).number(std::uint8_t{4});
    to.text(instrument_, 32).text("rxp2k7 " RXP2K7_VERSION, 32);
    to.zeros(4); // the day of writing: equal input gives equal files
    to.number(header_bytes).number(static_cast<std::uint32_t>(front_bytes)).number(records);
    to.number(point_format).number(static_cast<std::uint16_t>(point_bytes));
    to.zeros(6 * sizeof(std::uint32_t)); // counts of older versions
    to.number(scale).number(scale).number(scale);
    for (const double offset : offset_) {
        to.number(offset);
    }
    for (std::size_t i = 0; i < offset_.size(); ++i) {
        to.number(greatest_[i] * scale + offset_[i]).number(least_[i] * scale + offset_[i]);
    }
    to.zeros(2 * sizeof(std::uint64_t) + sizeof(std::uint32_t)); // no waveforms, nothing behind
    to.number(written_);
    for (const std::uint64_t count : by_return_) {
        to.number(count);
    }
    add_records(to);
    return to.bytes();
}

/// False for a place that cannot be stored.
bool las_writer::quantise(const exported_point& p, steps& to) const {
    constexpr double most = std::numeric_limits<std::int32_t>::max();
    const std::array<double, 3> place{p.x, p.y, p.z};
    for (std::size_t i = 0; i < place.size(); ++i) {
        const double step = std::nearbyint((place[i] - offset_[i]) / scale);
        if (!(std::abs(step) <= most)) {
            return false;
        }
        to[i] = static_cast<std::int32_t>(step);
    }
    return true;
}

void las_writer::write_point(const exported_point& p, const steps& place) {
    const auto number = std::min(p.return_number, most_returns);
    const auto returns = std::min(p.returns, most_returns);
    char* at = to_.room(point_bytes);
    for (const std::int32_t step : place) {
        at = put_little(at, step);
    }
    at = put_little(at, scanlib::saturate<std::uint16_t>(
                            std::round(intensity_per_decibel * double{p.amplitude})));
    at = put_little(at, static_cast<std::uint8_t>(number | (returns << 4U)));
    at = put_little(at, std::uint16_t{0}); // flags; never classified
    at = put_little(at, p.channel);        // the user's byte
    at = put_little(at, std::uint32_t{0}); // angle and source are not told
    at = put_little(at, p.time);
    put_little(at, p.reflectance);
    to_.take(point_bytes);
    ++by_return_[number - 1U];
}

/// Takes the offset from the point, unless it lies beyond all places of this world.
void las_writer::choose_offset(const exported_point& p) {
    constexpr double kilometre = 1000;
    constexpr double farthest = 1e8;
    if (std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)}) > farthest) {
        return;
    }
    has_offset_ = true;
    for (std::size_t i = 0; const double value : {p.x, p.y, p.z}) {
        offset_[i++] = std::round(value / kilometre) * kilometre;
    }
}

void las_writer::write(std::span<const exported_point> points) {
    for (const exported_point& p : points) {
        if (!has_offset_) {
            choose_offset(p);
        }
        steps place{};
        if (!has_offset_ || !quantise(p, place)) {
            ++left_out_;
            continue;
        }
        write_point(p, place);
        for (std::size_t i = 0; i < place.size(); ++i) {
            least_[i] = written_ == 0 ? place[i] : std::min(least_[i], place[i]);
            greatest_[i] = written_ == 0 ? place[i] : std::max(greatest_[i], place[i]);
        }
        ++written_;
    }
}

} // namespace host
