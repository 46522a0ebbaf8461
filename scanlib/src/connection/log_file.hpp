#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "file_copy.hpp"
#include "source_file.hpp"

namespace scanlib {

/// One file of a log. A thread of its own writes it, so that whoever reads the stream waits for the
/// disk only where that is slower than the stream for longer than what may wait in between lasts.
///
/// The log is a row of parts. A part is bytes in memory, or a range of a file that has the bytes:
/// of these the reading thread only notes where they are, and the log's thread takes them from
/// there.
///
/// Operations are called by one thread at a time. They return false once the file did not take
/// something, or bytes of a range were no longer there; from then on nothing is written.
class log_file {
  public:
    log_file();
    log_file(const log_file&) = delete;
    log_file& operator=(const log_file&) = delete;
    /// Closes the file; a failure then is dropped.
    ~log_file();

    /// Empties or creates a file. Only with none open.
    bool open(const std::filesystem::path& path);
    bool is_open() const noexcept { return descriptor_ >= 0; }

    /// Writes bytes, which `from` may have, too.
    bool write(const char* data, std::size_t n, file_place from = {});
    /// Waits until all is in the file.
    bool flush();
    bool close();

  private:
    /// What waits in memory is what a disk that pauses for moments needs; a block fits the cache.
    static constexpr std::size_t block_bytes = 0x40000;
    static constexpr std::size_t most_blocks = 16;
    /// What waits in files, 512 MiB, takes a descriptor a file; it is to be in the system's cache
    /// still.
    static constexpr std::uint64_t range_bytes = 0x400000;
    static constexpr std::size_t most_parts = 128;
    using block = std::unique_ptr<char[]>;

    struct part {
        block bytes;                           ///< for a range none
        std::shared_ptr<const open_file> file; ///< for bytes none
        std::uint64_t offset = 0;              ///< in the file
        std::uint64_t size = 0;                ///< bytes
    };

    void add_bytes(const char* data, std::size_t n);
    bool add_range(file_place from, std::uint64_t n);
    void end_part();
    block free_block();
    void recycle(block& used);
    bool put(const part& p) noexcept;
    bool start_thread();
    void hand_over();
    void work();
    void end_thread();

    int descriptor_ = -1;
    part present_; ///< is being filled
    copy_way way_ = copy_way::within_file_systems;
    std::atomic<bool> failed_{false};

    std::thread thread_;
    std::mutex mutex_; ///< guards what follows
    std::condition_variable changed_;
    std::array<part, most_parts> full_; ///< a ring
    std::size_t next_ = 0;              ///< the one that is written next
    std::size_t waiting_ = 0;           ///< full ones from there on
    std::size_t waiting_blocks_ = 0;    ///< how many of them are in memory
    std::vector<block> free_;           ///< the last one written is the next to be filled
    bool ending_ = false;
};

} // namespace scanlib
