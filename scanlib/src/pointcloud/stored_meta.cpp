#include "stored_meta.hpp"

#include "scanlib/json_members.hpp"
#include "scanlib/scanmech_meta.hpp"

#define BOOST_BIND_GLOBAL_PLACEHOLDERS // the parser still uses them, and says so at length without
                                       // this
#include <boost/property_tree/json_parser.hpp>

#include <sstream>
#include <stdexcept>
#include <string_view>

// Parameters that an earlier reader of the instrument stored in the stream.
namespace scanlib {

namespace {

/// The parser calls itself for each level, and a tree takes much more memory than its text.
constexpr std::size_t most_levels = 256;
constexpr std::size_t most_values = 262144;

/// Refuses a text that the parser must not see.
void check_shape(std::string_view json) {
    std::size_t level = 0;
    std::size_t values = 0;
    bool in_text = false;
    for (std::size_t i = 0; i < json.size(); ++i) {
        const char c = json[i];
        if (c == '\\' && in_text) {
            ++i;
        } else if (c == '"') {
            in_text = !in_text;
        } else if (!in_text && (c == '{' || c == '[')) {
            ++values;
            if (++level > most_levels) {
                throw std::runtime_error("rxp_parameters: JSON is nested deeper than 256 levels");
            }
        } else if (!in_text && (c == '}' || c == ']')) {
            level -= level != 0 ? 1 : 0;
        } else if (!in_text && c == ',' && ++values > most_values) {
            throw std::runtime_error("rxp_parameters: JSON holds more than 262144 values");
        }
    }
}

float single_of(const members::ptree& value, const char* key) {
    return static_cast<float>(members::number_of(value, key));
}

/// A table and its step, each if it is there.
void read_table(const members::ptree& tree, const char* table_key, const char* step_key,
                std::vector<float>& entries, float& step) {
    members::read_list(tree, table_key, entries, [&](const members::ptree& element) {
        return single_of(element, table_key);
    });
    if (const members::ptree* value = members::find(tree, step_key)) {
        step = single_of(*value, step_key);
    }
}

void read_trigger(const members::ptree& tree, dynamic_trigger& trigger) {
    float offset = trigger.offset();
    float scale = trigger.scale();
    if (const members::ptree* value = members::find(tree, "offset")) {
        offset = single_of(*value, "offset");
    }
    if (const members::ptree* value = members::find(tree, "scale")) {
        scale = single_of(*value, "scale");
    }
    std::vector<dynamic_trigger::threshold_row> rows;
    members::read_list(tree, "table", rows, [](const members::ptree& element) {
        const auto number = [&](const char* key) {
            const members::ptree* value = members::find(element, key);
            if (value == nullptr) {
                members::malformed(key, "to be there");
            }
            return single_of(*value, key);
        };
        return dynamic_trigger::threshold_row{number("thra1"), number("del1"), number("dec1"),
                                              number("thra2"), number("del2"), number("dec2")};
    });
    trigger.set_rows(offset, scale, std::move(rows));
}

} // namespace

void pointcloud::on_rxp_parameters(packets::rxp_parameters& p, const std::uint32_t* /*end*/) {
    const std::string_view text = p.text();
    check_shape(text);
    std::istringstream in{std::string(text)};
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(in, tree);
    meta_->tree.swap(tree);
}

const boost::property_tree::ptree* pointcloud::stored_section(const char* name) const {
    return members::find(meta_->tree, name);
}

void pointcloud::apply_meta() {
    const members::ptree* section = stored_section("pointcloud");
    if (section == nullptr) {
        return;
    }
    const members::ptree& tree = *section;
    if (const members::ptree* trigger = members::find(tree, "dyntrig")) {
        read_trigger(*trigger, dyntrig);
    }
    if (const members::ptree* list = members::find(tree, "scanmech")) {
        std::size_t i = 0;
        for (const auto& [name, element] : members::elements(*list, "scanmech")) {
            if (i < mechs.size()) {
                read_meta(*mechs[i], element);
            } else if (i < geometry_limit) {
                mechs.push_back(scanmech_from_meta(element, &beam_origin, &beam_direction));
            } else {
                members::malformed("scanmech", "to have at most 4096 elements");
            }
            ++i;
        }
    }
    read_table(tree, "nrange", "nrange_delta", nrange_table.entries, nrange_table.step);
    read_table(tree, "refltab", "refltab_delta", reftab_table.entries, reftab_table.step);
    members::read(tree, "delta_rg", delta_rg);
}

} // namespace scanlib
