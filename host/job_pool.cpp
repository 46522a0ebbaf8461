#include "job_pool.hpp"

#include "running_thread.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace host {

namespace {

// A frame of a report is a kind, a size, and so many bytes.
constexpr char kind_progress = 'p';
constexpr char kind_result = 'r';
constexpr std::size_t frame_head = 1 + sizeof(std::uint32_t);
// A wish is a kind and a signal.
constexpr char wish_stop = 's';
constexpr char wish_cancel = 'c';
constexpr std::size_t longest_line = 65536; ///< kept back until its end comes

bool make_pipe(file_handle& out, file_handle& in) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        return false;
    }
    out = file_handle(ends[0]);
    in = file_handle(ends[1]);
    return true;
}

/// Appends what is there now. Returns whether more can come.
bool take_from(int from, std::string& to) {
    std::array<char, 65536> bytes{};
    const ssize_t n = ::read(from, bytes.data(), bytes.size());
    if (n > 0) {
        to.append(bytes.data(), static_cast<std::size_t>(n));
    }
    return n > 0 || (n < 0 && errno == EINTR);
}

/// Calls what the parent's wishes ask for, as long as there is a parent.
void listen(int from, const job_wishes& wishes) {
    std::array<char, 2> wish{};
    for (;;) {
        const ssize_t n = ::recv(from, wish.data(), wish.size(), MSG_WAITALL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n != static_cast<ssize_t>(wish.size())) {
            wishes.cancel(SIGTERM);
            return;
        }
        (wish[0] == wish_cancel ? wishes.cancel : wishes.stop)(wish[1]);
    }
}

} // namespace

void job_report::progress(std::uint64_t done) const {
    send(kind_progress, &done, sizeof done);
}

void job_report::result(const std::string& text) const {
    send(kind_result, text.data(), static_cast<std::uint32_t>(text.size()));
}

void job_report::send(char kind, const void* data, std::uint32_t size) const {
    std::string frame(frame_head + size, kind);
    std::memcpy(frame.data() + 1, &size, sizeof size);
    std::memcpy(frame.data() + frame_head, data, size);
    for (std::size_t done = 0; done < frame.size();) {
        const ssize_t n = ::write(to_, frame.data() + done, frame.size() - done);
        if (n < 0 && errno != EINTR) {
            return;
        }
        done += n < 0 ? 0 : static_cast<std::size_t>(n);
    }
}

/// Both ends of what connects a parent with a child.
struct job_pool::wires {
    file_handle report_out, report_in;
    file_handle output_out, output_in;
    file_handle errors_out, errors_in;
    file_handle wish_out, wish_in;

    bool make() {
        std::array<int, 2> ends{};
        if (!make_pipe(report_out, report_in) || !make_pipe(output_out, output_in) ||
            !make_pipe(errors_out, errors_in) ||
            ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) {
            return false;
        }
        wish_out = file_handle(ends[0]);
        wish_in = file_handle(ends[1]);
        return true;
    }
    void close_parents_ends() {
        for (file_handle* const end : {&report_out, &output_out, &errors_out, &wish_in}) {
            *end = file_handle();
        }
    }
    void close_childs_ends() {
        for (file_handle* const end : {&report_in, &output_in, &errors_in, &wish_out}) {
            *end = file_handle();
        }
    }
};

struct job_pool::job {
    job_end end;
    wires ends;
    pid_t process = 0;
    std::string report; ///< a frame that is not whole
    std::string errors; ///< a line that is not whole

    void read_frames(const listener& told) {
        std::uint32_t size = 0;
        std::size_t at = 0;
        for (; report.size() - at >= frame_head; at += frame_head + size) {
            std::memcpy(&size, report.data() + at + 1, sizeof size);
            if (report.size() - at - frame_head < size) {
                break;
            }
            take_frame(report[at], report.substr(at + frame_head, size), told);
        }
        report.erase(0, at);
    }

    void pass_on_lines(const listener& told, bool all) {
        const std::size_t end_of_line = errors.rfind('\n');
        std::size_t n = end_of_line == std::string::npos ? 0 : end_of_line + 1;
        if (all || errors.size() > longest_line) {
            n = errors.size();
        }
        if (n != 0) {
            told.before_message();
            std::fwrite(errors.data(), 1, n, stderr);
            errors.erase(0, n);
        }
    }

  private:
    void take_frame(char kind, const std::string& content, const listener& told) {
        std::uint64_t done = 0;
        if (kind == kind_result) {
            end.told = true;
            end.result = content;
        } else if (kind == kind_progress && content.size() == sizeof done) {
            std::memcpy(&done, content.data(), sizeof done);
            told.progress(end.number, done);
        }
    }
};

job_pool::job_pool(job_wishes wishes, listener told)
    : wishes_(std::move(wishes)), told_(std::move(told)) {}

job_pool::~job_pool() = default;

void job_pool::live(std::size_t number, wires& ends, const work& run) {
    for (job& other : jobs_) {
        other.ends = wires(); // or a parent that is gone would not be noticed
    }
    ends.close_parents_ends();
    ::dup2(ends.output_in.get(), STDOUT_FILENO);
    ::dup2(ends.errors_in.get(), STDERR_FILENO);
    int status = EXIT_SUCCESS;
    try {
        start_running([this, from = ends.wish_out.get()] { listen(from, wishes_); }).detach();
        run(number, job_report(ends.report_in.get()));
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        status = EXIT_FAILURE;
    }
    std::fflush(nullptr);
    ::_exit(status); // the rest of this process is the parent's
}

std::string job_pool::start(std::size_t number, const work& run) {
    std::fflush(nullptr);
    job& fresh = jobs_.emplace_back();
    fresh.end.number = number;
    const bool wired = fresh.ends.make();
    fresh.process = wired ? fork_unwatched() : -1;
    if (fresh.process < 0) {
        const int failure = errno;
        jobs_.pop_back(); // descriptors may be what is short, and the text may need one
        return std::generic_category().message(failure);
    }
    if (fresh.process == 0) {
        wires mine = std::move(fresh.ends);
        live(number, mine, run);
    }
    fresh.ends.close_childs_ends();
    return {};
}

void job_pool::tell_jobs(char wish, int signal) {
    const std::array<char, 2> bytes{wish, static_cast<char>(signal)};
    for (const job& j : jobs_) {
        // One that cannot be told has ended.
        [[maybe_unused]] const ssize_t n =
            ::send(j.ends.wish_in.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
}

void job_pool::take_signal() {
    char signal = 0;
    if (::read(pipe_.descriptor(), &signal, 1) != 1) {
        return;
    }
    last_signal_ = signal;
    if (++signals_ > 2) {
        told_.before_message();
        end_process_by(signal);
    }
    tell_jobs(signals_ == 1 ? wish_stop : wish_cancel, signal);
}

std::list<job_end> job_pool::wait() {
    std::vector<pollfd> places{{pipe_.descriptor(), POLLIN, 0}};
    for (const job& j : jobs_) {
        for (const file_handle* from :
             {&j.ends.report_out, &j.ends.output_out, &j.ends.errors_out}) {
            places.push_back({from->get(), POLLIN, 0}); // -1 is passed over
        }
    }
    std::list<job_end> ended;
    if (::poll(places.data(), places.size(), -1) < 0) {
        return ended;
    }
    if (places[0].revents != 0) {
        take_signal();
    }
    std::size_t at = 1;
    for (auto j = jobs_.begin(); j != jobs_.end();) {
        const auto take = [&](file_handle& from, std::string& to) {
            if (places[at++].revents != 0 && !take_from(from.get(), to)) {
                from = file_handle();
            }
        };
        take(j->ends.report_out, j->report);
        take(j->ends.output_out, j->end.output);
        take(j->ends.errors_out, j->errors);
        j->read_frames(told_);
        const bool over = !j->ends.report_out && !j->ends.output_out && !j->ends.errors_out;
        j->pass_on_lines(told_, over);
        if (over) {
            while (::waitpid(j->process, &j->end.status, 0) < 0 && errno == EINTR) {
            }
            ended.push_back(std::move(j->end));
            j = jobs_.erase(j);
        } else {
            ++j;
        }
    }
    return ended;
}

} // namespace host
