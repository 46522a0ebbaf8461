#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "log_file.hpp"

namespace scanlib {

/// The copy of a stream in files: the log, and with a limit of size its extensions NAME_001,
/// NAME_002, ...
///
/// A write that does not fit the present file begins the next one, and what did not fit is in none.
class stream_log {
  public:
    static constexpr std::int64_t unlimited = INT64_MAX;

    /// Begins a new log, and removes the extensions of an earlier one. Throws std::runtime_error
    /// ("cannot create logfile").
    void open(const std::string& path, std::int64_t limit);
    bool is_open() const noexcept { return file_.is_open(); }

    /// Writes what fits; `from` is where the bytes can be read again. Throws std::runtime_error
    /// ("cannot create logfile extension", "cannot write logfile ..."), and is closed then.
    void write(const char* data, std::uint64_t n, file_place from);

    /// Throws std::runtime_error ("cannot write logfile ...").
    void flush();
    void close();

  private:
    bool begin_file(const std::filesystem::path& path);
    void roll_over();
    void remove_extensions() const;
    [[noreturn]] void fail();

    log_file file_;
    std::filesystem::path path_;    ///< of the log, absolute
    std::filesystem::path present_; ///< of the file that is open
    std::int64_t limit_ = unlimited;
    std::int64_t written_ = 0;
    std::uint32_t extension_ = 1;
};

} // namespace scanlib
