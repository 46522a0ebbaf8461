#include "scanlib/file_connection.hpp"

#include <filesystem>
#include <fstream>
#include <ios>
#include <system_error>

#include "uri.hpp"

namespace scanlib {

namespace {

constexpr std::streamsize file_buffer_bytes = 0x40000;

/// A file buffer with a buffer of its own size.
struct buffered_file {
    std::unique_ptr<char[]> memory{new char[file_buffer_bytes]};
    std::filebuf buffer;

    bool open(const std::string& path, std::ios::openmode mode) {
        buffer.pubsetbuf(memory.get(), file_buffer_bytes);
        return buffer.open(path, mode | std::ios::binary) != nullptr;
    }
};

/// Up to its last ".", wherever that stands.
std::string stem_of(const std::string& path) {
    return path.substr(0, path.rfind('.'));
}

} // namespace

/// Private part of a file read connection.
struct file_rconnection::files {
    std::string path; ///< of the main file, as it stands in the URI
    buffered_file main;
};

file_rconnection::file_rconnection(const std::string& uri, const std::string&,
                                   const std::string& pxp)
    : basic_rconnection(pxp), files_(std::make_unique<files>()) {
    files_->path = path_of_file_uri(uri);
    id_ = stem_of(files_->path);
    std::error_code unknown;
    // A folder opens, but nothing can be read from it.
    if (std::filesystem::is_directory(files_->path, unknown) ||
        !files_->main.open(files_->path, std::ios::in)) {
        throw std::runtime_error("Could not open \"" + files_->path + "\" for reading!");
    }
    const auto end = files_->main.buffer.pubseekoff(0, std::ios::end);
    files_->main.buffer.pubseekoff(0, std::ios::beg);
    size_ = end < 0 ? 0 : static_cast<std::uint64_t>(end);
}

file_rconnection::~file_rconnection() = default;

void file_rconnection::stop() {
    cancelled_ = true;
}
void file_rconnection::cancel() {
    cancelled_ = true;
}

std::uint64_t file_rconnection::more_input(char* dst, std::uint64_t n) {
    if (cancelled_) {
        throw std::runtime_error("file_rconnection::more_input: Operation canceled!");
    }
    gcount_ = 0;
    std::filebuf& main = files_->main.buffer;
    if (!main.is_open()) {
        throw std::runtime_error("file_rconnection::more_input: Error reading from file!");
    }
    std::streamsize k = 0;
    try {
        k = main.sgetn(dst, static_cast<std::streamsize>(n));
    } catch (const std::ios_base::failure&) {
        throw std::runtime_error("file_rconnection::more_input: Error reading from file!");
    }
    if (k <= 0) {
        main.close();
        end_of_input_ = true;
        return 0;
    }
    return static_cast<std::uint64_t>(k);
}

struct file_wconnection::file {
    buffered_file out;
};

file_wconnection::file_wconnection(const std::string& uri) : file_(std::make_unique<file>()) {
    const std::string path = path_of_file_uri(uri);
    if (!file_->out.open(path, std::ios::out | std::ios::trunc)) {
        throw std::runtime_error("Could not open \"" + path + "\" for writing!");
    }
}

file_wconnection::~file_wconnection() = default;

std::int64_t file_wconnection::write(const char* data, std::int64_t n) {
    if (!file_->out.buffer.is_open() || file_->out.buffer.sputn(data, n) != n) {
        throw std::runtime_error("Error writing to file!");
    }
    return n;
}

void file_wconnection::close() {
    if (file_->out.buffer.is_open() && file_->out.buffer.close() == nullptr) {
        throw std::runtime_error("Error writing to file!");
    }
}

} // namespace scanlib
