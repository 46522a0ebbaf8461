#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace scanlib {

/// A defect of the stream's format. The text joins library, platform, source name, line and message
/// with " : ".
class scanlib_exception : public std::exception {
  public:
    /// With an empty source name the text is the message alone.
    scanlib_exception(const std::string& message, const std::string& source, int line);
    const char* what() const noexcept override { return text_.c_str(); }

  private:
    std::string text_;
};

/// A transfer was cancelled; the text is "Operation canceled".
class cancelled : public std::runtime_error {
  public:
    cancelled() : std::runtime_error("Operation canceled") {}
};

} // namespace scanlib
