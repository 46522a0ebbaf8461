#pragma once

#include <unistd.h>
#include <utility>

namespace host {

/// Owner of a file descriptor, a socket for example.
class file_handle {
  public:
    file_handle() = default;
    explicit file_handle(int fd) noexcept : fd_(fd) {}
    file_handle(file_handle&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    file_handle& operator=(file_handle&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~file_handle() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }

    int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }

  private:
    int fd_ = -1;
};

} // namespace host
