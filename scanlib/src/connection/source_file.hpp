#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <sys/types.h>

namespace scanlib {

/// An open file, for as long as anybody shares it: it can be read after its name is gone.
class open_file {
  public:
    /// Takes the descriptor over.
    explicit open_file(int descriptor) noexcept;
    open_file(const open_file&) = delete;
    open_file& operator=(const open_file&) = delete;
    ~open_file();

    int descriptor() const noexcept { return descriptor_; }
    /// Whether another descriptor is of the same file.
    bool is_same(int descriptor) const noexcept;

  private:
    int descriptor_;
};

/// Where bytes that were read can be read again; no file where they cannot.
struct file_place {
    const std::shared_ptr<const open_file>* file = nullptr;
    std::uint64_t offset = 0;
};

/// A file that is read through a buffer.
class source_file {
  public:
    /// With none open. Returns whether it is open then.
    bool open(const std::string& path);
    void close() noexcept;
    bool is_open() const noexcept { return file_ != nullptr; }

    /// Bytes from the start to the end; 0 where that cannot be told.
    std::uint64_t size() const noexcept;
    /// The offset of the next byte. Does nothing where the file has no offsets.
    void seek(std::uint64_t offset) noexcept;

    /// Up to `n` bytes; fewer only at the end of the file. Throws std::runtime_error.
    std::uint64_t read(char* dst, std::uint64_t n);
    /// Where the bytes of the last read are; valid until the next operation.
    file_place place() const noexcept { return {lasts_ ? &file_ : nullptr, begin_}; }

  private:
    static constexpr std::size_t buffer_bytes = 0x40000;

    ssize_t fetch(char* dst, std::uint64_t n) noexcept;

    std::shared_ptr<const open_file> file_;
    std::unique_ptr<char[]> buffer_; ///< allocated with the first file
    std::size_t next_ = 0;           ///< first byte of the buffer that is not delivered
    std::size_t filled_ = 0;         ///< end of its bytes
    std::uint64_t fetched_ = 0;      ///< offset behind them in the file
    std::uint64_t lasting_ = 0;      ///< bytes of the file that can be read again
    std::uint64_t begin_ = 0;        ///< of the last read
    bool lasts_ = false;             ///< its bytes can be read again
};

} // namespace scanlib
