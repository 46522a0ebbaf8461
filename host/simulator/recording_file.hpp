#pragma once

#include "scanlib/connection.hpp"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

namespace simulator {

/// A failure of the output, with the path and the system's reason in its text.
class output_error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Write connection to a new file that tells every failure, those of the last bytes too.
class recording_file : public scanlib::basic_wconnection {
  public:
    /// Creates or empties the file. Throws output_error, with `name` in its text where given: the
    /// file that was asked for, while this one stands in for it.
    explicit recording_file(const std::filesystem::path& path,
                            const std::filesystem::path& name = {});
    /// Without `close`, what is buffered may be lost.
    ~recording_file() override;

    /// Throws output_error unless all of it was taken.
    std::int64_t write(const char* data, std::int64_t n) override;

    /// Replaces bytes that were written before. Throws output_error.
    void write_again(std::uint64_t at, const char* data, std::size_t n);

    /// Brings everything into the file. Throws output_error. Calls after the first do nothing.
    void close() override;

    std::uint64_t bytes_written() const noexcept { return bytes_; }

  private:
    struct closer {
        void operator()(std::FILE* f) const noexcept { std::fclose(f); }
    };

    [[noreturn]] static void fail(const char* action, const std::filesystem::path& name);

    std::filesystem::path path_;
    std::unique_ptr<std::FILE, closer> file_;
    std::uint64_t bytes_ = 0;
};

} // namespace simulator
