#include "write_behind.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace Skein {

namespace {

std::string failed(const char* action, int cause) {
    return std::string(action) + ": " + std::generic_category().message(cause);
}

std::string writeAll(int descriptor, std::uint64_t at, const std::byte* bytes, std::size_t count) {
    while (count != 0) {
        const ssize_t n = ::pwrite(descriptor, bytes, count, static_cast<off_t>(at));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return failed("write", n < 0 ? errno : EIO);
        }
        at += static_cast<std::uint64_t>(n);
        bytes += n;
        count -= static_cast<std::size_t>(n);
    }
    return {};
}

} // namespace

WriteBehind::WriteBehind(int descriptor) : descriptor_(descriptor) {
    // The thread adds to them and must not fail there.
    free_blocks_.reserve(most_waiting / block_size);
    thread_ = std::thread([this] { work(); });
}

WriteBehind::~WriteBehind() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

std::unique_ptr<std::byte[]> WriteBehind::take_block() {
    const std::lock_guard lock(mutex_);
    if (free_blocks_.empty()) {
        return std::make_unique_for_overwrite<std::byte[]>(block_size);
    }
    auto block = std::move(free_blocks_.back());
    free_blocks_.pop_back();
    return block;
}

bool WriteBehind::hand_over(Job job) {
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] {
            return !error_.empty() || waiting_ == 0 || waiting_ + job.capacity <= most_waiting;
        });
        if (!error_.empty()) {
            return false;
        }
        waiting_ += job.capacity;
        jobs_.push_back(std::move(job));
    }
    changed_.notify_all();
    return true;
}

bool WriteBehind::write(std::uint64_t at, const std::byte* bytes, std::size_t count) {
    while (count != 0) {
        const std::size_t n = std::min(count, block_size);
        // Small pieces take what they need; a block would use up the room of many.
        const bool whole_block = n > block_size / 4;
        Job job = {Kind::write, at,
                   whole_block ? take_block() : std::make_unique_for_overwrite<std::byte[]>(n), n,
                   whole_block ? block_size : n};
        std::memcpy(job.bytes.get(), bytes, n);
        if (!hand_over(std::move(job))) {
            return false;
        }
        at += n;
        bytes += n;
        count -= n;
    }
    return true;
}

bool WriteBehind::lend(std::uint64_t at, const std::byte* bytes,
                       std::shared_ptr<Holdfast::Loan> loan) {
    {
        const std::lock_guard lock(mutex_);
        if (!error_.empty()) {
            return false;
        }
        const auto waits_behind = [](const Job& j) {
            return j.kind == Kind::write && !(j.loan && j.loan->urgent());
        };
        auto place = jobs_.end();
        while (loan->urgent() && place != jobs_.begin() && waits_behind(*std::prev(place))) {
            --place;
        }
        const std::size_t count = loan->bytes();
        jobs_.insert(place, {Kind::write, at, nullptr, count, 0, bytes, std::move(loan)});
    }
    changed_.notify_all();
    return true;
}

bool WriteBehind::resize(std::uint64_t size) {
    return hand_over({Kind::resize, size, nullptr, 0, 0});
}

bool WriteBehind::mark(std::uint64_t value) {
    return hand_over({Kind::mark, value, nullptr, 0, 0});
}

bool WriteBehind::drain() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !error_.empty() ? !busy_ : jobs_.empty() && !busy_; });
    return error_.empty();
}

std::uint64_t WriteBehind::reached(std::uint64_t none) const {
    const std::lock_guard lock(mutex_);
    return any_reached_ ? reached_ : none;
}

std::string WriteBehind::error() const {
    const std::lock_guard lock(mutex_);
    return error_;
}

std::string WriteBehind::writeLent(const Job& job) const {
    // The owner of an urgent loan waits for the first piece.
    const std::size_t piece = job.loan->urgent() ? block_size / 8 : block_size;
    std::string failure;
    for (std::size_t done = 0; done < job.count && failure.empty();) {
        const std::size_t n = std::min(job.count - done, piece);
        failure = writeAll(descriptor_, job.at + done, job.lent + done, n);
        done += n;
        job.loan->giveBack(done);
    }
    return failure;
}

std::string WriteBehind::carry_out(const Job& job) const {
    switch (job.kind) {
    case Kind::write:
        return job.loan ? writeLent(job)
                        : writeAll(descriptor_, job.at, job.bytes.get(), job.count);
    case Kind::resize:
        return ::ftruncate(descriptor_, static_cast<off_t>(job.at)) == 0
                   ? std::string()
                   : failed("set the size", errno);
    case Kind::mark:
        break;
    }
    return {};
}

void WriteBehind::work() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [&] { return !jobs_.empty() || ending_; });
        if (jobs_.empty()) {
            return;
        }
        Job job = std::move(jobs_.front());
        jobs_.pop_front();
        busy_ = true;
        lock.unlock();
        std::string failure = carry_out(job);
        lock.lock();
        busy_ = false;
        waiting_ -= job.capacity;
        if (!failure.empty()) {
            error_ = std::move(failure);
            jobs_.clear();
            waiting_ = 0;
        } else if (job.kind == Kind::mark) {
            reached_ = job.at;
            any_reached_ = true;
        }
        if (job.capacity == block_size) {
            free_blocks_.push_back(std::move(job.bytes));
        }
        changed_.notify_all();
    }
}

} // namespace Skein
