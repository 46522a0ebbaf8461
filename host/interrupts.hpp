#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace host {

/// While it lives, Ctrl-C (or a request to terminate) does not end the process: the first one calls
/// `stop`, the second one `cancel`, and the third one ends the process as it would have done. Both
/// are called on a thread of this object's own. One at a time.
class interrupts {
  public:
    interrupts(std::function<void()> stop, std::function<void()> cancel);
    interrupts(const interrupts&) = delete;
    interrupts& operator=(const interrupts&) = delete;
    ~interrupts();

    /// Signals so far.
    int count() const noexcept { return count_; }

    /// Ends the process by the last signal, if there were two or more; what was cancelled should
    /// look so from outside.
    static void end_process_if_cancelled();

  private:
    void take(int signal);

    std::function<void()> stop_;
    std::function<void()> cancel_;
    std::atomic<int> count_{0};
    std::thread watcher_;
};

} // namespace host
