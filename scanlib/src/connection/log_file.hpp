#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace scanlib {

/// One file of a log. A thread of its own writes it, so that whoever reads the stream waits for the
/// disk only where that is slower than the stream for longer than the blocks in between last.
///
/// Operations are called by one thread at a time. They return false once the file did not take
/// something; from then on nothing is written.
class log_file {
  public:
    log_file();
    log_file(const log_file&) = delete;
    log_file& operator=(const log_file&) = delete;
    /// Closes the file; a failure then is dropped.
    ~log_file();

    /// Empties or creates a file. Only with none open.
    bool open(const std::filesystem::path& path);
    bool is_open() const noexcept { return file_ != nullptr; }

    bool write(const char* data, std::size_t n);
    /// Waits until all is in the file.
    bool flush();
    bool close();

  private:
    /// Together what a disk that pauses for moments needs; one of them fits the cache.
    static constexpr std::size_t block_bytes = 0x40000;
    static constexpr std::size_t blocks = 16;
    using block = std::unique_ptr<char[]>;

    bool put(const char* data, std::size_t n) noexcept;
    bool start_thread();
    void hand_over();
    void work();
    void end_thread();

    std::FILE* file_ = nullptr;
    block present_;          ///< is being filled; allocated when first needed
    std::size_t filled_ = 0; ///< bytes of it
    std::atomic<bool> failed_{false};

    std::thread thread_;
    std::mutex mutex_; ///< guards what follows
    std::condition_variable changed_;
    std::array<block, blocks> full_; ///< a ring
    std::size_t next_ = 0;           ///< the one that is written next
    std::size_t waiting_ = 0;        ///< full ones from there on
    std::vector<block> free_;        ///< the last one written is the next to be filled
    bool ending_ = false;
};

} // namespace scanlib
