// The state that a text stream keeps, and the pair at the beginning of a line.
#include <cctype>
#include <istream>
#include <ostream>

#include "packet_text_reading.hpp"
#include "scanlib/packet_text.hpp"

namespace scanlib {

namespace {

const int numeric_slot = std::ios_base::xalloc();
const int id_slot = std::ios_base::xalloc();
const int version_slot = std::ios_base::xalloc();
const int declared_unknown_slot = std::ios_base::xalloc();

constexpr long numeric_bit = 1;

/// Longer than any name of the catalogue.
constexpr std::size_t longest_name = 64;

void remember(std::ios_base& stream, packet_id id) {
    stream.iword(id_slot) = static_cast<long>(id.id);
    stream.iword(version_slot) = static_cast<long>(id.version);
}

std::string read_name(std::istream& in) {
    std::string name;
    in >> std::ws;
    for (int c = in.peek(); in.good() && std::isspace(c) == 0; c = in.peek()) {
        if (name.size() == longest_name) {
            in.setstate(std::ios_base::failbit);
            break;
        }
        name += static_cast<char>(in.get());
    }
    return name;
}

packet_id read_numbers(std::istream& in, char between) {
    packet_id id;
    id.id = static_cast<std::uint32_t>(detail::read_integer(in, 32, false));
    detail::expect(in, between);
    id.version = static_cast<std::uint32_t>(detail::read_integer(in, 32, false));
    return id;
}

} // namespace

std::ios_base& numeric_packets(std::ios_base& stream) {
    stream.iword(numeric_slot) |= numeric_bit;
    return stream;
}

std::ios_base& named_packets(std::ios_base& stream) {
    stream.iword(numeric_slot) &= ~numeric_bit;
    return stream;
}

bool has_numeric_packets(std::ios_base& stream) {
    return (stream.iword(numeric_slot) & numeric_bit) != 0;
}

packet_id last_packet(std::ios_base& stream) {
    return {static_cast<std::uint32_t>(stream.iword(id_slot)),
            static_cast<std::uint32_t>(stream.iword(version_slot))};
}

bool last_packet_declared_unknown(std::ios_base& stream) {
    return stream.iword(declared_unknown_slot) != 0;
}

std::ostream& operator<<(std::ostream& out, packet_id id) {
    const std::ios_base::fmtflags flags = out.flags();
    out.setf(std::ios_base::dec, std::ios_base::basefield);
    if (has_numeric_packets(out)) {
        out << id.id << ", " << id.version;
    } else {
        out << layout_of(index_of(id)).name << " (" << id.id << '.' << id.version << ')';
    }
    out.flags(flags);
    remember(out, id);
    return out;
}

std::istream& operator>>(std::istream& in, packet_id& id) {
    constexpr std::string_view declared_unknown = "unknown";
    const bool numeric = has_numeric_packets(in);
    std::string name;
    packet_id read;
    if (numeric) {
        read = read_numbers(in, ',');
    } else {
        name = read_name(in);
        detail::expect(in, '(');
        read = read_numbers(in, '.');
        detail::expect(in, ')');
    }
    if (in.fail()) {
        return in;
    }
    const bool matches = numeric || name == layout_of(index_of(read)).name;
    if (!matches && name != declared_unknown) {
        in.setstate(std::ios_base::failbit);
        return in;
    }
    remember(in, read);
    in.iword(declared_unknown_slot) = matches ? 0 : 1;
    id = matches ? read : packet_id{};
    return in;
}

} // namespace scanlib
