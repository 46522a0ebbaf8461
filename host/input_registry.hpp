#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <utility>

namespace host {

/// The files that inputs are read from, so that no output takes the place of one. A file is
/// recognised under any of its names.
class input_registry {
  public:
    struct entry {
        std::string input; ///< as given on the command line
        std::string file;  ///< the input itself, or another file of its recording
    };

    /// Adds an input with its prefixes, continuations and override files that are there.
    void add(const std::string& input);

    /// The entry that a file with this name is; null for none.
    const entry* find(const std::filesystem::path& file) const;

  private:
    using identity = std::pair<std::uintmax_t, std::uintmax_t>; ///< device and inode

    void add_file(const std::string& input, const std::string& file);

    std::map<identity, entry> files_;
};

} // namespace host
