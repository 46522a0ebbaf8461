#include "interrupts.hpp"

#include "running_thread.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <unistd.h>

namespace host {

namespace {

constexpr std::array signals = {SIGINT, SIGTERM};

// What a signal handler may touch: it only passes the signal on.
std::atomic<int> pipe_in{-1};
std::atomic<int> cancelled_by{0};

void pass_on(int signal) {
    const int saved = errno;
    const char byte = static_cast<char>(signal);
    // A full pipe holds more signals than anybody waits for.
    if (::write(pipe_in, &byte, 1) < 0) {
        errno = saved;
    }
    errno = saved;
}

void set_handlers(void (*handler)(int)) {
    for (const int signal : signals) {
        struct sigaction action {};
        action.sa_handler = handler;
        action.sa_flags = SA_RESTART;
        ::sigaction(signal, &action, nullptr);
    }
}

} // namespace

signal_pipe::signal_pipe() {
    int ends[2];
    if (::pipe(ends) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot watch for signals");
    }
    out_ = file_handle(ends[0]);
    in_ = file_handle(ends[1]);
    pipe_in = ends[1];
    set_handlers(pass_on);
}

signal_pipe::~signal_pipe() {
    set_handlers(SIG_DFL);
    pipe_in = -1;
}

bool signal_pipe::write_end_of_watch() {
    return ::write(pipe_in, &end_of_watch, 1) == 1;
}

pid_t fork_unwatched() {
    sigset_t held;
    sigset_t before;
    ::sigemptyset(&held);
    for (const int signal : signals) {
        ::sigaddset(&held, signal);
    }
    ::pthread_sigmask(SIG_BLOCK, &held, &before);
    const pid_t child = ::fork();
    const int failure = errno;
    if (child == 0 && pipe_in != -1) {
        set_handlers(SIG_IGN);
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = failure;
    return child;
}

void end_process_by(int signal) {
    set_handlers(SIG_DFL);
    ::raise(signal);
}

interrupts::interrupts(std::function<void(int)> stop, std::function<void(int)> cancel)
    : stop_(std::move(stop)), cancel_(std::move(cancel)) {
    watcher_ = start_running([this] {
        char signal = signal_pipe::end_of_watch;
        while (::read(signals_.descriptor(), &signal, 1) == 1 &&
               signal != signal_pipe::end_of_watch) {
            take(signal);
        }
    });
}

interrupts::~interrupts() {
    // Only a signal in between can keep it from that.
    while (!signal_pipe::write_end_of_watch()) {
        std::this_thread::yield();
    }
    watcher_.join();
}

void interrupts::take(int signal) {
    const int n = ++count_;
    last_ = signal;
    if (n == 1) {
        stop_(signal);
    } else if (n == 2) {
        cancelled_by = signal;
        cancel_(signal);
    } else {
        end_process_by(signal);
    }
}

void interrupts::end_process_if_cancelled() {
    if (const int signal = cancelled_by.exchange(0); signal != 0) {
        end_process_by(signal);
    }
}

} // namespace host
