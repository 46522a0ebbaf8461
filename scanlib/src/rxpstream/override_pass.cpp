#include "override_pass.hpp"

#include <sstream>
#include <stdexcept>

#include "scanlib/packet_head.hpp"
#include "scanlib/packet_text.hpp"
#include "scanlib/packets.hpp"

namespace scanlib {

override_listener::~override_listener() = default;
void override_listener::region_begins() {}
void override_listener::verification_differs(std::size_t, std::size_t, const std::string&) {}
void override_listener::packet_differs(std::size_t, std::size_t, const std::string&) {}
void override_listener::verified(std::size_t) {}
void override_listener::replaced(std::size_t, const packet_words&, const packet_words&) {}
void override_listener::deleted(std::size_t, const packet_words&) {}
void override_listener::appended(std::size_t, const packet_words&) {}
bool override_listener::verification_failed(std::size_t, const std::string&) {
    return false;
}
bool override_listener::packet_failed(std::size_t, const std::string&) {
    return false;
}
void override_listener::region_ends(std::size_t) {}

} // namespace scanlib

namespace scanlib::detail {

namespace {

/// Numbers of the entries that ask for an id.
const std::vector<std::size_t>& entries_of(const override_text::index& by_id, std::uint32_t id) {
    static const std::vector<std::size_t> none;
    const auto found = by_id.find(id);
    return found == by_id.end() ? none : found->second;
}

/// A scan must not be passed off as that of another instrument.
void check_identity(std::span<const std::uint32_t> before, std::span<const std::uint32_t> after) {
    const packets::header old_header(before.data(), before.data() + before.size());
    const packets::header new_header(after.data(), after.data() + after.size());
    if (old_header.type_id().view() != new_header.type_id().view() ||
        old_header.serial().view() != new_header.serial().view()) {
        throw std::runtime_error("error: cannot modify serial number or instrument type");
    }
}

} // namespace

override_pass::override_pass(const override_text& text, override_listener* listener)
    : text_(text)
    , listener_(listener)
    , outstanding_(text.verification.size())
    , served_(text.packets.size(), false) {}

/// Whether the fields are what the condition asks for, up to the first that is not.
bool override_pass::agrees(const packet_condition& condition, const packet_words& packet,
                           std::size_t entry, mismatch tell) {
    for (const packet_condition::field& wanted : condition.fields) {
        if (!fields_) {
            fields_ = packet_fields(packet.id, packet.body.data(),
                                    packet.body.data() + packet.body.size());
        }
        if (wanted.index >= fields_->size()) {
            throw std::runtime_error("error: bad contentID in pxp file");
        }
        const std::string& found = (*fields_)[wanted.index];
        if (found != wanted.text) {
            if (listener_ != nullptr) {
                (listener_->*tell)(entry, wanted.index, found);
            }
            return false;
        }
    }
    return true;
}

void override_pass::verify(const packet_words& packet) {
    fields_.reset();
    for (const std::size_t entry : entries_of(text_.verification_by_id, packet.id.id)) {
        const packet_condition& condition = text_.verification[entry];
        if (!condition.matches(packet.id)) {
            continue;
        }
        try {
            if (agrees(condition, packet, entry, &override_listener::verification_differs)) {
                --outstanding_;
                if (listener_ != nullptr) {
                    listener_->verified(entry);
                }
            }
        } catch (const std::runtime_error& failure) {
            if (listener_ == nullptr || !listener_->verification_failed(entry, failure.what())) {
                throw;
            }
        }
        return;
    }
}

/// The first entry left that matches the packet.
std::optional<std::size_t> override_pass::entry_for(const packet_words& packet) {
    for (const std::size_t entry : entries_of(text_.packets_by_id, packet.id.id)) {
        const packet_condition& condition = text_.packets[entry].existing;
        if (served_[entry] || !condition.matches(packet.id)) {
            continue;
        }
        try {
            if (agrees(condition, packet, entry, &override_listener::packet_differs)) {
                return entry;
            }
        } catch (const std::runtime_error& failure) {
            if (!tolerated(entry, failure)) {
                throw;
            }
        }
    }
    return {};
}

override_pass::fate override_pass::apply(const packet_words& packet) {
    fields_.reset();
    const std::optional<std::size_t> entry = entry_for(packet);
    if (!entry) {
        return fate::keep;
    }
    served_[*entry] = true;
    try {
        return edit(*entry, packet);
    } catch (const std::runtime_error& failure) {
        if (!tolerated(*entry, failure)) {
            throw;
        }
        return fate::keep;
    }
}

override_pass::fate override_pass::edit(std::size_t entry, const packet_words& packet) {
    const packet_override& o = text_.packets[entry];
    if (!o.has_new_packet) {
        if (listener_ != nullptr) {
            listener_->deleted(entry, packet);
        }
        return fate::drop;
    }
    make_replacement(o);
    if (o.new_id == header_id) {
        if (packet.id != header_id) {
            throw std::runtime_error(
                "error: cannot replace arbitrary package with a header package");
        }
        check_identity(packet.body, replacement_);
    }
    if (listener_ != nullptr) {
        listener_->replaced(entry, packet, replacement());
    }
    return fate::replace;
}

void override_pass::make_replacement(const packet_override& entry) {
    if (index_of(entry.new_id) == packet_index::unknown) {
        throw std::runtime_error("error: unknown id for new packet in pxp file");
    }
    replacement_id_ = entry.new_id;
    std::istringstream line(entry.new_fields);
    if (!read_packet(line, entry.new_id, replacement_)) {
        throw std::runtime_error("override: content does not match packet id");
    }
}

void override_pass::append(const std::function<void(const packet_words&)>& write) {
    for (std::size_t entry = 0; entry < text_.packets.size(); ++entry) {
        const packet_override& o = text_.packets[entry];
        if (served_[entry] || !o.has_new_packet) {
            continue;
        }
        try {
            if (o.new_id == header_id) {
                throw std::runtime_error("error: cannot append a new header packet");
            }
            make_replacement(o);
        } catch (const std::runtime_error& failure) {
            if (!tolerated(entry, failure)) {
                throw;
            }
            continue;
        }
        if (listener_ != nullptr) {
            listener_->appended(entry, replacement());
        }
        write(replacement());
    }
}

/// Whether the listener wants to go on without an entry that fails, which then serves no more.
bool override_pass::tolerated(std::size_t entry, const std::exception& failure) {
    if (listener_ == nullptr || !listener_->packet_failed(entry, failure.what())) {
        return false;
    }
    served_[entry] = true;
    return true;
}

} // namespace scanlib::detail
