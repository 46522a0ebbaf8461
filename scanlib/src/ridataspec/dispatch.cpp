#include <array>
#include <stdexcept>

#include "packet_lookup.hpp"
#include "scanlib/basic_packets.hpp"

namespace scanlib {

namespace {

constexpr const char* source_name = "scanlib/src/ridataspec/dispatch";

std::size_t words_between(const std::uint32_t* begin, const std::uint32_t* end) {
    return static_cast<std::size_t>(end - begin);
}

} // namespace

packet_error::packet_error(packet_id id, const std::string& message, const std::string& source,
                           int line)
    : scanlib_exception(name_of(id) + ": " + message, source, line) {}

basic_packets::basic_packets() : selection(mask_of("all")) {}

basic_packets::~basic_packets() = default;

unknown_walk basic_packets::on_packet(packet_id, const packet_head&) {
    return unknown_walk::enough;
}

unknown_walk basic_packets::on_unknown(std::uint32_t, std::uint32_t, const std::uint32_t*,
                                       const std::uint32_t*) {
    return unknown_walk::enough;
}

inline void basic_packets::check_sequence(std::uint32_t fixed_bits, bool is_text,
                                          const std::uint32_t* payload, const std::uint32_t* end) {
    const std::size_t needed = fixed_bits + (is_text ? 8u : 0u);
    if (words_between(payload, end) * 32 < needed) [[unlikely]] {
        note_loss(loss::short_sequence);
        throw std::range_error(is_text ? "Buffer too small for utf8seq."
                                       : "Missing data for sequence.");
    }
}

void basic_packets::check_sequence_size(std::uint32_t fixed_bits, std::uint32_t element_bits,
                                        std::uint32_t limit, std::size_t count,
                                        const std::uint32_t* payload,
                                        const std::uint32_t* end) const {
    // The end follows from the highest index, which an empty sequence does not have: it fails here.
    const std::uint64_t highest = static_cast<std::uint32_t>(count) - 1u;
    const std::uint64_t needed_words = (fixed_bits + (highest + 1) * element_bits + 31) / 32;
    if (needed_words > words_between(payload, end)) {
        throw packet_error(current, "missing packet data", source_name, __LINE__);
    }
    if (limit != 0 && count > limit) {
        throw packet_error(current, "sequence too long " + std::to_string(count), source_name,
                           __LINE__);
    }
}

#include "scanlib/deliver.inc"

void basic_packets::deliver_short(packet_index n, const std::uint32_t* payload,
                                  const std::uint32_t* end) {
    if (check_sizes) {
        throw packet_error(current, "missing packet data", source_name, __LINE__);
    }
    note_loss(loss::short_payload);
    std::array<std::uint32_t, longest_fixed_payload> padded{};
    std::copy(payload, end, padded.begin());
    deliver(n, padded.data(), padded.data() + detail::fixed_words[static_cast<std::size_t>(n)]);
}

/// One attempt of a version that the catalogue does not know. False when nobody wants to hear of
/// further ones.
bool basic_packets::unknown_attempt(const packet_head& head) {
    const unknown_walk packet_wish = on_packet(current, head);
    const unknown_walk wish = on_unknown(head.id, head.version, head.payload, head.end);
    return packet_wish == unknown_walk::more || wish == unknown_walk::more;
}

bool basic_packets::dispatch(const std::uint32_t* begin, const std::uint32_t* end) {
    if (begin == end) {
        return stop_request;
    }
    const packet_head head = read_head(begin, end, short_codes_);
    const detail::packet_family& family = detail::family_of(head.id);
    const std::size_t payload_words = words_between(head.payload, head.end);
    ++packet_count;
    continue_chain = true;
    bool walk_unknown = selection.test(packet_index::unknown);
    if (detail::member_of(family, head.version) == packet_index::unknown) {
        note_loss(loss::unknown_packet);
    }
    std::uint32_t version = head.version;
    while (true) {
        const packet_index n = detail::member_of(family, version);
        if (n == packet_index::unknown) {
            if (walk_unknown) {
                current = {head.id, version};
                walk_unknown = unknown_attempt(head);
            }
            if (!walk_unknown) {
                // Nobody hears of the versions between here and the newest known one below, if
                // there is one.
                if (family.count == 0 || version < family.base) {
                    return stop_request;
                }
                version = family.base + family.count;
            }
        } else {
            if (n == packet_index::void_data) {
                continue_chain = false;
                if (!selection.test(n)) {
                    return stop_request;
                }
            }
            if (selection.test(n)) {
                current = {head.id, version};
                on_packet(current, head);
                if (payload_words < detail::fixed_words[static_cast<std::size_t>(n)]) [[unlikely]] {
                    deliver_short(n, head.payload, head.end);
                } else {
                    deliver(n, head.payload, head.end);
                }
            }
        }
        if (!continue_chain || version == 0) {
            return stop_request;
        }
        --version;
    }
}

} // namespace scanlib
