#pragma once

namespace host {

/// While it lives, what anyone in the process writes to standard output goes to standard error.
/// Works on the descriptors, so that it holds for every way of writing. One at a time.
class stdout_guard {
  public:
    /// Throws std::system_error.
    stdout_guard();
    stdout_guard(const stdout_guard&) = delete;
    stdout_guard& operator=(const stdout_guard&) = delete;
    ~stdout_guard();

  private:
    int saved_;
};

} // namespace host
