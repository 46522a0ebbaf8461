#define BOOST_BIND_GLOBAL_PLACEHOLDERS // the parser still uses them, and says so at length without

#include "scanlib/override_text.hpp"

#include <sstream>
#include <stdexcept>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

namespace scanlib {

namespace {

using boost::property_tree::ptree;

[[noreturn]] void refuse(const std::string& what, std::size_t limit, const char* unit) {
    throw std::runtime_error("override: " + what + " " + std::to_string(limit) + " " + unit);
}

/// The parser recurses and makes a node of every value: what it cannot bear is refused before.
void check_limits(const std::string& pxp) {
    if (pxp.size() > longest_override_text) {
        refuse("the text is longer than", longest_override_text, "bytes");
    }
    std::size_t depth = 0;
    std::size_t values = 0;
    bool in_text = false;
    for (std::size_t i = 0; i < pxp.size(); ++i) {
        const char c = pxp[i];
        if (in_text) {
            i += c == '\\' ? 1u : 0u;
            in_text = c != '"';
            continue;
        }
        in_text = c == '"';
        const bool opens = c == '{' || c == '[';
        depth += opens ? 1u : 0u;
        depth -= (c == '}' || c == ']') && depth != 0 ? 1u : 0u;
        values += opens || c == ',' ? 1u : 0u;
        if (depth > deepest_override_text) {
            refuse("JSON is nested deeper than", deepest_override_text, "levels");
        }
        if (values > most_override_values) {
            refuse("JSON holds more than", most_override_values, "values");
        }
    }
}

/// Children of a member; none where it is missing.
const ptree& children_of(const ptree& node, const char* name) {
    static const ptree none;
    const auto found = node.get_child_optional(name);
    return found ? *found : none;
}

/// The whole number that an element of a list is, if it is one.
std::optional<std::int64_t> number_at(const ptree& list, std::size_t i) {
    if (i >= list.size()) {
        return {};
    }
    const auto value = std::next(list.begin(), static_cast<std::ptrdiff_t>(i))
                           ->second.get_value_optional<std::int64_t>();
    return value ? std::optional<std::int64_t>(*value) : std::nullopt;
}

std::optional<std::uint32_t> unsigned_at(const ptree& list, std::size_t i) {
    const auto value = number_at(list, i);
    return value && *value >= 0 && *value <= UINT32_MAX
               ? std::optional<std::uint32_t>(static_cast<std::uint32_t>(*value))
               : std::nullopt;
}

packet_condition condition_of(const ptree& node) {
    packet_condition c;
    const ptree& id = children_of(node, "ID");
    c.id = unsigned_at(id, 0);
    c.version = unsigned_at(id, 1);
    for (const auto& [name, pair] : children_of(node, "contentID")) {
        const auto index = number_at(pair, 0);
        if (index && *index >= 0) {
            c.fields.push_back({static_cast<std::size_t>(*index),
                                pair.size() > 1 ? std::next(pair.begin())->second.data() : ""});
        }
    }
    return c;
}

packet_override override_of(const ptree& node) {
    packet_override o;
    o.existing = condition_of(children_of(node, "existing_packet_identification"));
    const ptree& replacement = children_of(node, "new_packet");
    o.has_new_packet = !replacement.empty();
    const ptree& id = children_of(replacement, "ID");
    const auto number = unsigned_at(id, 0);
    const auto version = unsigned_at(id, 1);
    if (number && version) {
        o.new_id = {*number, *version};
    }
    for (const auto& [name, field] : children_of(replacement, "content")) {
        o.new_fields += ", " + field.data();
    }
    o.new_fields += '\n';
    return o;
}

} // namespace

override_text parse_override_text(const std::string& pxp) {
    check_limits(pxp);
    std::istringstream in(pxp);
    ptree root;
    boost::property_tree::read_json(in, root);
    override_text text;
    for (const auto& [name, node] : children_of(root, "file_verification")) {
        text.verification.push_back(condition_of(node));
        if (const auto& id = text.verification.back().id) {
            text.verification_by_id[*id].push_back(text.verification.size() - 1);
        }
    }
    for (const auto& [name, node] : children_of(root, "packets")) {
        text.packets.push_back(override_of(node));
        if (const auto& id = text.packets.back().existing.id) {
            text.packets_by_id[*id].push_back(text.packets.size() - 1);
        }
    }
    return text;
}

} // namespace scanlib
