#include "override_findings.hpp"

#include "scanlib/packet_text.hpp"

#include <algorithm>
#include <sstream>

namespace host {

namespace {

std::vector<std::string> fields_of(const scanlib::packet_words& packet) {
    return scanlib::packet_fields(packet.id, packet.body.data(),
                                  packet.body.data() + packet.body.size());
}

/// The fields that differ; of packets of different kinds all of them.
std::vector<field_change> changes_between(const scanlib::packet_words& before,
                                          const scanlib::packet_words& after) {
    const std::vector<std::string> old_fields = fields_of(before);
    const std::vector<std::string> new_fields = fields_of(after);
    const auto at = [](const std::vector<std::string>& fields, std::size_t i) {
        return i < fields.size() ? fields[i] : std::string();
    };
    std::vector<field_change> changes;
    for (std::size_t i = 0; i < std::max(old_fields.size(), new_fields.size()); ++i) {
        if (before.id != after.id || at(old_fields, i) != at(new_fields, i)) {
            changes.push_back({i, at(old_fields, i), at(new_fields, i)});
        }
    }
    return changes;
}

void note_difference(std::optional<field_difference>& first,
                     const scanlib::packet_condition& condition, std::size_t index,
                     const std::string& found) {
    if (first) {
        return;
    }
    const auto wanted = std::find_if(condition.fields.begin(), condition.fields.end(),
                                     [&](const auto& f) { return f.index == index; });
    first = field_difference{index, wanted == condition.fields.end() ? "" : wanted->text, found};
}

} // namespace

std::string pair_text(scanlib::packet_id id) {
    std::ostringstream out;
    out << id;
    return out.str();
}

std::string condition_text(const scanlib::packet_condition& condition) {
    if (!condition.id) {
        return "no readable ID";
    }
    if (condition.version) {
        return pair_text({*condition.id, *condition.version});
    }
    return scanlib::name_of({*condition.id, 0}) + " (" + std::to_string(*condition.id) +
           ", every version)";
}

override_findings::override_findings(const scanlib::override_text& text, bool go_on)
    : text_(text), go_on_(go_on), region_(&surplus_) {
    regions_.reserve(most_regions);
}
override_findings::~override_findings() = default;

void override_findings::region_begins() {
    region_finding fresh;
    fresh.verification.resize(text_.verification.size());
    fresh.packets.resize(text_.packets.size());
    if (regions_.size() < most_regions) {
        regions_.push_back(std::move(fresh));
        region_ = &regions_.back();
    } else {
        ++further_;
        surplus_ = std::move(fresh);
        region_ = &surplus_;
    }
}

void override_findings::verification_differs(std::size_t entry, std::size_t index,
                                             const std::string& found) {
    note_difference(region_->verification[entry].difference, text_.verification[entry], index,
                    found);
}

void override_findings::packet_differs(std::size_t entry, std::size_t index,
                                       const std::string& found) {
    note_difference(region_->packets[entry].difference, text_.packets[entry].existing, index,
                    found);
}

void override_findings::verified(std::size_t entry) {
    ++region_->verification[entry].verified;
}

void override_findings::replaced(std::size_t entry, const scanlib::packet_words& before,
                                 const scanlib::packet_words& after) {
    packet_finding& found = region_->packets[entry];
    found.outcome = packet_outcome::replaced;
    found.before = pair_text(before.id);
    found.after = pair_text(after.id);
    found.changes = changes_between(before, after);
}

void override_findings::deleted(std::size_t entry, const scanlib::packet_words& before) {
    packet_finding& found = region_->packets[entry];
    found.outcome = packet_outcome::deleted;
    found.before = pair_text(before.id);
    for (std::size_t i = 0; std::string & field : fields_of(before)) {
        found.changes.push_back({i++, std::move(field), ""});
    }
}

void override_findings::appended(std::size_t entry, const scanlib::packet_words& after) {
    packet_finding& found = region_->packets[entry];
    found.outcome = packet_outcome::appended;
    found.after = pair_text(after.id);
    for (std::size_t i = 0; std::string & field : fields_of(after)) {
        found.changes.push_back({i++, "", std::move(field)});
    }
}

bool override_findings::verification_failed(std::size_t entry, const std::string& reason) {
    region_->verification[entry].failure = reason;
    any_failed_ = true;
    return go_on_;
}

bool override_findings::packet_failed(std::size_t entry, const std::string& reason) {
    region_->packets[entry].outcome = packet_outcome::failed;
    region_->packets[entry].failure = reason;
    any_failed_ = true;
    return go_on_;
}

void override_findings::region_ends(std::size_t outstanding) {
    region_->ended = true;
    region_->outstanding = outstanding;
    any_outstanding_ = any_outstanding_ || outstanding != 0;
}

} // namespace host
