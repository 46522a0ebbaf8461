#include "recording_output.hpp"

#include <system_error>

namespace host {

namespace fs = std::filesystem;

namespace {

/// Where the file is to stand, behind links.
fs::path place_of(const std::string& path) {
    std::error_code error;
    const fs::path resolved = fs::canonical(path, error);
    return error ? fs::path(path) : resolved;
}

} // namespace

fs::path recording_output::name_until_whole(const std::string& path) {
    std::error_code error;
    fs::path name = place_of(path);
    const bool replaceable = !fs::exists(name, error) || fs::is_regular_file(name, error);
    name += replaceable ? ".part" : "";
    return name;
}

bool recording_output::replaces(const std::string& path, const std::string& file) {
    std::error_code error;
    return fs::equivalent(file, path, error) || fs::equivalent(file, name_until_whole(path), error);
}

recording_output::recording_output(const std::string& path)
    : path_(place_of(path)), written_(name_until_whole(path)) {
    file_ = std::make_shared<simulator::recording_file>(written_, path);
}

recording_output::~recording_output() {
    file_.reset();
    if (written_ != path_) {
        std::error_code ignored;
        fs::remove(written_, ignored);
    }
}

void recording_output::write(const char* data, std::uint64_t n) {
    file_->write(data, static_cast<std::int64_t>(n));
}

void recording_output::write_again(std::uint64_t at, const char* data, std::size_t n) {
    file_->write_again(at, data, n);
}

void recording_output::publish() {
    file_->close();
    if (written_ == path_) {
        return;
    }
    std::error_code error;
    fs::rename(written_, path_, error);
    if (error) {
        throw simulator::output_error("cannot rename \"" + written_.string() + "\" to \"" +
                                      path_.string() + "\": " + error.message());
    }
    written_ = path_;
}

} // namespace host
