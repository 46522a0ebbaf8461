#include "interrupts.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <unistd.h>

namespace host {

namespace {

constexpr std::array signals = {SIGINT, SIGTERM};
constexpr char end_of_watch = 0;

// What a signal handler may touch: it only passes the signal on to the watching thread.
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

interrupts::interrupts(std::function<void()> stop, std::function<void()> cancel)
    : stop_(std::move(stop)), cancel_(std::move(cancel)) {
    int ends[2];
    if (::pipe(ends) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot watch for signals");
    }
    pipe_in = ends[1];
    watcher_ = std::thread([this, out = ends[0]] {
        char signal = end_of_watch;
        while (::read(out, &signal, 1) == 1 && signal != end_of_watch) {
            take(signal);
        }
        ::close(out);
    });
    set_handlers(pass_on);
}

interrupts::~interrupts() {
    set_handlers(SIG_DFL);
    const int in = pipe_in.exchange(-1);
    if (::write(in, &end_of_watch, 1) == 1) {
        watcher_.join();
    } else {
        watcher_.detach();
    }
    ::close(in);
}

void interrupts::take(int signal) {
    const int n = ++count_;
    if (n == 1) {
        stop_();
    } else if (n == 2) {
        cancelled_by = signal;
        cancel_();
    } else {
        set_handlers(SIG_DFL);
        ::raise(signal);
    }
}

void interrupts::end_process_if_cancelled() {
    if (const int signal = cancelled_by.exchange(0); signal != 0) {
        ::raise(signal);
    }
}

} // namespace host
