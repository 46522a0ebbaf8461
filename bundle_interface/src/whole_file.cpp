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

/// Writes a file where it stands. Empty, or the reason why not.
std::string writeInPlace(const std::string& path, const std::string& bytes) {
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
    return std::generic_category().message(written ? errno : failure);
}

} // namespace

std::string writeWholeFile(const std::string& path, const std::string& bytes) {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path resolved = fs::canonical(path, error); // behind links, which stay
    const fs::path place = error ? fs::path(path) : resolved;
    if (fs::exists(place, error) && !fs::is_regular_file(place, error)) {
        return writeInPlace(path, bytes);
    }
    const std::string part = place.native() + ".part";
    std::string failure = writeInPlace(part, bytes);
    if (failure.empty()) {
        fs::rename(part, place, error);
        failure = error ? error.message() : "";
    }
    if (!failure.empty() && fs::is_regular_file(part, error)) {
        fs::remove(part, error);
    }
    return failure;
}

} // namespace Holdfast
