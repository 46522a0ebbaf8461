#pragma once

#include "simulator/recording_file.hpp"

#include <filesystem>
#include <memory>
#include <string>

namespace host {

/// A recording, or another file, in the making: under another name until it is whole. Devices and
/// pipes are written as they are.
class recording_output {
  public:
    /// Creates the file. Throws simulator::output_error.
    explicit recording_output(const std::string& path);
    recording_output(const recording_output&) = delete;
    recording_output& operator=(const recording_output&) = delete;
    /// Removes what was not published.
    ~recording_output();

    /// The name of the file until it is whole; `path` itself of devices and pipes.
    static std::filesystem::path name_until_whole(const std::string& path);
    /// Whether writing to `path` takes the place of `file`, at the end or by the name until then.
    static bool replaces(const std::string& path, const std::string& file);

    /// Throws simulator::output_error.
    void write(const char* data, std::uint64_t n);

    /// Replaces bytes that were written before; devices and pipes may refuse. Throws
    /// simulator::output_error.
    void write_again(std::uint64_t at, const char* data, std::size_t n);

    /// What write writes to, for an encoder. Closed by publish.
    const std::shared_ptr<simulator::recording_file>& connection() const noexcept { return file_; }

    /// Gives the recording its name. Throws simulator::output_error.
    void publish();

    std::uint64_t bytes_written() const noexcept { return file_->bytes_written(); }

  private:
    std::filesystem::path path_;
    std::filesystem::path written_;
    std::shared_ptr<simulator::recording_file> file_;
};

} // namespace host
