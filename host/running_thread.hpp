#pragma once

#include <future>
#include <thread>
#include <utility>

namespace host {

/// A thread that runs `work` already: a child that is forked while a thread only starts can inherit
/// a lock which nobody in that child releases. `work` should take none that a child needs.
template<typename Work>
std::thread start_running(Work work) {
    std::promise<void> runs;
    const std::future<void> running = runs.get_future();
    std::thread thread([runs = std::move(runs), work = std::move(work)]() mutable {
        runs.set_value();
        work();
    });
    running.wait();
    return thread;
}

} // namespace host
