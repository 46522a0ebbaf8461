#include "input_registry.hpp"

#include "input_file.hpp"

#include <sys/stat.h>

namespace host {

void input_registry::add(const std::string& input) {
    for (const std::string& file : files_of_input(input)) {
        add_file(input, file);
    }
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
