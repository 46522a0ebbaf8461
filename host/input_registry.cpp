#include "input_registry.hpp"

#include "input_file.hpp"

#include "scanlib/file_set.hpp"

#include <sys/stat.h>

namespace host {

void input_registry::add(const std::string& input) {
    if (is_live_stream(input)) {
        return;
    }
    add_file(input, input);
    const scanlib::file_set set = scanlib::find_file_set(input);
    for (const auto* parts : {&set.prefixes, &set.data}) {
        for (const scanlib::file_part& part : *parts) {
            add_file(input, part.name);
        }
    }
    const scanlib::file_set_names names(input);
    add_file(input, names.first_override());
    add_file(input, names.second_override());
}

void input_registry::add_file(const std::string& input, const std::string& file) {
    struct stat found {};
    if (stat(file.c_str(), &found) == 0) {
        files_.try_emplace({found.st_dev, found.st_ino}, entry{input, file});
    }
}

const input_registry::entry* input_registry::find(const std::filesystem::path& file) const {
    struct stat found {};
    if (stat(file.c_str(), &found) != 0) {
        return nullptr;
    }
    const auto at = files_.find({found.st_dev, found.st_ino});
    return at == files_.end() ? nullptr : &at->second;
}

} // namespace host
