#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "scanlib/connection.hpp"
#include "scanlib/file_set.hpp"
#include "scanlib/loss_log.hpp"

namespace scanlib {

/// Reads a recorded scan as one stream, though on disk it may be several files: prefixes, the main
/// file, and its continuations (file_set.hpp tells their names). Constructed means open and at the
/// first byte; the name of the stream is the path up to its last ".".
///
/// A file that is missing, other than the main file, is no failure. One that is there and cannot be
/// read counts as missing, too, and stands in `report`. A continuation that is not there when its
/// turn comes ends the stream.
///
/// `size` is the sum of the main file and its continuations as they were on opening. Prefixes count
/// in `position` alone.
class file_rconnection : public basic_rconnection {
  public:
    /// `uri` has the scheme "file"; `continuation` is not used. Where `pxp` is empty, the text of
    /// an override file beside the main file takes its place. Throws std::runtime_error for another
    /// scheme, a main file that cannot be opened, and an override file that opens but breaks while
    /// it is read, or is larger than longest_override_text.
    file_rconnection(const std::string& uri, const std::string& continuation,
                     const std::string& pxp);
    ~file_rconnection() override;

    /// Moves to an offset in the main file and its continuations, put together; their end is one,
    /// too. An offset at the end of a file stays in that file. Prefix bytes not read yet still come
    /// first, and after the end of the input nothing follows. Throws std::runtime_error ("trying to
    /// seek beyond eof") for a larger offset. Where the file cannot be opened, the next read
    /// throws.
    void seek(std::uint64_t position) override;

    /// The next read throws std::runtime_error; one that is under way finishes.
    void stop() override;
    void cancel() override;

    /// Which files the stream was made from, so far.
    const file_set_report& report() const noexcept;

  protected:
    std::uint64_t more_input(char* dst, std::uint64_t n) override;

  private:
    struct files;
    std::unique_ptr<files> files_;
    std::atomic<bool> cancelled_{false};
};

/// The report of a connection that reads files; null for any other.
const file_set_report* report_of(const basic_rconnection& connection) noexcept;

/// Counts the unread files of a connection that are not counted yet, at its position.
void note_unread_files(basic_rconnection& connection, loss_log& losses);

/// Writes a file anew. Constructed means open; destroyed means closed. Bytes are buffered: without
/// `finish` nobody hears of those that the file did not take in the end.
class file_wconnection : public basic_wconnection {
  public:
    /// `uri` has the scheme "file". Throws std::runtime_error for another scheme or a file that
    /// cannot be opened.
    explicit file_wconnection(const std::string& uri);
    ~file_wconnection() override;

    /// Throws std::runtime_error ("Error writing to file!") when the bytes are not all taken.
    std::int64_t write(const char* data, std::int64_t n) override;
    /// Closes the file; does nothing for a closed one. Throws std::runtime_error ("Error writing to
    /// file!") when buffered bytes cannot be written.
    void finish();

  private:
    struct file;
    std::unique_ptr<file> file_;
};

} // namespace scanlib
