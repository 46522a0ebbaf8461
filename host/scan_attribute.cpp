#include "scan_attribute.hpp"

namespace host {

std::optional<Skein::K7Attribute>
scan_attribute(const Skein::K7Reader& file, const std::string& slice, const std::string& name) {
    try {
        return file.attribute(slice + "/Shots", name);
    } catch (const Skein::K7ReadError&) {
        return std::nullopt;
    }
}

std::string instrument_name(const Skein::K7Reader& file, const std::string& slice) {
    std::string all;
    for (const char* name : {"type_id", "serial"}) {
        if (const auto found = scan_attribute(file, slice, name); found && !found->text.empty()) {
            all += (all.empty() ? "" : " ") + found->text;
        }
    }
    return all;
}

} // namespace host
