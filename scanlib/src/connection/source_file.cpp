#include "source_file.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace scanlib {

namespace {

/// Size of a regular file. Others, and those that a system makes up while they are read and whose
/// size it calls 0, need not have the same bytes again.
std::uint64_t lasting_bytes(int descriptor) noexcept {
    struct stat status {};
    const bool regular = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    return regular ? static_cast<std::uint64_t>(status.st_size) : 0;
}

} // namespace

open_file::open_file(int descriptor) noexcept : descriptor_(descriptor) {}

open_file::~open_file() {
    ::close(descriptor_);
}

bool open_file::is_same(int descriptor) const noexcept {
    struct stat own {};
    struct stat other {};
    return fstat(descriptor_, &own) == 0 && fstat(descriptor, &other) == 0 &&
           own.st_dev == other.st_dev && own.st_ino == other.st_ino;
}

bool source_file::open(const std::string& path) {
    if (!buffer_) {
        buffer_ = std::make_unique<char[]>(buffer_bytes);
    }
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    try {
        file_ = std::make_shared<open_file>(descriptor);
    } catch (...) {
        ::close(descriptor);
        throw;
    }
    lasting_ = lasting_bytes(descriptor);
    next_ = filled_ = 0;
    fetched_ = 0;
    return true;
}

void source_file::close() noexcept {
    file_.reset();
    lasts_ = false;
    next_ = filled_ = 0;
}

std::uint64_t source_file::size() const noexcept {
    const auto here = lseek(file_->descriptor(), 0, SEEK_CUR);
    const auto end = lseek(file_->descriptor(), 0, SEEK_END);
    lseek(file_->descriptor(), here, SEEK_SET);
    return end < 0 ? 0 : static_cast<std::uint64_t>(end);
}

void source_file::seek(std::uint64_t offset) noexcept {
    if (!file_ || lseek(file_->descriptor(), static_cast<off_t>(offset), SEEK_SET) < 0) {
        return;
    }
    next_ = filled_ = 0;
    fetched_ = offset;
}

/// Up to `n` bytes behind those of the buffer. Returns their number, 0 at the end, less for a
/// failure.
ssize_t source_file::fetch(char* dst, std::uint64_t n) noexcept {
    ssize_t k = 0;
    do {
        k = ::read(file_->descriptor(), dst, std::min<std::uint64_t>(n, SSIZE_MAX));
    } while (k < 0 && errno == EINTR);
    fetched_ += k > 0 ? static_cast<std::uint64_t>(k) : 0;
    if (fetched_ > lasting_) {
        lasting_ = lasting_bytes(file_->descriptor()); // it may have grown
    }
    return k;
}

std::uint64_t source_file::read(char* dst, std::uint64_t n) {
    begin_ = fetched_ - (filled_ - next_);
    std::uint64_t total = 0;
    for (ssize_t got = 1; got > 0;) {
        const auto k = std::min<std::uint64_t>(n - total, filled_ - next_);
        std::memcpy(dst + total, buffer_.get() + next_, k);
        next_ += k;
        total += k;
        if (total == n) {
            break;
        }
        if (n - total >= buffer_bytes) {
            got = fetch(dst + total, n - total);
            total += got > 0 ? static_cast<std::uint64_t>(got) : 0;
        } else {
            got = fetch(buffer_.get(), buffer_bytes);
            filled_ = got > 0 ? static_cast<std::size_t>(got) : 0;
            next_ = 0;
        }
        if (got < 0 && total == 0) {
            throw std::runtime_error("file_rconnection::more_input: Error reading from file!");
        }
    }
    lasts_ = begin_ + total <= lasting_;
    return total;
}

} // namespace scanlib
