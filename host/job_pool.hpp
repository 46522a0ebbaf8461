#pragma once

#include "interrupts.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <sys/types.h>

namespace host {

/// The child's side of a job: what it tells its parent.
class job_report {
  public:
    explicit job_report(int to) : to_(to) {}

    /// How much is done, in the parent's unit. Ends the process where nobody listens any more.
    void progress(std::uint64_t done) const;
    /// What came out of it; once, at the end.
    void result(const std::string& text) const;

  private:
    void send(char kind, const void* data, std::uint32_t size) const;

    int to_;
};

/// What the parent's wishes call in the child, on a thread of their own. Each gets the signal that
/// stands behind the wish; a parent that is gone cancels, too.
struct job_wishes {
    std::function<void(int signal)> stop;
    std::function<void(int signal)> cancel;
};

/// How a job ended.
struct job_end {
    std::size_t number = 0; ///< of the job
    bool told = false;      ///< it came so far as to tell its result
    std::string result;
    std::string output; ///< what it wrote to standard output
    int status = 0;     ///< as waitpid tells it
};

/// Runs jobs in child processes. A job that crashes ends alone. Lines that jobs write to standard
/// error are passed on as they come, whole.
///
/// The process must have no other threads: its children go on with the one that made them.
class job_pool {
  public:
    /// Runs in the child. What it returns to is the end of the process.
    using work = std::function<void(std::size_t number, const job_report& report)>;
    struct listener {
        std::function<void(std::size_t number, std::uint64_t done)> progress;
        std::function<void()> before_message; ///< before a line goes to standard error
    };

    job_pool(job_wishes wishes, listener told);
    job_pool(const job_pool&) = delete;
    job_pool& operator=(const job_pool&) = delete;
    ~job_pool();

    /// Jobs that run.
    std::size_t running() const noexcept { return jobs_.size(); }
    /// Signals so far, and the last one. From the first on no job should start, and the jobs are
    /// asked to stop; the second cancels them; the third ends this process.
    int signals() const noexcept { return signals_; }
    int last_signal() const noexcept { return last_signal_; }

    /// Starts a job. Returns why no process can be made; empty if it runs.
    std::string start(std::size_t number, const work& run);

    /// Waits until something happens. Returns the jobs that ended.
    std::list<job_end> wait();

  private:
    struct job;
    struct wires;

    [[noreturn]] void live(std::size_t number, wires& ends, const work& run);
    void take_signal();
    void tell_jobs(char wish, int signal);

    job_wishes wishes_;
    listener told_;
    signal_pipe pipe_;
    std::list<job> jobs_;
    int signals_ = 0;
    int last_signal_ = 0;
};

} // namespace host
