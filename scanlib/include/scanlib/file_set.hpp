#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace scanlib {

/// Names of the files that may belong to a recording, made from the name of its main file alone.
///
/// With the stem S, the main file's name up to its last ".", and the folder D, S up to its last "/"
/// or "\":
///
///     S.pxp, S.override.pxp   text that corrects the header; the second counts without the first
///     Dcommon.rxo, S.rxo      bytes before the main file, in this order
///     x.rxp                   the main file
///     x.rxp_001, x.rxp_002    bytes behind it, up to the first number that is missing
///
/// The search for the last "." does not stop at a folder: dir.v2/scan has the stem "dir".
class file_set_names {
  public:
    explicit file_set_names(std::string main_file);

    const std::string& main_file() const noexcept { return main_; }
    const std::string& stem() const noexcept { return stem_; }
    std::string first_override() const;
    std::string second_override() const;
    std::string common_prefix() const;
    std::string own_prefix() const;
    /// The continuation of a number from 1; the main file for 0.
    std::string continuation(std::uint32_t number) const;

  private:
    std::string main_;
    std::string stem_;
};

/// One file of a recording.
struct file_part {
    std::string name;
    std::uint64_t size; ///< bytes
};

/// The files of one recording, in the order of their bytes.
struct file_set {
    std::vector<file_part> prefixes;
    std::vector<file_part> data; ///< the main file and its continuations

    /// Bytes of all of them.
    std::uint64_t size() const noexcept;
};

/// What could be read when a file set was opened and while it was read.
struct file_set_report {
    file_set files;                  ///< that were read, or whose turn has not come
    std::string override_file;       ///< the one whose text is in use, empty for none
    std::vector<std::string> unread; ///< that are there, or were, and could not be read
};

/// Whether the name is that of a regular file. Folders, pipes and devices belong to no recording.
bool is_file(const std::string& name);

/// Size of a file in bytes, 0 where it cannot be told.
std::uint64_t file_size_of(const std::string& name);

/// The main file and the continuations that are there now. The main file need not be.
std::vector<file_part> data_files(const file_set_names& names);

/// The files of a recording that are there now, whether or not they can be read.
file_set find_file_set(const std::string& main_file);

} // namespace scanlib
