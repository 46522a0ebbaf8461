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
    /// As many as the cache holds, and together what a disk that pauses for moments needs.
    static constexpr std::size_t block_bytes = 0x40000;
    static constexpr std::size_t blocks = 16;

    bool put(const char* data, std::size_t n) noexcept;
    void hand_over();
    void work();
    void end_thread();

    std::FILE* file_ = nullptr;
    std::array<std::unique_ptr<char[]>, blocks> memory_; ///< a ring; allocated when reached
    std::size_t present_ = 0;                            ///< block that is being filled
    std::size_t filled_ = 0;                             ///< bytes of it
    std::atomic<bool> failed_{false};

    std::thread thread_;
    std::mutex mutex_; ///< guards what follows
    std::condition_variable changed_;
    std::size_t next_ = 0;    ///< block that is written next
    std::size_t waiting_ = 0; ///< full blocks from there on
    bool ending_ = false;
};

} // namespace scanlib
