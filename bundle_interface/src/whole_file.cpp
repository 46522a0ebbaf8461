#include "bundle_interface/whole_file.hpp"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

namespace Holdfast {

namespace {

struct Closer {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

} // namespace

std::string writeWholeFile(const std::string& path, const std::string& bytes) {
    std::unique_ptr<std::FILE, Closer> file(std::fopen(path.c_str(), "wb"));
    if (!file) {
        return std::generic_category().message(errno);
    }
    errno = 0;
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
    const int failure = errno;
    if (std::fclose(file.release()) == 0 && written) {
        return {};
    }
    const std::string reason = std::generic_category().message(written ? errno : failure);
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path, ignored)) {
        std::filesystem::remove(path, ignored);
    }
    return reason;
}

} // namespace Holdfast
