#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bundle_interface/holdfast/loan.hpp"

namespace Skein {

/// Carries out changes of a file on a thread of its own, in the order given, so that the caller
/// computes while the system copies.
///
/// Bytes are copied when handed over, up to `most_waiting` of them wait, beyond that the caller
/// does; or they are lent, and given back piece by piece as they are written. The first failure
/// ends it: nothing is changed any more, and every later operation returns false. Operations may be
/// called by one thread at a time, drain() beside the others.
class WriteBehind {
  public:
    static constexpr std::size_t most_waiting = std::size_t{32} << 20;

    /// Works on an open file, which outlives the object. Throws std::system_error without a thread.
    explicit WriteBehind(int descriptor);
    WriteBehind(const WriteBehind&) = delete;
    WriteBehind& operator=(const WriteBehind&) = delete;
    /// Carries out what waits.
    ~WriteBehind();

    bool write(std::uint64_t at, const std::byte* bytes, std::size_t count);
    /// As write, without a copy; `bytes` is what the loan lends, which is dropped once they are
    /// written or nothing is any more. An urgent loan goes ahead of other bytes that wait, but of
    /// nothing else.
    bool lend(std::uint64_t at, const std::byte* bytes, std::shared_ptr<Holdfast::Loan> loan);
    bool resize(std::uint64_t size);
    /// A point in the order that `reached` tells once all before it is done.
    bool mark(std::uint64_t value);
    /// Waits until all is done. False if something failed.
    bool drain();

    /// The newest mark behind which nothing is left to do; `none` without.
    std::uint64_t reached(std::uint64_t none) const;
    /// What failed and why; empty while nothing did.
    std::string error() const;

  private:
    enum class Kind : std::uint8_t { write, resize, mark };
    struct Job {
        Kind kind;
        std::uint64_t at; ///< place, size or mark
        std::unique_ptr<std::byte[]> bytes;
        std::size_t count;
        std::size_t capacity; ///< bytes that the job keeps; 0 for lent ones
        const std::byte* lent = nullptr;
        std::shared_ptr<Holdfast::Loan> loan = nullptr;
    };

    // Large enough that handing over costs nothing against the copy, small enough to stay in the
    // cache until it is written.
    static constexpr std::size_t block_size = std::size_t{1} << 20;

    bool hand_over(Job job);
    void work();
    std::string carry_out(const Job& job) const;
    std::string writeLent(const Job& job) const;
    std::unique_ptr<std::byte[]> take_block();

    const int descriptor_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Job> jobs_;
    std::vector<std::unique_ptr<std::byte[]>> free_blocks_;
    std::size_t waiting_ = 0; ///< bytes of jobs not done
    std::uint64_t reached_ = 0;
    bool any_reached_ = false;
    bool busy_ = false;
    bool ending_ = false;
    std::string error_;
    std::thread thread_; // last: the others are there when it starts
};

} // namespace Skein
