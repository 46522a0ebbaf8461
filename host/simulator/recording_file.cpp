#include "simulator/recording_file.hpp"

#include <cerrno>
#include <system_error>
#include <unistd.h>

namespace simulator {

recording_file::recording_file(const std::filesystem::path& path, const std::filesystem::path& name)
    : path_(path), file_(std::fopen(path.c_str(), "wb")) {
    if (!file_) {
        fail("create", name.empty() ? path : name);
    }
    // The encoder hands over large pieces; a buffer between would only copy them.
    std::setvbuf(file_.get(), nullptr, _IONBF, 0);
}

recording_file::~recording_file() = default;

void recording_file::fail(const char* action, const std::filesystem::path& name) {
    const int cause = errno;
    throw output_error(std::string("cannot ") + action + " \"" + name.string() +
                       "\": " + std::generic_category().message(cause));
}

std::int64_t recording_file::write(const char* data, std::int64_t n) {
    const auto size = static_cast<std::size_t>(n);
    if (!file_ || std::fwrite(data, 1, size, file_.get()) != size) {
        fail("write", path_);
    }
    bytes_ += size;
    return n;
}

void recording_file::write_again(std::uint64_t at, const char* data, std::size_t n) {
    if (!file_) {
        fail("write", path_);
    }
    for (std::size_t done = 0; done < n;) {
        const ssize_t written =
            pwrite(fileno(file_.get()), data + done, n - done, static_cast<off_t>(at + done));
        if (written < 0 && errno != EINTR) {
            fail("write", path_);
        }
        done += written < 0 ? 0 : static_cast<std::size_t>(written);
    }
}

void recording_file::close() {
    if (file_ && std::fclose(file_.release()) != 0) {
        fail("write", path_);
    }
}

} // namespace simulator
