#include "log_file.hpp"

#include <algorithm>
#include <cstring>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace scanlib {

log_file::log_file() {
    free_.reserve(most_blocks + 1);
}

log_file::~log_file() {
    close();
}

bool log_file::open(const std::filesystem::path& path) {
    constexpr mode_t all_may_read_and_write = 0666; // less what the process masks
    descriptor_ =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, all_may_read_and_write);
    way_ = copy_way::within_file_systems;
    failed_ = false;
    return is_open();
}

bool log_file::write(const char* data, std::size_t n, file_place from) {
    if (n != 0 && (from.file == nullptr || !add_range(from, n))) {
        add_bytes(data, n);
    }
    return !failed_;
}

void log_file::add_bytes(const char* data, std::size_t n) {
    if (present_.file) {
        end_part();
    }
    while (n != 0) {
        if (!present_.bytes) {
            present_.bytes = free_block();
        }
        const std::size_t k = std::min<std::size_t>(n, block_bytes - present_.size);
        std::memcpy(present_.bytes.get() + present_.size, data, k);
        present_.size += k;
        data += k;
        n -= k;
        if (present_.size == block_bytes) {
            hand_over();
        }
    }
}

/// Returns whether the bytes can be taken from there later: not if they are this file's own.
bool log_file::add_range(file_place from, std::uint64_t n) {
    const std::shared_ptr<const open_file>& file = *from.file;
    if (present_.file != file || present_.offset + present_.size != from.offset) {
        if (file->is_same(descriptor_)) {
            return false;
        }
        end_part();
        present_.file = file;
        present_.offset = from.offset;
    }
    while (n != 0) {
        const std::uint64_t k = std::min(n, range_bytes - present_.size);
        present_.size += k;
        n -= k;
        if (present_.size == range_bytes) {
            const std::uint64_t end = present_.offset + range_bytes;
            hand_over();
            present_.file = file;
            present_.offset = end;
        }
    }
    return true;
}

/// Leaves the present part without file and without bytes.
void log_file::end_part() {
    if (present_.size != 0) {
        hand_over();
    }
    present_.file.reset();
    recycle(present_.bytes);
}

log_file::block log_file::free_block() {
    {
        const std::lock_guard lock(mutex_);
        if (!free_.empty()) {
            block last = std::move(free_.back());
            free_.pop_back();
            return last;
        }
    }
    return std::make_unique<char[]>(block_bytes);
}

void log_file::recycle(block& used) {
    if (used) {
        const std::lock_guard lock(mutex_);
        free_.push_back(std::move(used));
    }
}

bool log_file::put(const part& p) noexcept {
    if (failed_) {
        return false;
    }
    const bool whole =
        p.file ? copy_range(p.file->descriptor(), p.offset, p.size, descriptor_, way_)
               : write_all(descriptor_, p.bytes.get(), static_cast<std::size_t>(p.size));
    failed_ = !whole;
    return whole;
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

/// Gives the present part to the thread, which must not be too far behind, and empties it.
void log_file::hand_over() {
    if (!thread_.joinable() && !start_thread()) {
        put(present_);
        present_.file.reset();
        present_.size = 0;
        return;
    }
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock,
                      [this] { return waiting_ < most_parts && waiting_blocks_ < most_blocks; });
        waiting_blocks_ += present_.bytes ? 1 : 0;
        full_[(next_ + waiting_) % most_parts] = std::exchange(present_, {});
        ++waiting_;
    }
    changed_.notify_all();
}

void log_file::work() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return waiting_ != 0 || ending_; });
        if (waiting_ == 0) {
            return;
        }
        part first = std::exchange(full_[next_], {});
        lock.unlock();
        put(first);
        first.file.reset();
        lock.lock();
        if (first.bytes) {
            free_.push_back(std::move(first.bytes));
            --waiting_blocks_;
        }
        next_ = (next_ + 1) % most_parts;
        --waiting_;
        changed_.notify_all();
    }
}

bool log_file::flush() {
    if (!is_open()) {
        return true;
    }
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return waiting_ == 0; });
    }
    if (present_.size == 0) {
        return !failed_;
    }
    const bool whole = put(present_);
    present_.file.reset();
    present_.size = 0;
    return whole;
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
    if (!is_open()) {
        return true;
    }
    const bool whole = flush();
    end_thread();
    present_.file.reset();
    return ::close(std::exchange(descriptor_, -1)) == 0 && whole;
}

} // namespace scanlib
