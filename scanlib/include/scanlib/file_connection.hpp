#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "scanlib/connection.hpp"

namespace scanlib {

/// Reads a recorded scan from a file. Constructed means open and at the first byte; the name of the
/// stream is the path up to its last ".".
class file_rconnection : public basic_rconnection {
  public:
    /// `uri` has the scheme "file"; `continuation` is not used. Throws std::runtime_error for
    /// another scheme or a file that cannot be opened.
    file_rconnection(const std::string& uri, const std::string& continuation,
                     const std::string& pxp);
    ~file_rconnection() override;

    /// The next read throws std::runtime_error; one that is under way finishes.
    void stop() override;
    void cancel() override;

  protected:
    std::uint64_t more_input(char* dst, std::uint64_t n) override;

  private:
    struct files;
    std::unique_ptr<files> files_;
    std::atomic<bool> cancelled_{false};
};

/// Writes a file anew. Bytes are buffered; close reports those that the file did not take.
class file_wconnection : public basic_wconnection {
  public:
    /// `uri` has the scheme "file". Throws std::runtime_error for another scheme or a file that
    /// cannot be opened.
    explicit file_wconnection(const std::string& uri);
    ~file_wconnection() override;

    /// Throws std::runtime_error ("Error writing to file!") when the bytes are not all taken.
    std::int64_t write(const char* data, std::int64_t n) override;
    /// Closes the file. Throws std::runtime_error ("Error writing to file!") when buffered bytes
    /// cannot be written.
    void close() override;

  private:
    struct file;
    std::unique_ptr<file> file_;
};

} // namespace scanlib
