#include "output_folder.hpp"

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace host {

std::string reason_folder_unwritable(const std::string& folder) {
    const std::string refusal = "cannot write to \"" + folder + "\": ";
    std::error_code error;
    const auto status = std::filesystem::status(folder, error);
    if (status.type() == std::filesystem::file_type::not_found) {
        return refusal + "no such directory";
    }
    if (error) {
        return refusal + error.message();
    }
    if (!std::filesystem::is_directory(status)) {
        return refusal + "it is not a directory";
    }
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        return refusal + std::generic_category().message(errno);
    }
    return {};
}

} // namespace host
