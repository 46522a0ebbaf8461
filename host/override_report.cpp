#include "override_report.hpp"

#include "json.hpp"
#include "terminal.hpp"

#include <cstdio>

namespace host {

namespace {

constexpr std::size_t longest_shown = 60;

/// A field as a line shows it: tables are cut.
std::string shown(const std::string& field) {
    return field.size() <= longest_shown ? field : field.substr(0, longest_shown) + "...";
}

const char* word_of(packet_outcome outcome) {
    switch (outcome) {
    case packet_outcome::replaced:
        return "replaced";
    case packet_outcome::deleted:
        return "deleted";
    case packet_outcome::appended:
        return "appended";
    case packet_outcome::failed:
        return "failed";
    case packet_outcome::unmatched:
        break;
    }
    return "unmatched";
}

/// What became of an entry, in words.
std::string sentence_of(const packet_finding& found) {
    switch (found.outcome) {
    case packet_outcome::replaced:
        return "replaces " + found.before +
               (found.before == found.after ? "" : " by " + found.after) +
               (found.changes.empty() ? ", which stays the same" : "");
    case packet_outcome::deleted:
        return "deletes " + found.before;
    case packet_outcome::appended:
        return "matches nothing: appends " + found.after;
    case packet_outcome::failed:
        return "fails: " + found.failure;
    case packet_outcome::unmatched:
        break;
    }
    return "matches nothing, and has no effect";
}

void print_difference(const std::optional<field_difference>& difference) {
    if (difference) {
        std::printf("      field %zu is %s, not %s\n", difference->index,
                    shown(difference->found).c_str(), shown(difference->wanted).c_str());
    }
}

void print_changes(const packet_finding& found) {
    for (const field_change& c : found.changes) {
        if (found.outcome == packet_outcome::replaced) {
            std::printf("      field %zu: %s -> %s\n", c.index, shown(c.before).c_str(),
                        shown(c.after).c_str());
        } else {
            std::printf("      field %zu: %s\n", c.index,
                        shown(c.before.empty() ? c.after : c.before).c_str());
        }
    }
}

void print_verification(const override_check& check, const region_finding& region) {
    for (std::size_t i = 0; i < region.verification.size(); ++i) {
        const verification_finding& v = region.verification[i];
        const std::string result = !v.failure.empty() ? "fails: " + v.failure
                                   : v.verified != 0  ? "holds"
                                   : v.difference     ? "does not hold"
                                                      : "matches nothing";
        std::printf("    verification %zu, %s: %s\n", i + 1,
                    condition_text(check.entries->verification[i]).c_str(), result.c_str());
        if (v.verified == 0) {
            print_difference(v.difference);
        }
    }
    if (region.outstanding != 0) {
        std::printf("    The verification fails: the recording is read as it is.\n");
    }
}

void print_region(const override_check& check, const region_finding& region, std::size_t number) {
    std::printf("  header %zu%s\n", number,
                region.ended ? "" : ", whose packets cannot all be read");
    print_verification(check, region);
    if (region.outstanding != 0) {
        return;
    }
    for (std::size_t i = 0; i < region.packets.size(); ++i) {
        const packet_finding& found = region.packets[i];
        std::printf("    entry %zu, %s: %s\n", i + 1,
                    condition_text(check.entries->packets[i].existing).c_str(),
                    sentence_of(found).c_str());
        print_changes(found);
        if (found.before.empty()) {
            print_difference(found.difference);
        }
    }
}

std::string difference_json(const std::optional<field_difference>& difference) {
    return difference ? json_object()
                            .number("field", difference->index)
                            .text("expected", difference->wanted)
                            .text("found", difference->found)
                            .str()
                      : "null";
}

std::string text_or_null(const std::string& text) {
    return text.empty() ? "null" : json_text(text);
}

std::string verification_json(const override_check& check, const region_finding& region) {
    json_array all;
    for (std::size_t i = 0; i < region.verification.size(); ++i) {
        const verification_finding& v = region.verification[i];
        all.add(json_object()
                    .number("entry", i + 1)
                    .text("means", condition_text(check.entries->verification[i]))
                    .number("verified", v.verified)
                    .raw("difference", difference_json(v.difference))
                    .raw("failure", text_or_null(v.failure))
                    .str());
    }
    return all.str();
}

std::string changes_json(const packet_finding& found) {
    json_array all;
    for (const field_change& c : found.changes) {
        all.add(json_object()
                    .number("field", c.index)
                    .raw("before", text_or_null(c.before))
                    .raw("after", text_or_null(c.after))
                    .str());
    }
    return all.str();
}

std::string packets_json(const override_check& check, const region_finding& region) {
    json_array all;
    for (std::size_t i = 0; i < region.packets.size(); ++i) {
        const packet_finding& found = region.packets[i];
        all.add(json_object()
                    .number("entry", i + 1)
                    .text("means", condition_text(check.entries->packets[i].existing))
                    .text("outcome", word_of(found.outcome))
                    .raw("before", text_or_null(found.before))
                    .raw("after", text_or_null(found.after))
                    .raw("changes", changes_json(found))
                    .raw("difference", difference_json(found.difference))
                    .raw("failure", text_or_null(found.failure))
                    .str());
    }
    return all.str();
}

} // namespace

void print_check(const override_check& check) {
    std::printf("%s on %s\n", check.override_name.c_str(), check.input.c_str());
    const auto& regions = check.findings->regions();
    for (std::size_t i = 0; i < regions.size(); ++i) {
        print_region(check, regions[i], i + 1);
    }
    if (regions.empty()) {
        std::printf("  no header\n");
    }
    if (check.findings->further_regions() != 0) {
        std::printf("  and %llu further headers\n",
                    static_cast<unsigned long long>(check.findings->further_regions()));
    }
}

std::string json_of(const override_check& check) {
    json_array headers;
    if (check.findings != nullptr) {
        for (const region_finding& region : check.findings->regions()) {
            headers.add(json_object()
                            .truth("whole", region.ended)
                            .number("outstanding", region.outstanding)
                            .raw("verification", verification_json(check, region))
                            .raw("packets", packets_json(check, region))
                            .str());
        }
    }
    return json_object()
               .text("input", check.input)
               .text("override", check.override_name)
               .text("text", check.failure)
               .number("exit_code", static_cast<int>(check.code))
               .raw("error", text_or_null(check.failure))
               .raw("headers", headers.str())
               .number("further_headers",
                       check.findings == nullptr ? 0 : check.findings->further_regions())
               .str() +
           "\n";
}

void warn_of_findings(const override_check& check) {
    const char* const input = check.input.c_str();
    if (check.findings->regions().empty()) {
        complain("\"%s\" has no header, so that nothing is changed", input);
    }
    if (check.findings->any_outstanding()) {
        complain("\"%s\" is not the recording that \"%s\" is for: its verification "
                 "fails, and the recording stays as it is",
                 input, check.override_name.c_str());
        return;
    }
    const auto& regions = check.findings->regions();
    for (std::size_t i = 0; !regions.empty() && i < check.entries->packets.size(); ++i) {
        if (regions.front().packets[i].outcome == packet_outcome::unmatched) {
            complain("entry %zu of \"%s\" matches nothing", i + 1, check.override_name.c_str());
        }
    }
}

} // namespace host
