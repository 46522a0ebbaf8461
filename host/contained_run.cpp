#include "contained_run.hpp"

#include "interrupts.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace host {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool bounds_memory = false; // these reserve far more than they use
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool bounds_memory = false;
#else
constexpr bool bounds_memory = true;
#endif
#else
constexpr bool bounds_memory = true;
#endif

constexpr rlim_t most_memory = rlim_t{4} << 30U;

constexpr std::uint64_t least_seconds = 60;
constexpr std::uint64_t bytes_per_second = std::uint64_t{1} << 20U;

void limit(int what, rlim_t most) {
    rlimit now{};
    if (getrlimit(static_cast<__rlimit_resource_t>(what), &now) == 0 && now.rlim_cur > most) {
        now.rlim_cur = most;
        setrlimit(static_cast<__rlimit_resource_t>(what), &now);
    }
}

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void write_all(int to, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = write(to, text.data() + done, text.size() - done);
        if (n < 0 && errno != EINTR) {
            return;
        }
        done += n < 0 ? 0 : static_cast<std::size_t>(n);
    }
}

std::string read_all(int from) {
    std::string text;
    std::array<char, 65536> bytes{};
    for (;;) {
        const ssize_t n = read(from, bytes.data(), bytes.size());
        if (n > 0) {
            text.append(bytes.data(), static_cast<std::size_t>(n));
        } else if (n == 0 || errno != EINTR) {
            return text;
        }
    }
}

/// Lets the child end with its parent, also where that has ended already.
void end_with(pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(static_cast<int>(exit_code::internal_failure));
    }
}

// What the child sends begins with one of these: the text of the work, or why it was given up.
constexpr char kind_told = 't';
constexpr char kind_failure = 'f';

/// The child's life. Ends without the parent's exit handlers and buffers.
[[noreturn]] void live(int to, std::uint64_t seconds,
                       const std::function<exit_code(std::string&)>& work) {
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_CPU, seconds);
    if (bounds_memory) {
        limit(RLIMIT_AS, most_memory);
    }
    std::string told;
    std::string failure;
    exit_code code = exit_code::internal_failure;
    try {
        code = work(told);
    } catch (const std::bad_alloc&) {
        failure = "reading the file takes too much memory";
        code = exit_code::input_damaged;
    } catch (const std::exception& e) {
        failure = std::string("internal failure: ") + e.what();
    }
    write_all(to, failure.empty() ? kind_told + told : kind_failure + failure);
    _exit(static_cast<int>(code));
}

std::string text_of_signal(int signal, std::uint64_t seconds) {
    if (signal == SIGXCPU) {
        return "the storage library does not end with it in " + std::to_string(seconds) +
               " s: its structure is damaged";
    }
    return "the storage library fails on it (signal " + std::to_string(signal) +
           "): its structure is damaged";
}

} // namespace

std::uint64_t most_seconds(const std::string& file) {
    std::error_code unknown;
    const auto bytes = std::filesystem::file_size(file, unknown);
    return least_seconds + (unknown ? 0 : bytes / bytes_per_second);
}

contained_result run_contained(std::uint64_t seconds,
                               const std::function<exit_code(std::string& told)>& work) {
    std::fflush(stdout);
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        fail("pipe");
    }
    const pid_t parent = getpid();
    const pid_t child = fork_unwatched();
    if (child == 0) {
        end_with(parent);
        close(ends[0]);
        live(ends[1], seconds, work);
    }
    const int failure = errno;
    close(ends[1]);
    if (child < 0) {
        close(ends[0]);
        errno = failure;
        fail("fork");
    }
    contained_result result;
    const std::string sent = read_all(ends[0]);
    close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            fail("waitpid");
        }
    }
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) {
        std::raise(SIGPIPE);
    }
    if (WIFEXITED(status)) {
        result.code = static_cast<exit_code>(WEXITSTATUS(status));
        const bool whole = sent.starts_with(kind_told);
        (whole ? result.told : result.failure) =
            sent.empty() ? "its reading ended early" : sent.substr(1);
    } else {
        result.code = exit_code::input_damaged;
        result.failure = text_of_signal(WTERMSIG(status), seconds);
    }
    return result;
}

} // namespace host
