#pragma once

#include "file_handle.hpp"

#include <atomic>
#include <functional>
#include <sys/types.h>
#include <thread>

namespace host {

/// While it lives, Ctrl-C (or a request to terminate) does not end the process but can be read from
/// a descriptor. One at a time.
class signal_pipe {
  public:
    /// Throws std::system_error.
    signal_pipe();
    signal_pipe(const signal_pipe&) = delete;
    signal_pipe& operator=(const signal_pipe&) = delete;
    ~signal_pipe();

    /// Where signals arrive, a byte each, its number.
    int descriptor() const noexcept { return out_.get(); }
    /// Writes a byte that is no signal's. Returns whether that was possible.
    static bool write_end_of_watch();
    static constexpr char end_of_watch = 0;

  private:
    file_handle out_;
    file_handle in_;
};

/// fork. Where there is a signal_pipe, the child ignores its signals from the first moment on: they
/// are the parent's to take, and must not reach the pipe twice.
pid_t fork_unwatched();

/// Ends the process by a signal, as if it had not been caught.
void end_process_by(int signal);

/// While it lives, the first signal calls `stop`, the second one `cancel`, and the third one ends
/// the process as it would have done. Both are called on a thread of this object's own. One at a
/// time.
class interrupts {
  public:
    interrupts(std::function<void(int signal)> stop, std::function<void(int signal)> cancel);
    interrupts(const interrupts&) = delete;
    interrupts& operator=(const interrupts&) = delete;
    ~interrupts();

    /// Signals so far.
    int count() const noexcept { return count_; }
    /// The last one; 0 for none.
    int last() const noexcept { return last_; }

    /// Ends the process by the last signal, if there were two or more; what was cancelled should
    /// look so from outside.
    static void end_process_if_cancelled();

  private:
    void take(int signal);

    signal_pipe signals_;
    std::function<void(int)> stop_;
    std::function<void(int)> cancel_;
    std::atomic<int> count_{0};
    std::atomic<int> last_{0};
    std::thread watcher_;
};

} // namespace host
