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

/// One attempt of a version that the catalogue knows.
inline void basic_packets::known_attempt(packet_index n, const packet_head& head,
                                         std::uint32_t version) {
    if (n == packet_index::void_data) [[unlikely]] {
        continue_chain = false;
    }
    if (!selection.test(n)) [[unlikely]] {
        return;
    }
    current = {head.id, version};
    on_packet(current, head);
    if (words_between(head.payload, head.end) < detail::fixed_words[static_cast<std::size_t>(n)])
        [[unlikely]] {
        deliver_short(n, head.payload, head.end);
    } else {
        deliver(n, head.payload, head.end);
    }
}

bool basic_packets::dispatch(const std::uint32_t* begin, const std::uint32_t* end) {
    if (begin == end) {
        return stop_request;
    }
    const packet_head head = read_head(begin, end, short_codes_);
    const detail::packet_family& family = detail::family_of(head.id);
    ++packet_count;
    continue_chain = true;
    const std::uint32_t above = family.base + family.count; // the versions that are known end here
    std::uint32_t version = head.version;
    bool walk = selection.test(packet_index::unknown);
    if (family.count == 0 || version < family.base || version >= above) [[unlikely]] {
        note_loss(loss::unknown_packet);
        if (!unknown_attempts(head, version, version >= above ? above : 0, walk) ||
            family.count == 0 || version < family.base) {
            return stop_request;
        }
        version = above - 1;
    }
    // Known versions stand side by side.
    const std::uint16_t* const first = &detail::chain[family.first];
    const std::uint16_t* member = first + (version - family.base);
    while (true) {
        known_attempt(static_cast<packet_index>(*member), head, version);
        if (!continue_chain || version == 0) {
            return stop_request;
        }
        --version;
        if (member == first) [[unlikely]] {
            unknown_attempts(head, version, 0, walk);
            return stop_request;
        }
        --member;
    }
}

/// Attempts of the unknown versions from `version` down to `lowest`, as long as `walk` tells that
/// somebody wants to hear of them. False when the chain ends here.
bool basic_packets::unknown_attempts(const packet_head& head, std::uint32_t version,
                                     std::uint32_t lowest, bool& walk) {
    while (walk) {
        current = {head.id, version};
        walk = unknown_attempt(head);
        if (!continue_chain) {
            return false;
        }
        if (version == lowest) {
            break;
        }
        --version;
    }
    return true;
}

} // namespace scanlib
