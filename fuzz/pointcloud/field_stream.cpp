#include "field_stream.hpp"

#include "scanlib/packet_record.hpp"
#include "scanlib/pointcloud/valid_streams.hpp"

#include <algorithm>
#include <bit>
#include <iterator>
#include <limits>
#include <string_view>
#include <utility>

namespace fuzzing {

namespace {

using scanlib::field_layout;
using scanlib::field_type;
using scanlib::packet_layout;

/// Bounds that keep one run short.
constexpr std::size_t most_packets = 400;
constexpr std::size_t most_elements = 2200;

/// The kinds that a point cloud or its base listens to.
constexpr std::string_view kind_names[] = {
    "header",
    "header_device",
    "rxp_parameters",
    "units",
    "units_1",
    "units_2",
    "units_3",
    "units_4",
    "device_geometry",
    "device_geometry_1",
    "device_geometry_2",
    "device_geometry_3",
    "device_geometry_4",
    "device_geometry_5",
    "device_geometry_6",
    "device_geometry_7",
    "device_geometry_7N",
    "device_geometry_7D",
    "device_geometry_laser_direction",
    "biaxial_geometry",
    "scan_segments_fov",
    "pps_sync",
    "pps_sync_hr",
    "laser_shot",
    "laser_shot_1angle",
    "laser_shot_2angles",
    "laser_shot_2angles_rad",
    "laser_shot_6angles",
    "laser_shot_2angles_hr",
    "laser_shot_utctime_origin_direction",
    "counter_sync",
    "counter_sync_2angles_hr",
    "pwm_sync",
    "echo",
    "echo_1",
    "laser_echo",
    "laser_echo_qual",
    "laser_echo_sw",
    "echo_gap_data",
    "channeled_shot_echoes",
    "line_start_segment_1",
    "line_start_segment_2",
    "line_start_segment_3",
    "line_start_segment_4",
    "line_start_segment_5",
    "line_stop",
    "frame_stop",
    "meas_start",
    "meas_stop",
    "nrange_table",
    "reftab_table",
    "arange_table",
    "atmosphere_4",
    "mta_settings",
    "mta_settings_1",
    "mta_settings_2",
    "mta_settings_3",
    "m_sequence_mta",
    "pulse_position_modulation",
    "pulse_position_modulation_1",
    "dyntrig",
    "dyntrig_pre",
    "dyntrig_post",
    "notch_filter",
    "notch_filter_modification_parameters",
    "calib_table",
    "calib_2D_table",
    "range_finder_debug_laser",
    "range_finder_settings",
    "range_finder_program_2",
    "crc32_header",
    "crc32_check",
    "packed_key_laser_shot_2angles",
    "packed_key_laser_shot_2angles_rad",
    "packed_key_laser_shot_2angles_hr",
    "packed_key_laser_shot_2angles_hr_mta",
    "packed_frame_laser_shot_2angles",
    "packed_frame_laser_shot_2angles_rad",
    "packed_frame_laser_shot_2angles_hr",
    "packed_key_echo",
    "packed_key_echo_hr",
    "packed_key_echo_hr_1",
    "packed_frame_echo",
    "packed_frame_echo_hr",
    "packed_frame_echo_hr_1",
    "packed_shot_echos_hr",
    "packed_shot_echos_sbl_hr",
};
constexpr std::size_t kind_count = std::size(kind_names);

const packet_layout& layout_of_kind(std::size_t kind) {
    static const auto layouts = [] {
        std::vector<const packet_layout*> all;
        for (const std::string_view name : kind_names) {
            all.push_back(&scanlib::layout_of(
                scanlib::index_of(scanlib::id_of(name).value_or(scanlib::packet_id{}))));
        }
        return all;
    }();
    return *layouts[kind];
}

/// Bits that one element takes; a part that the catalogue leaves open counts in words.
std::size_t element_bits(const packet_layout& layout) {
    return layout.is_variable ? 32 : layout.element_bits;
}

std::size_t words_for(const packet_layout& layout, std::size_t elements) {
    return (layout.fixed_bits + elements * element_bits(layout) + 31) / 32;
}

void resize(field_packet& packet, std::size_t elements) {
    const packet_layout& layout = layout_of(packet);
    packet.elements = element_bits(layout) == 0 ? 0 : std::min(elements, most_elements);
    packet.payload.resize(words_for(layout, packet.elements));
}

field_packet packet_of(const scanlib::testing::stream_packet& from) {
    field_packet packet;
    const packet_layout& wanted = scanlib::layout_of(scanlib::index_of(from.id));
    for (std::size_t kind = 0; kind < kind_count; ++kind) {
        if (&layout_of_kind(kind) == &wanted) {
            packet.kind = kind;
        }
    }
    const std::size_t bits = from.payload.size() * 32;
    const packet_layout& layout = layout_of(packet);
    resize(packet, element_bits(layout) == 0 || bits < layout.fixed_bits
                       ? 0
                       : (bits - layout.fixed_bits) / element_bits(layout));
    std::copy_n(from.payload.begin(), std::min(from.payload.size(), packet.payload.size()),
                packet.payload.begin());
    return packet;
}

std::uint64_t odd_float(dice& d) {
    constexpr float values[] = {std::numeric_limits<float>::quiet_NaN(),
                                std::numeric_limits<float>::infinity(),
                                -std::numeric_limits<float>::infinity(),
                                0.0F,
                                -0.0F,
                                1.0F,
                                -1.0F,
                                0.5F,
                                100.0F,
                                0.001F,
                                -0.001F,
                                1e-07F,
                                1e-45F,
                                3e8F,
                                1e30F,
                                -1e30F,
                                3.4028235e38F};
    return std::bit_cast<std::uint32_t>(values[d.below(std::size(values))]);
}

std::uint64_t odd_value(const field_layout& field, dice& d) {
    if (field.type == field_type::floating && !d.once_in(8)) {
        const std::uint64_t single = odd_float(d);
        return field.width == 32 ? single
                                 : std::bit_cast<std::uint64_t>(static_cast<double>(
                                       std::bit_cast<float>(static_cast<std::uint32_t>(single))));
    }
    const std::uint64_t all =
        field.width >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << field.width) - 1;
    switch (d.below(8)) {
    case 0:
        return 0;
    case 1:
        return all;
    case 2:
        return all >> 1;
    case 3:
        return (all >> 1) + 1;
    case 4:
        return std::uint64_t{1} << d.below(field.width);
    case 5:
        return d.below(16);
    default:
        return d.roll();
    }
}

/// Sets or shifts the field of a packet, or one entry of it.
void change_field(field_packet& packet, const field_layout& field, std::size_t base, dice& d) {
    const std::size_t bit = base + field.bit + field.width * d.below(field.count);
    if (field.width == 0 || field.width > 64 || bit + field.width > packet.payload.size() * 32) {
        return;
    }
    std::uint64_t value = odd_value(field, d);
    if (field.type != field_type::floating && d.once_in(2)) {
        // Near what it was: times and ranges that follow each other stay in step.
        value = scanlib::packets::detail::extract_bits(packet.payload.data(), bit, field.width) +
                d.below(2000) - 1000;
    }
    scanlib::packets::detail::insert_bits(packet.payload.data(), bit, field.width, value);
}

void change_a_field(field_packet& packet, dice& d) {
    const packet_layout& layout = layout_of(packet);
    if (!layout.fields.empty() && (packet.elements == 0 || d.once_in(2))) {
        change_field(packet, layout.fields[d.below(layout.fields.size())], 0, d);
        return;
    }
    if (packet.elements == 0) {
        return;
    }
    const std::size_t bits = element_bits(layout);
    const std::size_t base = layout.fixed_bits + bits * d.below(packet.elements);
    if (!layout.element_fields.empty()) {
        change_field(packet, layout.element_fields[d.below(layout.element_fields.size())], base, d);
        return;
    }
    const bool real = layout.is_variable || layout.name.starts_with("dyntrig") ||
                      layout.name.starts_with("pulse_position");
    change_field(packet,
                 {"", real ? field_type::floating : field_type::unsigned_integer, 0,
                  static_cast<std::uint32_t>(bits), 0, true},
                 base, d);
}

/// Puts a piece of JSON over a part of a text.
void change_text(field_packet& packet, dice& d) {
    constexpr std::string_view pieces[] = {"{",
                                           "}",
                                           "[",
                                           "]",
                                           "\"\"",
                                           ",",
                                           ":",
                                           "1e999",
                                           "-1e-320",
                                           "nan",
                                           "\"nan\"",
                                           "\"inf\"",
                                           "99999999999999999999",
                                           "\"kind\":\"wedge\",",
                                           "\"kind\":\"mirrorwheel_fanbeam\",",
                                           "\"facets\":[],",
                                           "\"nodes\":[],",
                                           "\\u0000",
                                           "[[[[[[[[",
                                           "4294967296"};
    const std::string_view piece = pieces[d.below(std::size(pieces))];
    const std::size_t at = d.below(packet.elements);
    for (std::size_t i = 0; i < piece.size() && at + i < packet.elements; ++i) {
        scanlib::packets::detail::insert_bits(packet.payload.data(), 32 + 8 * (at + i), 8,
                                              static_cast<unsigned char>(piece[i]));
    }
}

void change_count(field_packet& packet, dice& d) {
    const std::size_t limit = layout_of(packet).limit;
    const std::size_t counts[] = {0,
                                  1,
                                  2,
                                  4,
                                  limit,
                                  limit + 1,
                                  packet.elements + 1,
                                  packet.elements - std::min<std::size_t>(packet.elements, 1),
                                  packet.elements * 2,
                                  d.below(300)};
    resize(packet, counts[d.below(std::size(counts))]);
}

void insert(field_stream& stream, field_packet packet, dice& d) {
    if (stream.packets.size() < most_packets) {
        const std::size_t at = d.below(stream.packets.size() + 1);
        stream.packets.insert(stream.packets.begin() + static_cast<std::ptrdiff_t>(at),
                              std::move(packet));
    }
}

/// A packet of any kind, taken from a valid stream where one has it.
field_packet new_packet(dice& d) {
    field_packet packet;
    packet.kind = d.below(kind_count);
    resize(packet, d.below(12));
    const field_stream from = valid_stream(d.below(std::size(scanlib::testing::valid_streams)));
    for (const field_packet& p : from.packets) {
        if (p.kind == packet.kind) {
            return p;
        }
    }
    return packet;
}

} // namespace

const packet_layout& layout_of(const field_packet& packet) {
    return layout_of_kind(packet.kind);
}

field_stream valid_stream(std::size_t n) {
    static const auto streams = [] {
        std::vector<field_stream> all;
        for (const auto& s : scanlib::testing::valid_streams) {
            field_stream stream;
            for (const auto& packet : s.make()) {
                stream.packets.push_back(packet_of(packet));
            }
            all.push_back(std::move(stream));
        }
        return all;
    }();
    return streams[n % streams.size()];
}

field_stream read(std::span<const std::uint8_t> bytes) {
    field_stream stream;
    const auto take = [&]() -> std::uint8_t {
        if (bytes.empty()) {
            return 0;
        }
        const std::uint8_t b = bytes.front();
        bytes = bytes.subspan(1);
        return b;
    };
    stream.options = take();
    while (!bytes.empty() && stream.packets.size() < most_packets) {
        field_packet packet;
        packet.kind = take() % kind_count;
        const std::size_t low = take();
        resize(packet, low | static_cast<std::size_t>(take()) << 8);
        for (std::uint32_t& word : packet.payload) {
            for (unsigned shift = 0; shift < 32; shift += 8) {
                word |= std::uint32_t{take()} << shift;
            }
        }
        stream.packets.push_back(std::move(packet));
    }
    return stream;
}

std::vector<std::uint8_t> write(const field_stream& stream) {
    std::vector<std::uint8_t> bytes{stream.options};
    for (const field_packet& packet : stream.packets) {
        bytes.push_back(static_cast<std::uint8_t>(packet.kind));
        bytes.push_back(static_cast<std::uint8_t>(packet.elements));
        bytes.push_back(static_cast<std::uint8_t>(packet.elements >> 8));
        for (const std::uint32_t word : packet.payload) {
            for (unsigned shift = 0; shift < 32; shift += 8) {
                bytes.push_back(static_cast<std::uint8_t>(word >> shift));
            }
        }
    }
    return bytes;
}

void change(field_stream& stream, dice& d) {
    if (stream.packets.empty()) {
        stream = valid_stream(d.below(std::size(scanlib::testing::valid_streams)));
    }
    const std::size_t at = d.below(stream.packets.size());
    field_packet& packet = stream.packets[at];
    switch (d.below(16)) {
    case 0:
        change_count(packet, d);
        break;
    case 1:
        insert(stream, new_packet(d), d);
        break;
    case 2:
        insert(stream, field_packet(packet), d);
        break;
    case 3:
        stream.packets.erase(stream.packets.begin() + static_cast<std::ptrdiff_t>(at));
        break;
    case 4:
        std::swap(packet, stream.packets[d.below(stream.packets.size())]);
        break;
    case 5:
        stream.options = static_cast<std::uint8_t>(d.roll());
        break;
    default:
        if (layout_of(packet).is_text && packet.elements != 0) {
            change_text(packet, d);
        } else {
            change_a_field(packet, d);
        }
    }
}

} // namespace fuzzing
