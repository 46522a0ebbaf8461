#include "recording_output.hpp"

#include <system_error>

namespace host {

namespace fs = std::filesystem;

recording_output::recording_output(const std::string& path) {
    std::error_code error;
    const fs::path resolved = fs::canonical(path, error);
    path_ = error ? fs::path(path) : resolved;
    const bool replaceable = !fs::exists(path_, error) || fs::is_regular_file(path_, error);
    written_ = path_;
    written_ += replaceable ? ".part" : "";
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
