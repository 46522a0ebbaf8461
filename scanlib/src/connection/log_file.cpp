#include "log_file.hpp"

#include <algorithm>
#include <cstring>
#include <system_error>
#include <utility>

namespace scanlib {

log_file::log_file() {
    free_.reserve(blocks);
}

log_file::~log_file() {
    close();
}

bool log_file::open(const std::filesystem::path& path) {
    file_ = std::fopen(path.c_str(), "wb");
    if (file_ == nullptr) {
        return false;
    }
    // The blocks are buffer enough.
    std::setvbuf(file_, nullptr, _IONBF, 0);
    failed_ = false;
    filled_ = 0;
    return true;
}

bool log_file::write(const char* data, std::size_t n) {
    while (n != 0) {
        if (!present_) {
            present_ = std::make_unique<char[]>(block_bytes);
        }
        const std::size_t k = std::min(n, block_bytes - filled_);
        std::memcpy(present_.get() + filled_, data, k);
        filled_ += k;
        data += k;
        n -= k;
        if (filled_ == block_bytes) {
            hand_over();
        }
    }
    return !failed_;
}

bool log_file::put(const char* data, std::size_t n) noexcept {
    if (!failed_ && std::fwrite(data, 1, n, file_) != n) {
        failed_ = true;
    }
    return !failed_;
}

/// Returns whether the system has one left.
bool log_file::start_thread() {
    ending_ = false;
    try {
        thread_ = std::thread([this] { work(); });
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

/// Gives the present block to the thread, which must not be too far behind.
void log_file::hand_over() {
    if (!thread_.joinable() && !start_thread()) {
        put(present_.get(), std::exchange(filled_, 0));
        return;
    }
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return waiting_ < blocks; });
    full_[(next_ + waiting_) % blocks] = std::move(present_);
    ++waiting_;
    if (!free_.empty()) {
        present_ = std::move(free_.back());
        free_.pop_back();
    }
    filled_ = 0;
    lock.unlock();
    changed_.notify_all();
}

void log_file::work() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return waiting_ != 0 || ending_; });
        if (waiting_ == 0) {
            return;
        }
        const char* const first = full_[next_].get();
        lock.unlock();
        put(first, block_bytes);
        lock.lock();
        free_.push_back(std::move(full_[next_]));
        next_ = (next_ + 1) % blocks;
        --waiting_;
        changed_.notify_all();
    }
}

bool log_file::flush() {
    if (file_ == nullptr) {
        return true;
    }
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return waiting_ == 0; });
    lock.unlock();
    const std::size_t rest = std::exchange(filled_, 0);
    return rest == 0 ? !failed_ : put(present_.get(), rest);
}

void log_file::end_thread() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

bool log_file::close() {
    if (file_ == nullptr) {
        return true;
    }
    const bool whole = flush();
    end_thread();
    return std::fclose(std::exchange(file_, nullptr)) == 0 && whole;
}

} // namespace scanlib
