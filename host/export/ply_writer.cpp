#include "ply_writer.hpp"

#include <limits>

namespace host {

namespace {

constexpr std::size_t point_bytes = 4 * sizeof(double) + 2 * sizeof(float) + 3;
constexpr std::size_t longest_count = std::numeric_limits<std::uint64_t>::digits10 + 1;

} // namespace

ply_writer::ply_writer(byte_output& to) : to_(to) {
    to_.append(ply_writer::head());
}

/// As long for every number of points: a comment takes what the number leaves.
std::string ply_writer::head() const {
    const std::string count = std::to_string(written_);
    return "ply\n"
           "format binary_little_endian 1.0\n"
           "comment rxp2k7 " RXP2K7_VERSION "\n"
           "comment x, y, z in m, in the scanner's own coordinates; gps_time in s\n"
           "comment amplitude and reflectance in dB\n"
           "comment " +
           std::string(longest_count - count.size() + 1, '.') +
           "\n"
           "element vertex " +
           count +
           "\n"
           "property double x\n"
           "property double y\n"
           "property double z\n"
           "property double gps_time\n"
           "property float amplitude\n"
           "property float reflectance\n"
           "property uchar channel\n"
           "property uchar return_number\n"
           "property uchar number_of_returns\n"
           "end_header\n";
}

void ply_writer::write(std::span<const exported_point> points) {
    for (const exported_point& p : points) {
        char* at = to_.room(point_bytes);
        for (const double value : {p.x, p.y, p.z, p.time}) {
            at = put_little(at, value);
        }
        at = put_little(at, p.amplitude);
        at = put_little(at, p.reflectance);
        for (const std::uint8_t value : {p.channel, p.return_number, p.returns}) {
            at = put_little(at, value);
        }
        to_.take(point_bytes);
    }
    written_ += points.size();
}

} // namespace host
